#include "io/Png.h"

#include <png.h>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <csetjmp>
#include <cstdio>
#include <vector>
#include "io/IoInternal.h"

namespace qorimg::io {
namespace {

struct PngRows {
  int width, height, channels, bits;
  std::vector<unsigned char> bytes;  // top row first, samples big-endian
};

void KeepMessage(png_structp png, png_const_charp message) {
  *static_cast<std::string *>(png_get_error_ptr(png)) = message;
  png_longjmp(png, 1);
}

void IgnoreWarning(png_structp, png_const_charp) {}

// libpng reports errors by longjmp: every C++ object this function owns is made
// before setjmp, so that the jump skips no destructor. Empty on success, else
// libpng's message.
std::string Encode(std::FILE *file, const PngRows &rows) {
  std::string message;
  std::vector<png_bytep> lines(static_cast<std::size_t>(rows.height));
  const std::size_t stride = static_cast<std::size_t>(rows.width) * rows.channels * (rows.bits / 8);
  for (int y = 0; y < rows.height; ++y)
    lines[y] = const_cast<png_bytep>(rows.bytes.data()) + static_cast<std::size_t>(y) * stride;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &message, KeepMessage, IgnoreWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    return "out of memory";
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return message.empty() ? "libpng error" : message;
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, static_cast<png_uint_32>(rows.width), static_cast<png_uint_32>(rows.height), rows.bits,
               rows.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_write_image(png, lines.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return {};
}

// Interleaved samples of the image, black -> 0, white -> the largest code.
// White not above black: a step at white.
PngRows Quantize(const CLmrImage &image, int bits, double black, double white) {
  PngRows rows{image.GetWidth(), image.GetHeight(), image.GetPlanes(), bits, {}};
  const double top = bits == 16 ? 65535.0 : 255.0;
  const double scale = white > black ? top / (white - black) : 0.0;
  const int bytes = bits / 8;
  rows.bytes.resize(static_cast<std::size_t>(rows.width) * rows.height * rows.channels * bytes);
  for (int p = 0; p < rows.channels; ++p)
    for (int y = 0; y < rows.height; ++y) {
      const float *src = image.GetImageAdr(0, y, p, CImage::ReadOnly);
      unsigned char *dst =
          rows.bytes.data() + (static_cast<std::size_t>(y) * rows.width * rows.channels + p) * bytes;
      for (int x = 0; x < rows.width; ++x, dst += rows.channels * bytes) {
        const double v = src[x];
        double code = scale > 0.0 ? (v - black) * scale : (v >= white ? top : 0.0);
        code = std::isnan(code) ? 0.0 : std::clamp(std::round(code), 0.0, top);  // defined cast below
        const auto c = static_cast<unsigned>(code);
        if (bytes == 2) {
          dst[0] = static_cast<unsigned char>(c >> 8);
          dst[1] = static_cast<unsigned char>(c & 0xff);
        } else {
          dst[0] = static_cast<unsigned char>(c);
        }
      }
    }
  return rows;
}

}  // namespace

void WritePng(const std::string &path, const CLmrImage &image, int bits, double black, double white,
              bool overwrite) {
  const int planes = image.GetPlanes();
  if ((bits != 8 && bits != 16) || (planes != 1 && planes != 3) || image.IsEmpty() || image.GetWidth() < 1 ||
      image.GetHeight() < 1 || image.GetDataType() != CImage::Float32)
    throw std::invalid_argument(path + ": PNG needs 8 or 16 bits and a float image of 1 or 3 planes");
  const PngRows rows = Quantize(image, bits, black, white);
  detail::OutputFile out(path, overwrite);
  std::FILE *file = std::fopen(out.Temporary().c_str(), "wb");
  if (!file) throw IoError(IoError::WriteFailed, path, "cannot be written (" + std::string(std::strerror(errno)) + ")");
  std::string failure = Encode(file, rows);
  if (std::fclose(file) != 0 && failure.empty()) failure = std::strerror(errno);
  if (!failure.empty()) throw IoError(IoError::WriteFailed, path, "cannot be written (" + failure + ")");
  out.Commit();
}

}  // namespace qorimg::io
