// CImgAutoLevel: levels from the histogram mode, from mean or median and
// deviation, from shares of the pixels, and the reverse readings. The medians
// are in AutoLevelMedian.cpp.
#include "tone/ImgAutoLevel.h"

#include <algorithm>
#include <cmath>
#include <vector>
#include "core/PlaneBinding.h"
#include "kernels/Buffers.h"
#include "kernels/Runtime.h"
#include "kernels/Tone.h"
#include "tone/ToneInternal.h"

using qorimg::LineRect;
using qorimg::tone::SampleKind;
using qorimg::tone::SampleReader;

namespace {

constexpr int kNormalBins = 5000;

LineRect Clip(CImgAutoLevel &image, CRect *rect) {
  const LineRect r = qorimg::ClipRect(image, rect);
  qorimg::CheckBoundImages({{&image, 1}}, r);
  return r;
}

struct MeanSigma {
  double mean, sigma;
};

// Population mean and deviation about `centre` (the mean itself when not
// given), in two passes, over the 32-bit pixel count of the rectangle.
MeanSigma Deviation(const SampleReader &reader, const LineRect &r, const double *centre) {
  const int count = qorimg::tone::PixelCount(r);
  const double mean = centre ? *centre : qorimg::tone::SumOfSamples(reader, r) / count;
  const double squares = qorimg::tone::SumOfSquaredDeviations(reader, r, mean);
  return {mean, std::sqrt(squares / count)};
}

// The value that DoByMean and GetByMean measure: plane 0 of a mono image, the
// level brightness of a colour one.
SampleKind TiedKind(const CLmrImage &image) {
  return image.IsColor() ? SampleKind::LevelBright : SampleKind::Plane;
}

// The bin range of a raw brightness histogram: smallest and largest raw
// brightness in the rectangle, by the pipeline on whole-plane colour images.
qorimg::tone::MinMax RawBrightnessRange(const CLmrImage &image, const LineRect &r) {
  if (image.IsColor() && image.GetPlanes() >= 3 && qorimg::IsWholePlane(image) && !r.IsEmpty()) {
    float lo = 0, hi = 0;
    auto min = qorimg::kernels::KernelBuffer<float, 0>::make_scalar(&lo);
    auto max = qorimg::kernels::KernelBuffer<float, 0>::make_scalar(&hi);
    qorimg::kernels::CheckPipeline(getminmax_brightness_float(
        qorimg::InputPlane(image, 0), qorimg::InputPlane(image, 1), qorimg::InputPlane(image, 2), r.left, r.top,
        r.Width(), r.Height(), min, max));
    return {lo, hi};
  }
  return qorimg::tone::MinMaxOfSamples(
      SampleReader(image, qorimg::tone::KindFor(image, true, SampleKind::RawBright, 0)), r);
}

// The raw range of a plane over the whole image; NaN for a plane it lacks.
void PlaneRange(const CLmrImage &image, int plane, double &lo, double &hi) {
  if (plane < 0 || plane >= image.GetPlanes()) {
    lo = hi = NAN;
    return;
  }
  image.GetMinMax(plane, &lo, &hi);
}

// The brightness range of the tied colour DoByNormal and GetByNormal: brightness
// 256 over the rectangle, brought to plane 0's scale once after the merge.
void LevelBrightnessRange(const CLmrImage &image, const LineRect &r, double &lo, double &hi) {
  const qorimg::tone::MinMax range = qorimg::tone::MinMaxOfSamples(SampleReader(image, SampleKind::Bright256), r);
  lo = range.min / 255.0 * image.GetLevelRange(0) + image.GetLevelMin(0);
  hi = range.max / 255.0 * image.GetLevelRange(0) + image.GetLevelMin(0);
}

// Walks of DoByNormal: the level at which the running sum of (count + 1)
// first exceeds truncate(T * share) from below, or truncate((1 - share) * T)
// from above; outside (0, 1) the share is of the value range.
double NormalLowOffset(const std::vector<int> &hist, double total, double range, double share) {
  if (!(share > 0.0 && share < 1.0)) return range * share;
  const long long limit = qorimg::tone::TruncateOrMin(total * share);
  long long sum = 0;
  int i = 0;
  for (; i < kNormalBins; ++i) {
    sum += hist[static_cast<std::size_t>(i)] + 1LL;
    if (sum > limit) break;
  }
  return i * range / kNormalBins;
}

double NormalHighOffset(const std::vector<int> &hist, double total, double range, double share) {
  if (!(share > 0.0 && share < 1.0)) return range * share;
  const long long limit = qorimg::tone::TruncateOrMin((1.0 - share) * total);
  long long sum = 0;
  int i = kNormalBins - 1;
  for (; i >= 0; --i) {
    sum += hist[static_cast<std::size_t>(i)] + 1LL;
    if (sum > limit) break;
  }
  return (i + 1) * range / kNormalBins;
}

}  // namespace

