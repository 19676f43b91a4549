// CImgComposit: the pair composite through the composit_* pipelines or a row
// loop over CInterp, the earlier release's composite with its own bilinear row
// fetchers, and the neighbour composite of mode 9.
#include "composite/ImgComposit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <numbers>
#include <optional>
#include <vector>
#include "composite/CompositeInternal.h"
#include "core/OperatorRunner.h"
#include "core/PixelMath.h"
#include "geometry/GeometryInternal.h"
#include "geometry/Interp.h"
#include "kernels/Runtime.h"
#include "platform/Exceptions.h"

namespace {

using qorimg::LineRect;
using qorimg::composite::Kind;
using qorimg::composite::KindOf;
using qorimg::composite::ModeWord;
using qorimg::composite::PlaneAccess;
using qorimg::geometry::SourceOf;

constexpr int kDefaultMessage = 6107;
// Rows between releases of CInterp's line table on the row loop, so that a
// block store keeps only the lines of B that a band reads.
constexpr int kBandRows = 32;

double Radians(double degrees) { return degrees * std::numbers::pi / 180.0; }

int MessageOf(int nMessage) { return nMessage == -1 ? kDefaultMessage : nMessage; }

// The arithmetic of modes 0 to 8; any other mode gives a. With `level` a and b
// are on the 0..255 scale.
struct Arithmetic {
  int mode;
  bool level;
  bool cutMinus;
  double weight;

