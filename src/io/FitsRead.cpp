#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include "io/IoInternal.h"

namespace qorimg::io {
namespace detail {
namespace {

// A file that ends inside its header gives cfitsio the same read error as a
// short file of anything else; the first card tells them apart.
bool StartsAsFits(const std::string &path) {
  char start[9] = {};
  std::ifstream(path, std::ios::binary).read(start, sizeof start);
  return std::string_view(start, sizeof start) == "SIMPLE  =";
}

[[noreturn]] void FailOpen(const std::string &path, int status) {
  const std::string why = CfitsioText(status);
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) throw IoError(IoError::NotFound, path, "no such file " + why);
  if ((status == END_OF_FILE || status == READ_ERROR) && StartsAsFits(path))
    throw IoError(IoError::Truncated, path, "truncated FITS file " + why);
  if (status == BAD_BITPIX) throw IoError(IoError::Unsupported, path, "unsupported BITPIX " + why);
  throw IoError(IoError::NotFits, path, "not a FITS file " + why);
}

[[noreturn]] void FailRead(const std::string &path, int status) {
  const std::string why = CfitsioText(status);
  if (status == END_OF_FILE || status == READ_ERROR) throw IoError(IoError::Truncated, path, "truncated data " + why);
  throw IoError(IoError::NotFits, path, "unreadable data " + why);
}

FitsHandle Open(const std::string &path) {
  fitsfile *f = nullptr;
  int status = 0;
  if (fits_open_diskfile(&f, path.c_str(), READONLY, &status)) FailOpen(path, status);
  return FitsHandle(f);
}

double KeyOr(fitsfile *f, const char *key, double fallback) {
  double value = fallback;
  int status = 0;
  if (fits_read_key(f, TDOUBLE, key, &value, nullptr, &status)) {
    fits_clear_errmsg();
    return fallback;
  }
  return value;
}

RowOrder ReadRowOrder(const FitsHeader &header) {
  std::string order = header.Text("ROWORDER").value_or("");
  for (char &c : order) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return order == "TOP-DOWN" ? RowOrder::TopDown : RowOrder::BottomUp;
}

// The header cards that travel with the frame.
FitsHeader ReadCards(fitsfile *f, const std::string &path) {
  int count = 0, more = 0, status = 0;
  if (fits_get_hdrspace(f, &count, &more, &status)) FailOpen(path, status);
  FitsHeader header;
  for (int i = 1; i <= count; ++i) {
    char card[FLEN_CARD] = {};
    if (fits_read_record(f, i, card, &status)) FailOpen(path, status);
    if (Travels(card)) header.AddRecord(card);
  }
  return header;
}

// Data cut short: the file ends before the HDU's data do (the padding of the
// last block excepted).
void CheckLength(fitsfile *f, const FitsInfo &info, bool compressed) {
  LONGLONG headStart = 0, dataStart = 0, dataEnd = 0;
  int status = 0;
  if (fits_get_hduaddrll(f, &headStart, &dataStart, &dataEnd, &status)) FailOpen(info.path, status);
  std::error_code ec;
  const auto size = static_cast<LONGLONG>(std::filesystem::file_size(info.path, ec));
  if (ec) throw IoError(IoError::NotFound, info.path, "cannot be read (" + ec.message() + ")");
  const LONGLONG needed = compressed ? dataEnd - 2879
                                     : dataStart + static_cast<LONGLONG>(std::abs(info.bitpix) / 8) * info.width *
                                                       info.height * info.planes;
  if (size < needed)
    throw IoError(IoError::Truncated, info.path,
                  "truncated FITS file (" + std::to_string(size) + " bytes, the data need " + std::to_string(needed) +
                      ")");
}

}  // namespace

FitsHandle OpenImage(const FitsInfo &info) {
  FitsHandle f = Open(info.path);
  int status = 0, type = 0;
  if (fits_movabs_hdu(f.get(), info.hdu, &type, &status)) FailOpen(info.path, status);
  return f;
}

}  // namespace detail

using namespace detail;

