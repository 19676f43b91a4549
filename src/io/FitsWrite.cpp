#include <algorithm>
#include <cmath>
#include <vector>
#include "io/IoInternal.h"

namespace qorimg::io {
namespace {

// A cfitsio failure while writing, named by the final path.
struct WriteError {
  int status;
};

void Check(int status) {
  if (status) throw WriteError{status};
}

// Unsigned 16-bit code of a sample: rounded half up, clipped, NaN as 0 (the
// float-to-integer conversion is done here so that it is defined for every
// input).
unsigned short ToUInt16(float v) {
  if (!(v > 0.0f)) return 0;
  if (v >= 65535.0f) return 65535;
  return static_cast<unsigned short>(v + 0.5f);
}

void WriteHeader(fitsfile *f, const FitsHeader &header) {
  int status = 0;
  // cfitsio's two COMMENT cards about the FITS definition: left out, or they
  // would pile up as frames pass through several steps.
  while (fits_delete_key(f, "COMMENT", &status) == 0) {
  }
  status = 0;
  fits_clear_errmsg();
  for (const std::string &card : header.Records())
    if (detail::Travels(card)) Check(fits_write_record(f, card.c_str(), &status));
  Check(fits_write_date(f, &status));
}

void WriteData(fitsfile *f, const CLmrImage &image, SampleFormat format) {
  const int w = image.GetWidth(), h = image.GetHeight();
  std::vector<float> line(static_cast<std::size_t>(w));
  std::vector<unsigned short> codes(format == SampleFormat::UInt16 ? line.size() : 0);
  int status = 0;
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < h; ++y) {
      // Stored bottom-up: engine row y is file row h - y.
      const float *src = image.GetImageAdr(0, y, p, CImage::ReadOnly);
      long first[3] = {1, h - y, p + 1};
      if (format == SampleFormat::UInt16) {
        std::transform(src, src + w, codes.begin(), ToUInt16);
        Check(fits_write_pix(f, TUSHORT, first, w, codes.data(), &status));
      } else {
        std::copy(src, src + w, line.begin());  // cfitsio may swap bytes in the array it is given
        Check(fits_write_pix(f, TFLOAT, first, w, line.data(), &status));
      }
    }
}

}  // namespace

void WriteFits(const std::string &path, const CLmrImage &image, const FitsHeader &header,
               const WriteOptions &options) {
  const int planes = image.GetPlanes();
  if (image.IsEmpty() || planes < 1 || planes > 3 || image.GetWidth() < 1 || image.GetHeight() < 1 ||
      image.GetDataType() != CImage::Float32)
    throw std::invalid_argument(path + ": only float images of 1 to 3 planes and some pixels are written");
  detail::OutputFile out(path, options.overwrite);
  fitsfile *f = nullptr;
  int status = 0;
  try {
    Check(fits_create_diskfile(&f, out.Temporary().c_str(), &status));
    long axes[3] = {image.GetWidth(), image.GetHeight(), planes};
    Check(fits_create_img(f, options.format == SampleFormat::UInt16 ? USHORT_IMG : FLOAT_IMG, planes == 1 ? 2 : 3,
                          axes, &status));
    WriteHeader(f, header);
    WriteData(f, image, options.format);
    Check(fits_write_chksum(f, &status));
    Check(fits_close_file(f, &status));
    f = nullptr;
  } catch (const WriteError &e) {
    int ignored = 0;
    if (f) fits_close_file(f, &ignored);
    throw IoError(IoError::WriteFailed, path, "cannot be written " + detail::CfitsioText(e.status));
  }
  out.Commit();
}

}  // namespace qorimg::io