  float operator()(float a, float b) const {
    switch (mode) {
      case 0: return (a + b) * 0.5f;
      case 1: return a + b;
      case 2: return static_cast<float>(a * (1.0 - weight) + b * weight);
      case 3: {
        const float d = a - b;
        // NaN and -0 give +0, as the pipeline's cut does.
        return cutMinus ? (d > 0.0f ? d : 0.0f) : d;
      }
      case 4: return level ? a * (std::clamp(b, 0.0f, 255.0f) / 255.0f) : a * b;
      case 5: return level ? a / (std::clamp(b, 0.001f, 255.0f) / 255.0f) : b == 0.0f ? a : a / b;
      case 6: return std::fabs(a - b);
      case 7: return std::max(a, b);
      case 8: return std::min(a, b);
      default: return a;
    }
  }
};

// The mode's formula along a row, the mode chosen once for the row.
void ComposeRow(const Arithmetic &arithmetic, const float *a, const float *b, float *d, int count, float minA,
                float scaleA, float inverseA) {
  auto run = [&](auto formula) {
    if (!arithmetic.level) {
      for (int i = 0; i < count; ++i) d[i] = formula(a[i], b[i]);
      return;
    }
    for (int i = 0; i < count; ++i) d[i] = formula((a[i] - minA) * scaleA, b[i]) * inverseA + minA;
  };
  switch (arithmetic.mode) {
    case 0: return run([](float x, float y) { return (x + y) * 0.5f; });
    case 1: return run([](float x, float y) { return x + y; });
    case 6: return run([](float x, float y) { return std::fabs(x - y); });
    case 7: return run([](float x, float y) { return std::max(x, y); });
    case 8: return run([](float x, float y) { return std::min(x, y); });
    default: return run(arithmetic);
  }
}

// A's levels as the row loops use them, for planes 0 .. planes - 1.
struct LevelsOfA {
  float min[3] = {0, 0, 0}, scale[3] = {1, 1, 1}, inverse[3] = {1, 1, 1};
  LevelsOfA(const CLmrImage &a, int planes) {
    for (int p = 0; p < planes; ++p) {
      min[p] = static_cast<float>(a.GetLevelMin(p));
      scale[p] = static_cast<float>(255.0 / a.GetLevelRange(p));
      inverse[p] = static_cast<float>(1.0 / scale[p]);
    }
  }
};

// What every entry checks before anything is written or progress opened: a
// non-finite move does nothing; A and B must be float images, D and A must
// cover the clipped rectangle with A's planes (three for a colour A). Empty
// when there is nothing to do.
std::optional<LineRect> Admit(CLmrImage &d, CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation,
                              const CRect *rect) {
  if (!std::isfinite(dx) || !std::isfinite(dy) || !std::isfinite(rotation)) return std::nullopt;
  qorimg::CheckBoundImages({{pA, 1}, {pB, 1}}, LineRect{});
  const int planes = pA->IsColor() ? 3 : 1;
  const LineRect clipped = qorimg::ClipRect(d, rect);
  qorimg::CheckBoundImages({{&d, planes}, {pA, planes}}, clipped);
  if (clipped.IsEmpty()) return std::nullopt;
  return clipped;
}

// The word of the pipeline for a mode: sub_cutminus for mode 3 with the cut,
// default for any mode but 0 to 8.
ModeWord WordOf(int mode, bool cutMinus) {
  switch (mode) {
    case 0: return qorimg::composite::Average;
    case 1: return qorimg::composite::Add;
    case 2: return qorimg::composite::Weight;
    case 3: return cutMinus ? qorimg::composite::SubCutMinus : qorimg::composite::Sub;
    case 4: return qorimg::composite::Mult;
    case 5: return qorimg::composite::Div;
    case 6: return qorimg::composite::Diff;
    case 7: return qorimg::composite::Brighter;
    case 8: return qorimg::composite::Darker;
    default: return qorimg::composite::Default;
  }
}

// A partial rectangle widened to at least 64 x 32, within the image.
LineRect Widened(LineRect r, int width, int height) {
  auto widen = [](int &lo, int &hi, int least, int size) {
    if (hi - lo >= least) return;
    hi = std::min(lo + least, size);
    if (hi - lo < least) lo = std::max(hi - least, 0);
  };
  widen(r.left, r.right, 64, width);
  widen(r.top, r.bottom, 32, height);
  return r;
}

bool BlockOnMemory(const CLmrImage &image, int plane) {
  CVmImage *store = image.GetVmImage();
  const long long lines = image.GetLinesPerBlock();
  if (!store || lines <= 0) return false;
  const long long block = static_cast<long long>(plane) * image.GetHeight() / lines;
  return store->GetBlockOnMemory(block, true) != nullptr;
}

// Everything the current composite needs once the arguments are checked.
struct Request {
  LineRect rect;
  Kind kind;
  double dx, dy, c, s;
  float outside;
  Arithmetic arithmetic;
  int nInterp;
  int bUseStdPtCtr;
};

// The kernel route: the pipeline into a clone of A, which then takes D's
// place. False, with D untouched, when a block is not on memory or memory runs
// out; the row loop then runs from the start.
bool KernelComposite(CLmrImage &d, CLmrImage &a, CLmrImage &b, const Request &q) {
  std::unique_ptr<CLmrImage> r;
  try {
    r = a.CloneWithoutImage();
  } catch (const std::bad_alloc &) {
    return false;
  } catch (const lumora::CVmMemoryAllocationError &) {
    return false;
  }
  if (!r) return false;
  const qorimg::composite::ArgvPipeline pipeline =
      qorimg::composite::CompositPipeline(q.kind, q.arithmetic.level, WordOf(q.arithmetic.mode, q.arithmetic.cutMinus));
  const LineRect wide = q.rect.IsWhole(a) ? q.rect : Widened(q.rect, a.GetWidth(), a.GetHeight());
  const bool wordIsWeight = WordOf(q.arithmetic.mode, false) == qorimg::composite::Weight;
  // x - dx stays inside int32 for any image narrower than 2^30.
  const auto intShift = [](double v) { return static_cast<std::int32_t>(std::clamp(v, -1073741824.0, 1073741824.0)); };
  std::int32_t dxInt = intShift(q.dx), dyInt = intShift(q.dy);
  float dxF = static_cast<float>(q.dx), dyF = static_cast<float>(q.dy);
  const CfPoint centre = q.bUseStdPtCtr ? b.GetStdCtr() : CfPoint(b.GetWidth() * 0.5, b.GetHeight() * 0.5);
  float cx = static_cast<float>(centre.fx), cy = static_cast<float>(centre.fy);
  float c = static_cast<float>(q.c), s = static_cast<float>(q.s);
  float outside = q.outside;
  double weight = q.arithmetic.weight;

  bool yielded = true;
  qorimg::RouteTable routes;
  routes.pipelineCall = [&](int p) {
    const int pb = std::min(p, b.GetPlanes() - 1);
    if (!yielded || !BlockOnMemory(a, p) || !BlockOnMemory(b, pb) || !BlockOnMemory(*r, p)) {
      yielded = false;
      return 0;
    }
    float levels[4] = {static_cast<float>(a.GetLevelMin(p)), static_cast<float>(a.GetLevelRange(p)),
                       static_cast<float>(b.GetLevelMin(pb)), static_cast<float>(b.GetLevelRange(pb))};
    auto input = qorimg::InputPlane(a, p), other = qorimg::InputPlane(b, pb);
    try {
      qorimg::RunPipelineIntoRect(*r, p, wide, false, [&](qorimg::PlaneOutput &output) {
        std::vector<void *> args{input.raw_buffer(), other.raw_buffer()};
        if (q.kind == qorimg::composite::IntShift)
          args.insert(args.end(), {&dxInt, &dyInt});
        else
          args.insert(args.end(), {&dxF, &dyF});
        if (q.kind == qorimg::composite::Rotation) args.insert(args.end(), {&cx, &cy, &c, &s});
        args.push_back(&outside);
        if (wordIsWeight) args.push_back(&weight);
        if (q.arithmetic.level)
          for (float &v : levels) args.push_back(&v);
        args.push_back(output.raw_buffer());
        return pipeline(args.data());
      });
    } catch (const std::bad_alloc &) {
      yielded = false;
    }
    return 0;
  };
  routes.planeLoop = [](int) {};  // never chosen: the caller asked for whole-plane stores
  qorimg::RunOperator({d, 0, 0, 0, q.rect, {0, a.GetPlanes()}}, {{&d, 1}, {&a, a.GetPlanes()}}, routes);
  if (!yielded) return false;
  d.Swap(r.get());
  return true;
}

// The row loop: B's samples from CInterp with nInterp, brought to A's colour,
// then the formula, row by row in parallel.
void RowComposite(CLmrImage &d, CLmrImage &a, CLmrImage &b, const Request &q, int bProgress, int message) {
  const bool colourA = a.IsColor(), colourB = b.IsColor();
  const int planes = colourA ? 3 : 1;
  const LevelsOfA levels(a, planes);
  const LineRect &rect = q.rect;
  const int count = rect.Width();
  CInterp interp(q.nInterp);
  qorimg::geometry::LineScratch scratch(3 * count);
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int) {
    interp.SetBParam(q.kind, &b, rect.left - q.dx, rect.right - q.dx, q.arithmetic.level ? 1 : 0, q.outside,
                     colourA ? -1 : 0, q.s, q.c, 1.0, q.bUseStdPtCtr);
    for (int top = rect.top; top < rect.bottom; top += kBandRows) {
      if (top > rect.top) interp.GetImageYaddress();  // the band before lets its lines go
      const LineRect band{rect.left, top, rect.right, std::min(top + kBandRows, rect.bottom)};
      qorimg::RunLineLoop(
          d, band, {0, 1},
          [&](int, int y) {
            float *line = scratch.Line();
            float *lines[3] = {line, line + count, line + 2 * count};
            // Where the reader writes nothing (a span beyond the int range) B has no sample.
            std::fill(line, line + 3 * count, q.outside);
            interp.GetBLine(y - q.dy, lines[0], lines[1], lines[2]);
            if (colourA && !colourB) {
              std::memcpy(lines[1], lines[0], static_cast<std::size_t>(count) * sizeof(float));
              std::memcpy(lines[2], lines[0], static_cast<std::size_t>(count) * sizeof(float));
            }
            for (int p = 0; p < planes; ++p)
              ComposeRow(q.arithmetic, a.GetImageAdr(rect.left, y, p, CImage::ReadOnly), lines[p],
                         d.GetImageAdr(rect.left, y, p), count, levels.min[p], levels.scale[p], levels.inverse[p]);
          },
          true);
    }
  };
  qorimg::RunOperator({d, bProgress, message, rect.Height(), rect, {0, 1}}, {{&d, planes}, {&a, planes}}, routes);
}

