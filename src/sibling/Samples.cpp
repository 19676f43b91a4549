#include "sibling/SamplesInternal.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace store_internal {
namespace {

template <typename Sample>
void ReadAs(const unsigned char *line, long long count, double *out) {
  for (long long i = 0; i < count; ++i) {
    Sample v;
    std::memcpy(&v, line + i * static_cast<long long>(sizeof(Sample)), sizeof(Sample));
    out[i] = static_cast<double>(v);
  }
}

// Nearest integer of the type; defined for every double, NaN included.
template <typename Integer>
Integer ToInteger(double v) {
  constexpr double lo = static_cast<double>(std::numeric_limits<Integer>::min());
  constexpr double hi = static_cast<double>(std::numeric_limits<Integer>::max());
  if (std::isnan(v)) return 0;
  if (v <= lo) return std::numeric_limits<Integer>::min();
  if (v >= hi) return std::numeric_limits<Integer>::max();
  return static_cast<Integer>(std::round(v));
}

template <typename Floating>
Floating ToFloating(double v) {
  constexpr double hi = static_cast<double>(std::numeric_limits<Floating>::max());
  if (v > hi) return std::numeric_limits<Floating>::infinity();
  if (v < -hi) return -std::numeric_limits<Floating>::infinity();
  return static_cast<Floating>(v);
}

template <typename Sample, Sample (*Convert)(double)>
void WriteAs(const double *values, long long count, unsigned char *line) {
  for (long long i = 0; i < count; ++i) {
    const Sample v = Convert(values[i]);
    std::memcpy(line + i * static_cast<long long>(sizeof(Sample)), &v, sizeof(Sample));
  }
}

}  // namespace

double ReadSample(const unsigned char *sample, CImage::DataType type, bool isSigned) {
  double value = 0.0;
  ReadSamples(sample, 1, type, isSigned, &value);
  return value;
}

void ReadSamples(const unsigned char *line, long long count, CImage::DataType type, bool isSigned, double *out) {
  switch (type) {
    case CImage::UInt8: ReadAs<std::uint8_t>(line, count, out); return;
    case CImage::Int16: ReadAs<std::int16_t>(line, count, out); return;
    case CImage::Int32:
      if (isSigned)
        ReadAs<std::int32_t>(line, count, out);
      else
        ReadAs<std::uint32_t>(line, count, out);
      return;
    case CImage::Float32: ReadAs<float>(line, count, out); return;
    case CImage::Float64: ReadAs<double>(line, count, out); return;
  }
  for (long long i = 0; i < count; ++i) out[i] = 0.0;
}

void WriteSamples(const double *values, long long count, CImage::DataType type, bool isSigned,
                  unsigned char *line) {
  switch (type) {
    case CImage::UInt8: WriteAs<std::uint8_t, ToInteger<std::uint8_t>>(values, count, line); return;
    case CImage::Int16: WriteAs<std::int16_t, ToInteger<std::int16_t>>(values, count, line); return;
    case CImage::Int32:
      if (isSigned)
        WriteAs<std::int32_t, ToInteger<std::int32_t>>(values, count, line);
      else
        WriteAs<std::uint32_t, ToInteger<std::uint32_t>>(values, count, line);
      return;
    case CImage::Float32: WriteAs<float, ToFloating<float>>(values, count, line); return;
    case CImage::Float64: WriteAs<double, ToFloating<double>>(values, count, line); return;
  }
}

}  // namespace store_internal