CImgAutoLevel::CImgAutoLevel() = default;
CImgAutoLevel::CImgAutoLevel(const CImgAutoLevel &source) = default;
CImgAutoLevel::~CImgAutoLevel() = default;

// ---- Counts and deviations within a range ----

void CImgAutoLevel::GetLevelRangeNum(float fMin, float fMax, int *pCount, int nPlane, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  const SampleReader reader(*this, qorimg::tone::KindFor(*this, false, SampleKind::Plane, nPlane),
                            qorimg::tone::PlaneFor(*this, nPlane));
  const double lo = fMin, hi = fMax;
  const long long count = qorimg::tone::ReduceLines(
      reader, r, 0LL,
      [lo, hi](const float *s, int n, long long &acc) {
        for (int x = 0; x < n; ++x)
          if (lo <= s[x] && s[x] <= hi) ++acc;
      },
      [](long long &total, long long line) { total += line; });
  if (pCount) *pCount = static_cast<int>(count);
}

namespace {
// Sum, sum of squares about `about` and count of the samples within [lo, hi].
struct RangeMoments {
  double sum = 0.0, squares = 0.0;
  long long count = 0;
};

RangeMoments MomentsInRange(const SampleReader &reader, const LineRect &r, double lo, double hi, double about) {
  return qorimg::tone::ReduceLines(
      reader, r, RangeMoments{},
      [=](const float *s, int n, RangeMoments &acc) {
        for (int x = 0; x < n; ++x)
          if (lo <= s[x] && s[x] <= hi) {
            const double d = s[x] - about;
            acc.sum += s[x];
            acc.squares += d * d;
            ++acc.count;
          }
      },
      [](RangeMoments &total, const RangeMoments &line) {
        total.sum += line.sum;
        total.squares += line.squares;
        total.count += line.count;
      });
}
}  // namespace

void CImgAutoLevel::GetLevelRangeStd(float fMin, float fMax, double *pStd, int nPlane, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  const SampleReader reader(*this, qorimg::tone::KindFor(*this, false, SampleKind::Plane, nPlane),
                            qorimg::tone::PlaneFor(*this, nPlane));
  const RangeMoments first = MomentsInRange(reader, r, fMin, fMax, 0.0);
  double result = 0.0;
  if (first.count > 0) {
    const double mean = first.sum / static_cast<double>(first.count);
    const RangeMoments second = MomentsInRange(reader, r, fMin, fMax, mean);
    result = std::sqrt(second.squares / static_cast<double>(second.count));
  }
  if (pStd) *pStd = result;
}

void CImgAutoLevel::GetLevelDoubleRangeStd(float fMin, float fMax, double *pStd, int bBrightness, int nPlane,
                                           CRect *rect) {
  const LineRect r = Clip(*this, rect);
  const SampleReader reader(*this, qorimg::tone::KindFor(*this, bBrightness != 0, SampleKind::RawBright, nPlane),
                            qorimg::tone::PlaneFor(*this, nPlane));
  const RangeMoments m = MomentsInRange(reader, r, fMin, fMax, fMax);
  if (pStd) *pStd = m.count > 0 ? std::sqrt(m.squares / static_cast<double>(m.count)) : 0.0;
}