// ---- The neighbour composite ----

struct NeighbourRequest {
  LineRect rect;
  double weight;
  bool level;
  double threshold;
  int radius;
};

// Sampler: Plane(p) before each plane, then Sample(x, y, &outside, &X, &Y)
// gives B's value at output (x, y), on the 0..255 scale with `level`.
template <class Sampler>
void NeighbourComposite(CLmrImage &d, CLmrImage &a, CLmrImage &b, const NeighbourRequest &q, Sampler &sampler,
                        int bProgress, int message) {
  const int planes = d.GetPlanes();
  const int width = d.GetWidth(), height = d.GetHeight();
  const int widthA = std::min(width, a.GetWidth()), heightA = std::min(height, a.GetHeight());
  const int widthB = b.GetWidth(), heightB = b.GetHeight();
  const int reach = std::min(q.radius, 2);
  const LineRect &rect = q.rect;
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int p) {
    sampler.Plane(p);
    const int pb = b.GetDimension() < 3 ? 0 : std::min(p, b.GetPlanes() - 1);
    const double minA = a.GetLevelMin(p), rangeA = a.GetLevelRange(p);
    const double minB = b.GetLevelMin(pb), rangeB = b.GetLevelRange(pb);
    auto onScaleA = [&](float v) { return q.level ? static_cast<float>((v - minA) / rangeA * 255.0) : v; };
    auto onScaleB = [&](float v) { return q.level ? static_cast<float>((v - minB) / rangeB * 255.0) : v; };
    const double tA = q.level ? q.threshold * 255.0 : q.threshold * a.GetMaxPixel(0);
    const double tB = q.level ? q.threshold * 255.0 : q.threshold * b.GetMaxPixel(0);
    auto bright = [&](float v, double t) { return q.level ? v > t : v >= t; };
    const PlaneAccess pixelA(a, p), pixelB(b, pb), pixelD(d, p);
    // A neighbour already written: columns clamp into 0..width and rows into
    // 0..height. Column `width` is the element after the row's last one, which
    // whole-plane storage holds as pixel 0 of the next row (the last row's at
    // the end of the plane).
    auto neighbour = [&](int x, int y) {
      x = std::clamp(x, 0, width);
      y = std::clamp(y, 0, height - 1);
      if (x == width) {
        x = 0;
        y = std::min(y + 1, height - 1);
      }
      return onScaleA(pixelD.Get(x, y));
    };
    for (int y = rect.top; y < rect.bottom; ++y) {
      for (int x = rect.left; x < rect.right; ++x) {
        int outside = 0;
        double X = 0, Y = 0;
        const float bv = sampler.Sample(x, y, &outside, &X, &Y);
        const float av = onScaleA(pixelA.Get(x, y));
        float r = av;
        if (!(outside || X < 1 || X >= widthB - 1 || Y < 1 || Y >= heightB - 1)) {
          const float m = static_cast<float>(bv * q.weight);
          if (q.radius == 0) {
            r = std::min(m, av);
          } else {
            float peakA = av, peakB = bv;
            for (int j = std::max(y - reach, 0); j <= std::min(y + reach, heightA - 1); ++j)
              for (int i = std::max(x - reach, 0); i <= std::min(x + reach, widthA - 1); ++i) {
                peakA = std::max(peakA, onScaleA(pixelA.Get(i, j)));
                const int bx = std::clamp(qorimg::TruncateToInt(X + (i - x) + 0.5), 0, widthB - 1);
                const int by = std::clamp(qorimg::TruncateToInt(Y + (j - y) + 0.5), 0, heightB - 1);
                peakB = std::max(peakB, onScaleB(pixelB.Get(bx, by)));
              }
            const bool sa = bright(av, tA), spA = bright(peakA, tA), sb = bright(bv, tB), spB = bright(peakB, tB);
            if (!spA && !spB) {
              r = std::min(m, av);
            } else if (!spA) {
              r = std::min(static_cast<float>(peakB * q.weight), av);
            } else if (!spB) {
              r = std::min(m, peakA);
            } else if (sa && sb) {
              r = std::min(m, av);
            } else {
              float sumA = 0, sumM = 0;
              for (const float n : {neighbour(x - 1, y - 1), neighbour(x, y - 1), neighbour(x + 1, y - 1),
                                    neighbour(x - 1, y)}) {
                sumA += std::fabs(av - n);
                sumM += std::fabs(m - n);
              }
              r = sumM > sumA ? av : m;
            }
          }
        }
        pixelD.Set(x, y, q.level ? static_cast<float>(r / 255.0 * rangeA + minA) : r);
      }
      d.ShowProgress(1);
    }
  };
  qorimg::RunOperator({d, bProgress, message, rect.Height() * planes, rect, {0, planes}}, {{&d, planes}, {&a, planes}},
                      routes);
}

