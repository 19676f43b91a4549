#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <unistd.h>
#include "io/IoInternal.h"

namespace qorimg::io {

IoError::IoError(Kind kind, std::string path, std::string text)
    : std::runtime_error(path + ": " + text), kind_(kind), path_(std::move(path)) {}

namespace detail {

std::string CfitsioText(int status) {
  char text[FLEN_STATUS] = {};
  fits_get_errstatus(status, text);
  fits_clear_errmsg();
  return std::string("(") + text + ")";
}

namespace {

std::string SystemText(int error) { return std::string("(") + std::strerror(error) + ")"; }

// Without raising when the path cannot be examined (the write then reports it).
bool Exists(const std::string &path) {
  std::error_code ec;
  return std::filesystem::exists(path, ec);
}

}  // namespace

OutputFile::OutputFile(std::string path, bool overwrite) : path_(std::move(path)), overwrite_(overwrite) {
  if (!overwrite_ && Exists(path_)) throw IoError(IoError::Exists, path_, "exists (not overwritten)");
  // Same directory, so that the rename never crosses file systems; hidden, and
  // unique per process and call.
  static std::atomic<unsigned> counter{0};
  const std::filesystem::path target(path_);
  std::string name = ".";  // appended step by step: g++ 12 warns falsely on "." + s + ...
  name += target.filename().string();
  name += ".tmp" + std::to_string(getpid()) + "-" + std::to_string(counter++);
  temporary_ = (target.parent_path() / name).string();
}

OutputFile::~OutputFile() {
  if (!committed_) std::remove(temporary_.c_str());
}

void OutputFile::Commit() {
  if (overwrite_) {
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0)
      throw IoError(IoError::WriteFailed, path_, "cannot be written " + SystemText(errno));
  } else if (link(temporary_.c_str(), path_.c_str()) == 0) {
    // A hard link never replaces a file that appeared meanwhile.
    std::remove(temporary_.c_str());
  } else if (errno == EEXIST) {
    throw IoError(IoError::Exists, path_, "exists (not overwritten)");
  } else {
    // File systems without hard links: checked, then renamed.
    if (Exists(path_)) throw IoError(IoError::Exists, path_, "exists (not overwritten)");
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0)
      throw IoError(IoError::WriteFailed, path_, "cannot be written " + SystemText(errno));
  }
  committed_ = true;
}

}  // namespace detail
}  // namespace qorimg::io