// ---- The histogram mode ----

void CImgAutoLevel::GetMode(float *pMode, float *pLow, float *pHigh, int bBrightness, int nPlane, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  const bool brightness = bBrightness != 0;
  const int bins = GetOrgBitsPixel() == 8 || GetOrgBitsPixel() == 24 ? 256 : kNormalBins;
  const int plane = qorimg::tone::PlaneFor(*this, nPlane);
  const bool reads =
      qorimg::tone::KindFor(*this, brightness, SampleKind::RawBright, nPlane) != SampleKind::Nothing;
  std::vector<int> hist(static_cast<std::size_t>(bins), 0);
  double lo = NAN, hi = NAN;
  if (brightness) {
    const qorimg::tone::MinMax range = RawBrightnessRange(*this, r);
    lo = range.min;
    hi = range.max;
    if (reads) GetHistogram(hist.data(), bins, lo, hi, -1, 0, 0, 0, rect, 1, 6168);
  } else if (reads) {
    PlaneRange(*this, plane, lo, hi);
    GetHistogram(hist.data(), bins, lo, hi, plane, 0, 0, 0, rect, 0, 0);
  }
  // The lowest bin with the largest count; an all-zero histogram gives bin 0.
  int peak = 0;
  for (int i = 1; i < bins; ++i)
    if (hist[static_cast<std::size_t>(i)] > hist[static_cast<std::size_t>(peak)]) peak = i;
  const double width = (hi - lo) / bins;
  const float mode = static_cast<float>(peak * width + lo);
  if (pMode) *pMode = mode;
  if (pLow) {
    double s = 0.0;
    GetLevelDoubleRangeStd(0.0f, mode, &s, bBrightness, nPlane, rect);
    *pLow = static_cast<float>(mode - 6.0 * s);
  }
  if (pHigh) {
    const int pixels = qorimg::tone::PixelCount(r);
    const int threshold = pixels >= 1000000 ? pixels / 100000 : 10;
    int stop = bins, run = 0;
    for (int i = peak; i < bins; ++i) {
      run = hist[static_cast<std::size_t>(i)] < threshold ? run + 1 : 0;
      if (run > 10) {
        stop = i;
        break;
      }
    }
    *pHigh = static_cast<float>((stop - peak) * width + mode);
  }
}

// ---- Setting levels ----