// B through CInterp's pixel reader (bilinear), set up once a plane.
struct InterpSampler {
  CLmrImage &b;
  int nInterp;
  double dx, dy, s, c;
  bool level;
  std::unique_ptr<CInterp> interp;
  void Plane(int p) {
    interp = std::make_unique<CInterp>(nInterp);
    interp->SetBParam(&b, dx, dy, s, c, 1.0, 1, p, 0.0f);
  }
  float Sample(int x, int y, int *outside, double *X, double *Y) {
    return level ? interp->GetBPixelGray256f(x, y, outside, X, Y) : interp->GetBPixelGrayRaw(x, y, outside, X, Y);
  }
};

// B through the image's own transformed sampling.
struct ImageSampler {
  CLmrImage &b;
  double dx, dy, s, c;
  bool level;
  int plane = 0;
  void Plane(int p) { plane = b.IsColor() ? std::min(p, b.GetPlanes() - 1) : 0; }
  float Sample(int x, int y, int *outside, double *X, double *Y) {
    return level ? b.GetPixelGray256f(x, y, dx, dy, c, s, 1.0, plane, 0.0, 0, outside, X, Y)
                 : b.GetPixelGrayRaw(x, y, dx, dy, c, s, 1.0, plane, 0.0, 0, outside, X, Y);
  }
};

