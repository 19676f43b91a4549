// What the FITS and PNG sources share: cfitsio handles and their error text, and
// the output file written under a temporary name and renamed when complete.
#pragma once
#include <fitsio.h>
#include <string>
#include "io/Fits.h"

namespace qorimg::io::detail {

// cfitsio's short text for a status, in parentheses; clears its message stack.
std::string CfitsioText(int status);

// Structural, compression, scaling, blank and checksum cards are rewritten by
// whoever writes a frame; every other card travels with it.
bool Travels(const std::string &card);

// Closes the file on scope exit.
struct FitsCloser {
  void operator()(fitsfile *f) const {
    int status = 0;
    fits_close_file(f, &status);
  }
};
using FitsHandle = std::unique_ptr<fitsfile, FitsCloser>;

// Opens the image HDU of `info` read-only (the path is taken literally, no
// cfitsio filename syntax).
FitsHandle OpenImage(const FitsInfo &info);

// An output written to a temporary name beside `path`. Commit() moves it onto
// `path` (refusing an existing file unless overwrite); otherwise the destructor
// removes the temporary.
class OutputFile {
public:
  OutputFile(std::string path, bool overwrite);
  ~OutputFile();
  OutputFile(const OutputFile &) = delete;
  OutputFile &operator=(const OutputFile &) = delete;
  const std::string &Temporary() const { return temporary_; }
  const std::string &Path() const { return path_; }
  void Commit();

private:
  std::string path_, temporary_;
  bool overwrite_, committed_ = false;
};

}  // namespace qorimg::io::detail