void CImgAutoLevel::DoByHistogram(double fLow, double fHigh, int bPerPlane, int nBalance, CRect *rect) {
  if (nBalance < 0 || nBalance > 2) return;
  Clip(*this, rect);
  const float low = static_cast<float>(fLow);
  const float S = low / (static_cast<float>(fHigh) + low) * 255.0f;
  // Levels as they were at the call's start: nBalance 2 lines the planes up on
  // plane 0's peak by these, also after plane 0 has moved.
  const std::vector<double> levelMin = GetLevelMin(), levelMax = GetLevelMax();

  if (IsColor() && !bPerPlane) {
    float mB = 0, lowB = 0, m[3] = {0, 0, 0};
    GetMode(&mB, &lowB, nullptr, 1, 0, rect);
    const float B = static_cast<float>(mB - (static_cast<double>(mB) - lowB) * fLow);
    for (int c = 0; c < 3; ++c) {
      float ignoredLow = 0, ignoredHigh = 0;
      GetMode(&m[c], &ignoredLow, &ignoredHigh, 0, c, rect);
    }
    for (int c = 0; c < 3; ++c) {
      const float delta = m[0] - m[c];
      float lo = 0, hi = 0;
      switch (nBalance) {
        case 0:
          lo = B - delta;
          hi = (m[c] - lo) / S * 255.0f + lo - delta;
          break;
        case 1:
          lo = B;
          hi = (m[c] - B) / S * 255.0f + B;
          break;
        default:
          lo = static_cast<float>(levelMin[0]) - delta;
          hi = static_cast<float>(levelMax[0]) - delta;
      }
      SetLevel(c, lo, hi);
    }
    return;
  }

  const int planes = IsColor() ? GetPlanes() : 1;
  std::vector<float> m(static_cast<std::size_t>(planes)), lowOf(static_cast<std::size_t>(planes));
  int nl0 = 0, nh0 = 0;
  for (int c = 0; c < planes; ++c) {
    GetMode(&m[c], &lowOf[c], nullptr, 0, c, rect);
    double a = 1.0, b = 1.0;
    if (nBalance == 0 || nBalance == 2) {
      int nl = 0, nh = 0;
      GetLevelRangeNum(0.0f, m[c], &nl, c, rect);
      double lo = 0, maximum = 0;
      PlaneRange(*this, c, lo, maximum);
      GetLevelRangeNum(m[c], static_cast<float>(maximum), &nh, c, rect);
      if (c == 0) {
        nl0 = nl;
        nh0 = nh;
      }
      a = static_cast<double>(nl) / nl0;
      b = (static_cast<double>(nh) / nh0) / a;
    }
    float lo = 0, hi = 0;
    if (nBalance == 2) {
      const double delta = static_cast<double>(m[0]) - m[c];
      lo = static_cast<float>(levelMin[c] - delta - (m[0] - levelMin[0]) * a * b);
      hi = static_cast<float>(levelMax[c] - delta + (levelMax[0] - m[0]) * a * b);
    } else {
      const double W = nBalance == 0 ? (static_cast<double>(m[0]) - lowOf[0]) * a * b
                                     : static_cast<double>(m[c] - lowOf[c]);
      lo = static_cast<float>(m[c] - W * fLow);
      hi = (m[c] - lo) / S * 255.0f + lo;
    }
    SetLevel(c, lo, hi);
  }
}

void CImgAutoLevel::DoByMean(double fLow, double fHigh, int bPerPlane, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  if (IsColor() && bPerPlane) {
    for (int c = 0; c < GetPlanes(); ++c) {
      const MeanSigma ms = Deviation(SampleReader(*this, SampleKind::Plane, c), r, nullptr);
      SetLevel(c, ms.mean - ms.sigma * fLow, ms.sigma * fHigh + ms.mean);
    }
    return;
  }
  const MeanSigma ms = Deviation(SampleReader(*this, TiedKind(*this)), r, nullptr);
  SetLevel(-1, ms.mean - ms.sigma * fLow, ms.sigma * fHigh + ms.mean);
}

void CImgAutoLevel::DoByMedian(double fLow, double fHigh, int bPerPlane, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  if (IsColor() && bPerPlane) {
    for (int c = 0; c < GetPlanes(); ++c) {
      float median = 0;
      GetMedian(&median, 1, 0, c, rect);
      const double m = median;
      const MeanSigma ms = Deviation(SampleReader(*this, SampleKind::Plane, c), r, &m);
      SetLevel(c, m - ms.sigma * fLow, ms.sigma * fHigh + m);
    }
    return;
  }
  // The tied colour case takes the median of raw brightness and the deviations
  // of level brightness about it.
  float median = 0;
  GetMedian(&median, 1, IsColor() ? 1 : 0, 0, rect);
  const double m = median;
  const MeanSigma ms = Deviation(SampleReader(*this, TiedKind(*this)), r, &m);
  SetLevel(-1, m - ms.sigma * fLow, ms.sigma * fHigh + m);
}