// ---- The earlier release's row fetchers ----

// B's planes at one source position, mapped, brought to A's colour.
struct FetchTarget {
  int planesB;  // 3 for a colour B, else 1
  bool colourA, colourB;
  float outside;
  float *const *dst;
  const float *min, *scale;

  void Outside(int i) const {
    for (int p = 0; p < (colourA ? 3 : 1); ++p) dst[p][i] = outside;
  }
  // sample(p) is B's value of plane p at the position.
  template <class Sample>
  void Put(int i, Sample &&sample) const {
    float v[3];
    for (int p = 0; p < planesB; ++p) v[p] = (sample(p) - min[p]) * scale[p];
    if (colourA) {
      for (int p = 0; p < 3; ++p) dst[p][i] = colourB ? v[p] : v[0];
    } else {
      dst[0][i] = colourB ? static_cast<float>(0.299 * v[0] + 0.587 * v[1] + 0.114 * v[2]) : v[0];
    }
  }
};

// The bilinear weights of the earlier release: (1 - fy)(1 - fx) in double
// rounded to float, then fx - fx fy (next column), fy - fx fy (next row), fx fy.
struct BilinearWeights {
  float w00, w10, w01, w11;
  BilinearWeights(double fx, double fy)
      : w00(static_cast<float>((1.0 - fy) * (1.0 - fx))),
        w10(static_cast<float>(fx - fx * fy)),
        w01(static_cast<float>(fy - fx * fy)),
        w11(static_cast<float>(fx * fy)) {}
  // Columns x and xNext of rows y and y + 1; a zero fraction reads no neighbour.
  float Blend(const PlaneAccess &plane, int x, int xNext, int y, bool nextColumn, bool nextRow) const {
    float v = plane.Get(x, y) * w00;
    if (nextColumn) v += plane.Get(xNext, y) * w10;
    if (nextRow) v += plane.Get(x, y + 1) * w01;
    if (nextColumn && nextRow) v += plane.Get(xNext, y + 1) * w11;
    return v;
  }
};

std::vector<PlaneAccess> PlanesOf(const CLmrImage &b, int planes) {
  std::vector<PlaneAccess> access;
  for (int p = 0; p < planes; ++p) access.emplace_back(b, p);
  return access;
}

}  // namespace

double CImgComposit::GetOutsideValue(int nMode) { return nMode == 4 || nMode == 5 ? 255.0 : 0.0; }

