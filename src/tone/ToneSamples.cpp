// Sample readers and line reductions of the level and tone operators.
#include "tone/ToneInternal.h"

namespace qorimg::tone {

SampleReader::SampleReader(const CLmrImage &image, SampleKind kind, int plane)
    : image_(image), kind_(kind), plane_(plane) {
  if (!image.IsColor() && kind != SampleKind::Nothing) {
    kind_ = SampleKind::Plane;
    plane_ = 0;
  }
  if (kind_ == SampleKind::Bright256 || kind_ == SampleKind::LevelBright) {
    for (int p = 0; p < 3; ++p) {
      lo_[p] = static_cast<float>(image.GetLevelMin(p));
      scale_[p] = static_cast<float>(255.0 / image.GetLevelRange(p));
    }
    levelMin0_ = image.GetLevelMin(0);
    levelRange0_ = image.GetLevelRange(0);
  }
}

const float *SampleReader::Line(int y, int left, int right) const {
  if (kind_ == SampleKind::Nothing) return nullptr;
  if (kind_ == SampleKind::Plane) return image_.GetImageAdr(left, y, plane_, CImage::ReadOnly);
  thread_local std::vector<float> scratch;
  const int count = right - left;
  if (scratch.size() < static_cast<std::size_t>(count)) scratch.resize(static_cast<std::size_t>(count));
  const float *r = image_.GetImageAdr(left, y, 0, CImage::ReadOnly);
  const float *g = image_.GetImageAdr(left, y, 1, CImage::ReadOnly);
  const float *b = image_.GetImageAdr(left, y, 2, CImage::ReadOnly);
  float *out = scratch.data();
  switch (kind_) {
    case SampleKind::RawBright:
      for (int x = 0; x < count; ++x)
        out[x] = static_cast<float>(static_cast<double>(r[x]) * 0.299 + static_cast<double>(g[x]) * 0.587 +
                                    static_cast<double>(b[x]) * 0.114);
      break;
    default: {
      const bool level = kind_ == SampleKind::LevelBright;
      for (int x = 0; x < count; ++x) {
        // The mapping and mix of GetPixelBright256f, and of GetPixelBrightRaw.
        const float rf = (r[x] - lo_[0]) * scale_[0];
        const float gf = (g[x] - lo_[1]) * scale_[1];
        const float bf = (b[x] - lo_[2]) * scale_[2];
        const float bright = static_cast<float>(gf * 0.587 + rf * 0.299 + bf * 0.114);
        out[x] = level ? static_cast<float>(bright / 255.0 * levelRange0_ + levelMin0_) : bright;
      }
    }
  }
  return out;
}

int PlaneFor(const CLmrImage &image, int nPlane) { return image.IsColor() ? nPlane : 0; }

SampleKind KindFor(const CLmrImage &image, bool brightness, SampleKind brightKind, int nPlane) {
  if (!image.IsColor()) return SampleKind::Plane;
  if (brightness) return image.GetPlanes() >= 3 ? brightKind : SampleKind::Nothing;
  return nPlane >= 0 && nPlane < image.GetPlanes() ? SampleKind::Plane : SampleKind::Nothing;
}

namespace {
// The sum of term(s[x]) over a line in four running sums, so that the
// additions of neighbouring samples overlap in the processor.
template <class Term>
double LineSum(const float *s, int n, Term term) {
  double a0 = 0.0, a1 = 0.0, a2 = 0.0, a3 = 0.0;
  int x = 0;
  for (; x + 4 <= n; x += 4) {
    a0 += term(s[x]);
    a1 += term(s[x + 1]);
    a2 += term(s[x + 2]);
    a3 += term(s[x + 3]);
  }
  for (; x < n; ++x) a0 += term(s[x]);
  return (a0 + a1) + (a2 + a3);
}
}  // namespace

double SumOfSamples(const SampleReader &reader, const LineRect &r) {
  return ReduceLines(
      reader, r, 0.0,
      [](const float *s, int n, double &acc) { acc += LineSum(s, n, [](float v) { return static_cast<double>(v); }); },
      [](double &total, double line) { total += line; });
}

double SumOfSquaredDeviations(const SampleReader &reader, const LineRect &r, double centre) {
  return ReduceLines(
      reader, r, 0.0,
      [centre](const float *s, int n, double &acc) {
        acc += LineSum(s, n, [centre](float v) {
          const double d = v - centre;
          return d * d;
        });
      },
      [](double &total, double line) { total += line; });
}

MinMax MinMaxOfSamples(const SampleReader &reader, const LineRect &r) {
  return ReduceLines(
      reader, r, MinMax{},
      [](const float *s, int n, MinMax &acc) {
        for (int x = 0; x < n; ++x) {
          if (s[x] < acc.min) acc.min = s[x];
          if (s[x] > acc.max) acc.max = s[x];
        }
      },
      [](MinMax &total, const MinMax &line) {
        if (line.min < total.min) total.min = line.min;
        if (line.max > total.max) total.max = line.max;
      });
}

}  // namespace qorimg::tone
