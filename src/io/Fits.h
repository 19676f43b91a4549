// FITS frames for the command-line workflow and the bindings: the first image of
// a file (plain or tile-compressed) read as float ADU with the engine's row 0 at
// the top, a frame's header cards carried from input to output, and frames
// written as float32 (or unsigned 16-bit for synthetic raw frames) with DATE and
// CHECKSUM. cfitsio does all reading and writing; errors are IoError naming the
// file and cfitsio's own text.
#pragma once
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>
#include "Export.h"
#include "core/LmrImage.h"

namespace qorimg::io {

// what(): "<path>: <text>", where text ends in cfitsio's explanation in
// parentheses when cfitsio gave one.
class QORIMG_API IoError : public std::runtime_error {
public:
  enum Kind { NotFound, NotFits, Unsupported, Truncated, Exists, WriteFailed };
  IoError(Kind kind, std::string path, std::string text);
  Kind kind() const { return kind_; }
  const std::string &path() const { return path_; }

private:
  Kind kind_;
  std::string path_;
};

// The non-structural cards of a frame, in order, as 80-character card images.
// Keys compare case-insensitively; a Set replaces the first card of its key in
// place, or appends one.
class QORIMG_API FitsHeader {
public:
  // The value of a key: strings without their quotes, other values as written.
  std::optional<std::string> Text(std::string_view key) const;
  // A numeric value (a string holding a number counts too).
  std::optional<double> Number(std::string_view key) const;
  void Set(std::string_view key, const std::string &value, std::string_view comment = {});
  // Raises std::invalid_argument for a value FITS cannot hold (NaN, infinity).
  void Set(std::string_view key, double value, std::string_view comment = {});
  void Set(std::string_view key, long long value, std::string_view comment = {});
  void Remove(std::string_view key);
  // One or more HISTORY cards (long texts are continued on further cards).
  void AddHistory(const std::string &text);
  // Appends a card image as it stands (padded or cut to 80 characters).
  void AddRecord(std::string card);
  const std::vector<std::string> &Records() const { return records_; }

private:
  void Put(std::string_view key, const std::string &formatted, std::string_view comment);
  std::vector<std::string> records_;
};

enum class RowOrder { BottomUp, TopDown };

struct FitsInfo {
  std::string path;
  int width = 0, height = 0, planes = 0;
  int bitpix = 0;
  double bzero = 0, bscale = 1;
  RowOrder rowOrder = RowOrder::BottomUp;
  FitsHeader header;
  int hdu = 1;  // the 1-based number of the image's HDU in the file
};

// The first image HDU (an empty primary is skipped), tile-compressed too.
QORIMG_API FitsInfo ReadFitsInfo(const std::string &path);
// The whole frame as float ADU (BSCALE/BZERO applied, blank pixels NaN), engine
// row order, on `manager`; levels set to each plane's data range.
QORIMG_API std::unique_ptr<CLmrImage> ReadFits(const std::string &path, const std::shared_ptr<CVmManager> &manager,
                                               FitsInfo *info = nullptr);
// Rows [top, top+rows) in engine order, every plane, plane-major into dst
// (planes * rows * width floats). Reads only those rows from the file.
QORIMG_API void ReadFitsRows(const FitsInfo &info, int top, int rows, float *dst);

// UInt16 = BITPIX 16 with BZERO 32768; samples rounded and clipped to 0..65535,
// NaN written as 0.
enum class SampleFormat { Float32, UInt16 };
struct WriteOptions {
  SampleFormat format = SampleFormat::Float32;
  bool overwrite = false;
};
// Writes to a temporary name in the same directory and renames; refuses an
// existing file unless overwrite (IoError::Exists) and leaves nothing behind on
// failure. The header's structural and scaling cards are dropped and rewritten;
// DATE, CHECKSUM and DATASUM are added. Engine order in, rows stored bottom-up.
QORIMG_API void WriteFits(const std::string &path, const CLmrImage &image, const FitsHeader &header,
                          const WriteOptions &options = {});

}  // namespace qorimg::io