void CImgComposit::Do(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int bUseStdPtCtr,
                      int nMode, int nInterp, double weight, int bLevel, int bCutMinus, double threshold, int nRadius,
                      CRect *rect, int bShowProgress, int nMessage) {
  if (nMode == 9)
    DoNbrComposit(pA, pB, dx, dy, rotation, nMode, nInterp, weight, bLevel, bCutMinus, threshold, nRadius, rect,
                  bShowProgress, nMessage);
  else
    DoComposit(pA, pB, dx, dy, rotation, bUseStdPtCtr, nMode, nInterp, weight, bLevel, bCutMinus, rect,
               bShowProgress, nMessage);
}

void CImgComposit::Do(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int bUseStdPtCtr,
                      int nMode, int nInterp, int bLevel) {
  Do(pA, pB, dx, dy, rotation, bUseStdPtCtr, nMode, nInterp, 0.5, bLevel, 0, 0.95, 0, nullptr, 0, -1);
}

void CImgComposit::Do65(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode,
                        double weight, int bLevel, int bCutMinus, double threshold, int nRadius, CRect *rect,
                        int bShowProgress, int nMessage) {
  if (nMode == 9)
    Abr(pA, pB, dx, dy, rotation, nMode, weight, bLevel, bCutMinus, threshold, nRadius, rect, bShowProgress,
        nMessage);
  else
    DoComposit(pA, pB, dx, dy, rotation, nMode, weight, bLevel, bCutMinus, rect, bShowProgress, nMessage);
}

void CImgComposit::Do65(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode,
                        int bLevel) {
  Do65(pA, pB, dx, dy, rotation, nMode, 0.5, bLevel, 0, 0.95, 0, nullptr, 0, -1);
}

void CImgComposit::DoComposit(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation,
                              int bUseStdPtCtr, int nMode, int nInterp, double weight, int bLevel, int bCutMinus,
                              CRect *rect, int bShowProgress, int nMessage) {
  const std::optional<LineRect> clipped = Admit(*this, pA, pB, dx, dy, rotation, rect);
  if (!clipped) return;
  SourceOf a(pA, *this), b(pB, *this);
  const double r = Radians(rotation);
  const int mode = nMode >= 0 && nMode <= 8 ? nMode : 10;
  Request q{*clipped, KindOf(dx, dy, rotation), dx, dy, std::cos(r), std::sin(r),
            static_cast<float>(GetOutsideValue(nMode)), Arithmetic{mode, bLevel != 0, bCutMinus != 0, weight},
            nInterp, bUseStdPtCtr};
  if (qorimg::IsExactlyWholePlane(*this) && qorimg::IsExactlyWholePlane(*a) && qorimg::IsExactlyWholePlane(*b) &&
      KernelComposite(*this, *a, *b, q))
    return;
  // The row loop works on the 0..255 scale for A unchanged: only the rounding tells.
  if (mode == 10) q.arithmetic.level = true;
  RowComposite(*this, *a, *b, q, bShowProgress, MessageOf(nMessage));
}