void CImgAutoLevel::DoByNormal(double fLow, double fHigh, int bPerPlane, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  const double total = static_cast<double>(qorimg::tone::PixelCount(r)) + kNormalBins;
  std::vector<int> hist(kNormalBins);
  auto apply = [&](int plane, double lo, double hi, int bProgress, int id) {
    std::fill(hist.begin(), hist.end(), 0);
    GetHistogram(hist.data(), kNormalBins, lo, hi, plane, 0, 0, 0, rect, bProgress, id);
    const double range = hi - lo;
    SetLevel(plane, lo + NormalLowOffset(hist, total, range, fLow), lo + NormalHighOffset(hist, total, range, fHigh));
  };
  if (IsColor() && !bPerPlane) {
    double lo = 0, hi = 0;
    LevelBrightnessRange(*this, r, lo, hi);
    apply(-1, lo, hi, 1, 6168);
    return;
  }
  for (int c = 0; c < (IsColor() ? GetPlanes() : 1); ++c) {
    double lo = 0, hi = 0;
    PlaneRange(*this, c, lo, hi);
    apply(c, lo, hi, 0, 0);
  }
}

// ---- Reading levels back ----

void CImgAutoLevel::Get(double &fLow, double &fHigh, int nMethod, CRect *rect) {
  switch (nMethod) {
    case 1: GetByMean(fLow, fHigh, rect); break;
    case 2: GetByMedian(fLow, fHigh, rect); break;
    default: GetByNormal(fLow, fHigh, rect);
  }
}

void CImgAutoLevel::GetByMean(double &fLow, double &fHigh, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  const MeanSigma ms = Deviation(SampleReader(*this, TiedKind(*this)), r, nullptr);
  fLow = (ms.mean - GetLevelMin(0)) / ms.sigma;
  fHigh = (GetLevelMax(0) - ms.mean) / ms.sigma;
}

void CImgAutoLevel::GetByMedian(double &fLow, double &fHigh, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  float median = 0;
  GetMedian(&median, 1, IsColor() ? 1 : 0, 0, rect);
  const double m = median;
  const MeanSigma ms = Deviation(SampleReader(*this, TiedKind(*this)), r, &m);
  fLow = (m - GetLevelMin(0)) / ms.sigma;
  fHigh = (GetLevelMax(0) - m) / ms.sigma;
}

void CImgAutoLevel::GetByNormal(double &fLow, double &fHigh, CRect *rect) {
  const LineRect r = Clip(*this, rect);
  double lo = 0, hi = 0;
  if (IsColor()) {
    LevelBrightnessRange(*this, r, lo, hi);
  } else {
    const qorimg::tone::MinMax range = qorimg::tone::MinMaxOfSamples(SampleReader(*this, SampleKind::Plane), r);
    lo = range.min;
    hi = range.max;
  }
  std::vector<int> hist(kNormalBins, 0);
  GetHistogram(hist.data(), kNormalBins, lo, hi, -1, 0, 0, 0, rect, 0, 0);
  const double range = hi - lo, total = static_cast<double>(qorimg::tone::PixelCount(r)) + kNormalBins;
  const double levelMin = GetLevelMin(0), levelMax = GetLevelMax(0);
  fLow = 0.0;
  fHigh = 1.0;
  if (!(lo < levelMin && levelMin < hi)) {
    fLow = (levelMin - lo) / range;
  } else {
    long long sum = 0;
    for (int i = 0; i < kNormalBins; ++i) {
      const long long before = sum;
      sum += hist[static_cast<std::size_t>(i)] + 1LL;
      if (static_cast<double>(i) / kNormalBins * range + lo > levelMin) {
        fLow = static_cast<double>(before + sum) * 0.5 / total;
        break;
      }
    }
  }
  if (!(lo < levelMax && levelMax < hi)) {
    fHigh = (levelMax - lo) / range;
  } else {
    long long sum = 0;
    for (int i = kNormalBins - 1; i >= 1; --i) {
      const long long before = sum;
      sum += hist[static_cast<std::size_t>(i)] + 1LL;
      if (levelMax > static_cast<double>(i) / kNormalBins * range + lo) {
        fHigh = 1.0 - static_cast<double>(before + sum) * 0.5 / total;
        break;
      }
    }
  }
}