FitsInfo ReadFitsInfo(const std::string &path) {
  FitsHandle f = Open(path);
  int hdus = 0, status = 0;
  if (fits_get_num_hdus(f.get(), &hdus, &status)) FailOpen(path, status);
  FitsInfo info;
  info.path = path;
  int naxis = 0;
  long long axes[3] = {0, 0, 1};
  for (info.hdu = 1; info.hdu <= hdus; ++info.hdu) {
    int type = 0;
    if (fits_movabs_hdu(f.get(), info.hdu, &type, &status)) FailOpen(path, status);
    if (type != IMAGE_HDU) continue;  // tile-compressed images count as images
    if (fits_get_img_paramll(f.get(), 3, &info.bitpix, &naxis, axes, &status)) FailOpen(path, status);
    if (naxis > 0) break;
  }
  if (info.hdu > hdus) throw IoError(IoError::Unsupported, path, "holds no image");
  if (naxis < 2 || naxis > 3)
    throw IoError(IoError::Unsupported, path, "NAXIS = " + std::to_string(naxis) + " is not supported (2 or 3)");
  if (naxis == 3 && axes[2] != 3 && axes[2] != 1)
    throw IoError(IoError::Unsupported, path,
                  "NAXIS3 = " + std::to_string(axes[2]) + " is not supported (1 or 3 colour planes)");
  if (info.bitpix == LONGLONG_IMG) throw IoError(IoError::Unsupported, path, "BITPIX = 64 is not supported");
  constexpr long long kMaxSide = INT_MAX / 4;
  if (axes[0] < 1 || axes[1] < 1 || axes[0] > kMaxSide || axes[1] > kMaxSide || axes[0] * axes[1] > (1LL << 40))
    throw IoError(IoError::Unsupported, path,
                  "image size " + std::to_string(axes[0]) + " x " + std::to_string(axes[1]) + " is not supported");
  info.width = static_cast<int>(axes[0]);
  info.height = static_cast<int>(axes[1]);
  info.planes = naxis == 3 ? static_cast<int>(axes[2]) : 1;
  info.bzero = KeyOr(f.get(), "BZERO", 0.0);
  info.bscale = KeyOr(f.get(), "BSCALE", 1.0);
  info.header = ReadCards(f.get(), path);
  info.rowOrder = ReadRowOrder(info.header);
  CheckLength(f.get(), info, fits_is_compressed_image(f.get(), &status) != 0);
  return info;
}

namespace {

// Rows [top, top+rows) of every plane in engine order from an open image HDU.
void ReadRows(fitsfile *f, const FitsInfo &info, int top, int rows, float *dst) {
  const bool bottomUp = info.rowOrder == RowOrder::BottomUp;
  const int first = bottomUp ? info.height - top - rows : top;  // first stored row, 0-based
  const std::size_t width = static_cast<std::size_t>(info.width), plane = width * static_cast<std::size_t>(rows);
  float blank = std::numeric_limits<float>::quiet_NaN();
  for (int p = 0; p < info.planes; ++p) {
    long lower[3] = {1, first + 1, p + 1}, upper[3] = {info.width, first + rows, p + 1}, step[3] = {1, 1, 1};
    float *out = dst + static_cast<std::size_t>(p) * plane;
    int anyBlank = 0, status = 0;
    if (fits_read_subset(f, TFLOAT, lower, upper, step, &blank, out, &anyBlank, &status)) FailRead(info.path, status);
    if (bottomUp)
      for (int i = 0; i < rows / 2; ++i)
        std::swap_ranges(out + i * width, out + (i + 1) * width, out + (rows - 1 - i) * width);
  }
}

}  // namespace

void ReadFitsRows(const FitsInfo &info, int top, int rows, float *dst) {
  if (top < 0 || rows < 0 || top > info.height - rows)
    throw std::out_of_range(info.path + ": rows " + std::to_string(top) + " + " + std::to_string(rows) +
                            " outside the height " + std::to_string(info.height));
  if (rows == 0) return;
  FitsHandle f = OpenImage(info);
  ReadRows(f.get(), info, top, rows, dst);
}

std::unique_ptr<CLmrImage> ReadFits(const std::string &path, const std::shared_ptr<CVmManager> &manager,
                                    FitsInfo *infoOut) {
  FitsInfo info = ReadFitsInfo(path);
  FitsHandle f = OpenImage(info);
  auto image = std::make_unique<CLmrImage>(manager, CImage::Float32, info.width, info.height, info.planes, 1.0, 0.0, 1,
                                           std::shared_ptr<lumora::Progress>());
  // Bands of about 4 M samples keep the buffer small for any frame size.
  const std::size_t width = static_cast<std::size_t>(info.width);
  const int band = static_cast<int>(std::clamp<std::size_t>((std::size_t{1} << 22) / (width * info.planes), 1,
                                                            static_cast<std::size_t>(info.height)));
  std::vector<float> buffer(width * static_cast<std::size_t>(band) * info.planes);
  std::vector<float> lo(info.planes, std::numeric_limits<float>::infinity()), hi(info.planes, -lo[0]);
  for (int top = 0; top < info.height; top += band) {
    const int rows = std::min(band, info.height - top);
    ReadRows(f.get(), info, top, rows, buffer.data());
    for (int p = 0; p < info.planes; ++p)
      for (int r = 0; r < rows; ++r) {
        const float *src = buffer.data() + (static_cast<std::size_t>(p) * rows + r) * width;
        std::copy(src, src + width, image->GetImageAdr(0, top + r, p));
        for (std::size_t x = 0; x < width; ++x)
          if (!std::isnan(src[x])) lo[p] = std::min(lo[p], src[x]), hi[p] = std::max(hi[p], src[x]);
      }
  }
  for (int p = 0; p < info.planes; ++p)
    if (lo[p] <= hi[p]) image->CImage::SetLevel(p, lo[p], hi[p]);
  if (infoOut) *infoOut = std::move(info);
  return image;
}

}  // namespace qorimg::io