void CImgComposit::DoComposit(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int nMode,
                              double weight, int bLevel, int bCutMinus, CRect *rect, int bShowProgress,
                              int nMessage) {
  const std::optional<LineRect> clipped = Admit(*this, pA, pB, dx, dy, rotation, rect);
  if (!clipped) return;
  SourceOf a(pA, *this), b(pB, *this);
  const LineRect rc = *clipped;
  const double r = Radians(rotation);
  const double c = std::cos(r), s = std::sin(r);
  const int mode = nMode >= 0 && nMode <= 8 ? nMode : 10;
  const Arithmetic arithmetic{mode, bLevel != 0 || mode == 10, bCutMinus != 0, weight};
  const float outside = static_cast<float>(GetOutsideValue(nMode));
  const Kind kind = KindOf(dx, dy, rotation);
  const bool colourA = a->IsColor(), colourB = b->IsColor();
  const int planes = colourA ? 3 : 1, planesB = colourB ? 3 : 1;
  const LevelsOfA levels(*a, planes);
  float minB[3] = {0, 0, 0}, scaleB[3] = {1, 1, 1};
  if (arithmetic.level)
    for (int p = 0; p < planesB; ++p) {
      minB[p] = static_cast<float>(b->GetLevelMin(p));
      scaleB[p] = static_cast<float>(255.0 / b->GetLevelRange(p));
    }
  const int count = rc.Width();
  qorimg::geometry::LineScratch scratch(3 * count);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int, int y) {
    float *line = scratch.Line();
    float *lines[3] = {line, line + count, line + 2 * count};
    switch (kind) {
      case qorimg::composite::IntShift:
        GetBLine_int(qorimg::TruncateToInt(rc.left - dx), qorimg::TruncateToInt(rc.right - dx),
                     qorimg::TruncateToInt(y - dy), b.get(), outside, colourA, colourB, lines, minB, scaleB);
        break;
      case qorimg::composite::FloatShift:
        GetBLine_float(rc.left - dx, rc.right - dx, y - dy, b.get(), outside, colourA, colourB, lines, minB, scaleB);
        break;
      case qorimg::composite::Rotation:
        GetBLine_rotate(rc.left - dx, rc.right - dx, y - dy, c, s, b.get(), outside, colourA, colourB, lines, minB,
                        scaleB);
        break;
    }
    for (int p = 0; p < planes; ++p)
      ComposeRow(arithmetic, a->GetImageAdr(rc.left, y, p, CImage::ReadOnly), lines[p], GetImageAdr(rc.left, y, p),
                 count, levels.min[p], levels.scale[p], levels.inverse[p]);
  };
  qorimg::RunOperator({*this, bShowProgress, MessageOf(nMessage), rc.Height(), rc, {0, 1}},
                      {{this, planes}, {a.get(), planes}}, routes);
}

// The run's columns x0 + i for i in [0, x1 - x0), whole pixels.
void CImgComposit::GetBLine_int(int x0, int x1, int y, CLmrImage *pB, float fOutside, int bColorA, int bColorB,
                                float *const *pDst, const float *pMin, const float *pScale) {
  const FetchTarget t{bColorB ? 3 : 1, bColorA != 0, bColorB != 0, fOutside, pDst, pMin, pScale};
  const int width = pB->GetWidth(), height = pB->GetHeight();
  const long long count = std::max(static_cast<long long>(x1) - x0, 0LL);
  const bool rowInside = y >= 0 && y < height;
  const std::vector<PlaneAccess> planes = PlanesOf(*pB, rowInside ? t.planesB : 0);
  for (long long i = 0; i < count; ++i) {
    const long long x = x0 + i;
    if (rowInside && x >= 0 && x < width)
      t.Put(static_cast<int>(i), [&](int p) { return planes[static_cast<std::size_t>(p)].Get(static_cast<int>(x), y); });
    else
      t.Outside(static_cast<int>(i));
  }
}

// Bilinear along a row with one fraction for the whole row. The run ends at
// e = min(floor(x1), width); the column right of its last pixel is e - 2, so
// the last pixel mirrors its left neighbour (held at column 0 on a B one pixel
// wide, where e - 2 does not exist).
void CImgComposit::GetBLine_float(double x0, double x1, double y, CLmrImage *pB, float fOutside, int bColorA,
                                  int bColorB, float *const *pDst, const float *pMin, const float *pScale) {
  const FetchTarget t{bColorB ? 3 : 1, bColorA != 0, bColorB != 0, fOutside, pDst, pMin, pScale};
  const int width = pB->GetWidth(), height = pB->GetHeight();
  const double fx0 = std::floor(x0), fy0 = std::floor(y);
  const long long count = std::max(qorimg::TruncateToInt(std::floor(x1)) - static_cast<long long>(qorimg::TruncateToInt(fx0)), 0LL);
  const bool rowOutside = !(fx0 < width) || !(y <= height - 1) || !(fy0 >= 0);
  if (rowOutside) {
    for (long long i = 0; i < count; ++i) t.Outside(static_cast<int>(i));
    return;
  }
  const int ix = qorimg::TruncateToInt(fx0), iy = static_cast<int>(fy0);
  const double fx = x0 - fx0, fy = y - fy0;
  const BilinearWeights w(fx, fy);
  const long long e = std::min<long long>(qorimg::TruncateToInt(std::floor(x1)), width);
  const std::vector<PlaneAccess> planes = PlanesOf(*pB, t.planesB);
  for (long long i = 0; i < count; ++i) {
    const long long x = ix + i;
    if (x < 0 || x >= e) {
      t.Outside(static_cast<int>(i));
      continue;
    }
    const int next = x == e - 1 ? std::max(static_cast<int>(e) - 2, 0) : static_cast<int>(x) + 1;
    t.Put(static_cast<int>(i), [&](int p) {
      return w.Blend(planes[static_cast<std::size_t>(p)], static_cast<int>(x), next, iy, fx != 0.0, fy != 0.0);
    });
  }
}

