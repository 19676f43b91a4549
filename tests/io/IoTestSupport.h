// Scratch directories and frames written by cfitsio directly, in stored row
// order, so that the reader is checked against files it did not write.
#pragma once
#include <fitsio.h>
#include <unistd.h>
#include <filesystem>
#include <functional>
#include <string>
#include <gtest/gtest.h>
#include "io/Fits.h"

namespace qorimg::test {

// A directory of its own per test and process, removed at the end.
class ScratchDir {
public:
  ScratchDir() {
    const auto *info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "." + info->name();
    for (char &c : name)
      if (c == '/') c = '_';
    path_ = std::filesystem::temp_directory_path() / ("qorimg-io-" + std::to_string(getpid()) + "-" + name);
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~ScratchDir() { std::filesystem::remove_all(path_); }
  std::string operator/(const std::string &file) const { return (path_ / file).string(); }
  // The names in the directory, sorted.
  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(path_)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

private:
  std::filesystem::path path_;
};

struct RawFrame {
  int bitpix = FLOAT_IMG;  // cfitsio's image type (USHORT_IMG for BZERO 32768)
  int width = 0, height = 0, planes = 1;
  io::FitsHeader cards;     // written as they stand
};

// Sample (x, stored row, plane) of the frame; rows in the order they are stored.
using StoredPixel = std::function<double(int x, int row, int plane)>;

inline void WriteRaw(const std::string &path, const RawFrame &frame, const StoredPixel &pixel) {
  fitsfile *f = nullptr;
  int status = 0;
  long axes[3] = {frame.width, frame.height, frame.planes};
  fits_create_diskfile(&f, path.c_str(), &status);
  fits_create_img(f, frame.bitpix, frame.planes == 1 ? 2 : 3, axes, &status);
  for (const std::string &card : frame.cards.Records()) fits_write_record(f, card.c_str(), &status);
  std::vector<double> samples;
  for (int p = 0; p < frame.planes; ++p)
    for (int row = 0; row < frame.height; ++row)
      for (int x = 0; x < frame.width; ++x) samples.push_back(pixel(x, row, p));
  long first[3] = {1, 1, 1};
  fits_write_pix(f, TDOUBLE, first, static_cast<LONGLONG>(samples.size()), samples.data(), &status);
  fits_close_file(f, &status);
  ASSERT_EQ(status, 0) << "cfitsio could not write " << path;
}

}  // namespace qorimg::test