// Along a row of the rotation about B's standard-point centre, one step of
// (c, -s) a column; positions outside [0, width - 1] x [0, height - 1] give
// the outside value.
void CImgComposit::GetBLine_rotate(double x0, double x1, double y, double fCos, double fSin, CLmrImage *pB,
                                   float fOutside, int bColorA, int bColorB, float *const *pDst, const float *pMin,
                                   const float *pScale) {
  const FetchTarget t{bColorB ? 3 : 1, bColorA != 0, bColorB != 0, fOutside, pDst, pMin, pScale};
  const int width = pB->GetWidth(), height = pB->GetHeight();
  const CfPoint centre = pB->GetStdCtr();
  const double cx = centre.fx, cy = centre.fy;
  double X = (x0 - cx) * fCos - (cy - y) * fSin + cx;
  double Y = cy - ((cy - y) * fCos + (x0 - cx) * fSin);
  const long long count = std::max(static_cast<long long>(std::floor(x1) - std::floor(x0)), 0LL);
  const std::vector<PlaneAccess> planes = PlanesOf(*pB, t.planesB);
  for (long long i = 0; i < count; ++i, X += fCos, Y -= fSin) {
    if (!(X >= 0 && X <= width - 1 && Y >= 0 && Y <= height - 1)) {
      t.Outside(static_cast<int>(i));
      continue;
    }
    const int ix = static_cast<int>(X), iy = static_cast<int>(Y);
    const double fx = X - ix, fy = Y - iy;
    const BilinearWeights w(fx, fy);
    t.Put(static_cast<int>(i), [&](int p) {
      return w.Blend(planes[static_cast<std::size_t>(p)], ix, ix + 1, iy, fx != 0.0, fy != 0.0);
    });
  }
}

void CImgComposit::DoNbrComposit(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int,
                                 int nInterp, double weight, int bLevel, int, double threshold, int nRadius,
                                 CRect *rect, int bShowProgress, int nMessage) {
  const std::optional<LineRect> clipped = Admit(*this, pA, pB, dx, dy, rotation, rect);
  if (!clipped) return;
  SourceOf a(pA, *this), b(pB, *this);
  // The cosine from the sine is never negative: beyond +-90 degrees the turn
  // folds back, as it always has here.
  const double s = std::sin(Radians(rotation)), c = std::sqrt(1.0 - s * s);
  InterpSampler sampler{*b, nInterp, dx, dy, s, c, bLevel != 0, nullptr};
  NeighbourComposite(*this, *a, *b, {*clipped, weight, bLevel != 0, threshold, nRadius}, sampler, bShowProgress,
                     MessageOf(nMessage));
}

void CImgComposit::Abr(CLmrImage *pA, CLmrImage *pB, double dx, double dy, double rotation, int, double weight,
                       int bLevel, int, double threshold, int nRadius, CRect *rect, int bShowProgress, int nMessage) {
  const std::optional<LineRect> clipped = Admit(*this, pA, pB, dx, dy, rotation, rect);
  if (!clipped) return;
  SourceOf a(pA, *this), b(pB, *this);
  const double s = std::sin(Radians(rotation)), c = std::sqrt(1.0 - s * s);
  ImageSampler sampler{*b, dx, dy, s, c, bLevel != 0};
  NeighbourComposite(*this, *a, *b, {*clipped, weight, bLevel != 0, threshold, nRadius}, sampler, bShowProgress,
                     MessageOf(nMessage));
}
