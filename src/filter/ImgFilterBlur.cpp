// CImgFilterBlur: the one-value forms copy into per-plane arrays and call the
// array forms; each array form builds its kernels on the source and runs its
// routes through the operator runner.
#include "filter/ImgFilterBlur.h"

#include <algorithm>
#include <functional>

#include "core/OperatorRunner.h"
#include "filter/FilterInternal.h"
#include "filter/FilterMatrix.h"
#include "filter/RankSelect.h"
#include "kernels/Filter.h"

using qorimg::LineRect;
using qorimg::filter::LockedLine;
using qorimg::filter::ToneGate;

// The gate's per-plane arrays, given or filled from one value for all planes;
// a null array leaves the target untouched.
struct CImgFilterBlur::Gate {
  const int *bDark, *bHighlight;
  const double *fDark, *fDarkWidth, *fHighlight, *fHighlightWidth;

  Gate(const int *dark, const double *darkLevel, const double *darkWidth, const int *highlight,
       const double *highlightLevel, const double *highlightWidth)
      : bDark(dark), bHighlight(highlight), fDark(darkLevel), fDarkWidth(darkWidth), fHighlight(highlightLevel),
        fHighlightWidth(highlightWidth) {}
  Gate(int dark, double darkLevel, double darkWidth, int highlight, double highlightLevel, double highlightWidth)
      : Gate(values.dark, values.darkLevel, values.darkWidth, values.highlight, values.highlightLevel,
             values.highlightWidth) {
    for (int c = 0; c < 3; ++c) {
      values.dark[c] = dark;
      values.darkLevel[c] = darkLevel;
      values.darkWidth[c] = darkWidth;
      values.highlight[c] = highlight;
      values.highlightLevel[c] = highlightLevel;
      values.highlightWidth[c] = highlightWidth;
    }
  }
  Gate(const Gate &) = delete;
  Gate &operator=(const Gate &) = delete;

  bool Complete() const { return bDark && fDark && fDarkWidth && bHighlight && fHighlight && fHighlightWidth; }
  ToneGate For(const CLmrImage &src, int c) const {
    return ToneGate::Make(src, c, bDark[c], fDark[c], fDarkWidth[c], bHighlight[c], fHighlight[c], fHighlightWidth[c]);
  }

private:
  struct {
    int dark[3], highlight[3];
    double darkLevel[3], darkWidth[3], highlightLevel[3], highlightWidth[3];
  } values{};
};

namespace {

struct Triple {
  double v[3];
  explicit Triple(double value) : v{value, value, value} {}
};

// The frame every form shares: the rectangle, the bound images checked before
// anything is built, the source (a copy when it is the target), the filter
// sets cleared, and the gates of the planes.
struct BlurFrame {
  LineRect rect;
  int planes;
  qorimg::filter::SourceCopy source;
  std::vector<ToneGate> gates;

  template <class GateT>
  BlurFrame(CLmrImage &target, CLmrImage *src, CRect *r, const GateT *gate)
      : rect(qorimg::ClipRect(target, r)), planes(target.GetPlanes()), source(Checked(target, src, rect), target) {
    target.ClearFilterProc();
    gates.resize(static_cast<size_t>(planes));
    if (gate)
      for (int c = 0; c < planes; ++c) gates[static_cast<size_t>(c)] = gate->For(*source.get(), c);
  }
  CLmrImage *in() const { return source.get(); }
  const ToneGate &GateOf(int plane) const { return gates[static_cast<size_t>(plane)]; }
  void Run(CLmrImage &target, int bProgress, int id, const qorimg::RouteTable &routes) const {
    qorimg::RunOperator({target, bProgress, id, rect.Height() * planes, rect, {0, planes}},
                        {{&target, planes}, {in(), planes}}, routes);
  }

  static CLmrImage *Checked(CLmrImage &target, CLmrImage *src, const LineRect &rect) {
    qorimg::CheckBoundImages({{&target, target.GetPlanes()}, {src, target.GetPlanes()}}, rect);
    return src;
  }
};

int RadiusOf(double fRadius) { return qorimg::filter::AtLeastOne(qorimg::filter::TruncRadius(fRadius)); }

struct Offset {
  int dx, dy;
};

// The upper median of the disc's samples that lie inside the plane (the
// window shrinks at the rim); `pixel` when the disc selects none (a NaN radius).
float MedianOfDisc(const CFilterBlock &block, const std::vector<Offset> &disc, int x, int y, int width, int height,
                   float *samples, float pixel) {
  int n = 0;
  for (const Offset &o : disc) {
    const int sx = x + o.dx, sy = y + o.dy;
    if (sx >= 0 && sx < width && sy >= 0 && sy < height) samples[n++] = block.GetPixel(sx, sy);
  }
  return n == 0 ? pixel : qorimg::filter::SelectNanLast(samples, n, n / 2);
}

}  // namespace

CImgFilterBlur::~CImgFilterBlur() = default;

// ---- Gaussian ----

void CImgFilterBlur::GaussianFilter(double fStdDev, CLmrImage *src, CRect *rect, int bProgress) {
  Gaussian(Triple(fStdDev).v, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::GaussianFilter(double *const fStdDev, CLmrImage *src, CRect *rect, int bProgress) {
  Gaussian(fStdDev, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::GaussianFilter(double fStdDev, int bDark, double fDark, double fDarkWidth, int bHighlight,
                                    double fHighlight, double fHighlightWidth, CLmrImage *src, CRect *rect,
                                    int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  Gaussian(Triple(fStdDev).v, &gate, src, rect, bProgress);
}

void CImgFilterBlur::GaussianFilter(double *const fStdDev, int *const bDark, double *const fDark,
                                    double *const fDarkWidth, int *const bHighlight, double *const fHighlight,
                                    double *const fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  Gaussian(fStdDev, &gate, src, rect, bProgress);
}

void CImgFilterBlur::Gaussian(const double *fStdDev, const Gate *gate, CLmrImage *src, CRect *rect, int bProgress) {
  if (!fStdDev || (gate && !gate->Complete())) return;
  const BlurFrame frame(*this, src, rect, gate);
  const LineRect &r = frame.rect;
  std::vector<CFilterMatrix> kernels(static_cast<size_t>(frame.planes));
  for (int c = 0; c < frame.planes; ++c) {
    kernels[static_cast<size_t>(c)].MakeGaussian(fStdDev[c]);
    MakeFilterProc(frame.in(), &kernels[static_cast<size_t>(c)], c, 1);
  }
  const qorimg::filter::ThreadLines scratch(r.Width());
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const LockedLine dst(*this, r.left, y, p, false);
    if (!gate) return FilterProc.Proc(p).CalcRow(r.left, y, r.Width(), dst.get());
    float *f = scratch.Get();
    FilterProc.Proc(p).CalcRow(r.left, y, r.Width(), f);
    const LockedLine v(*frame.in(), r.left, y, p, true);
    for (int i = 0; i < r.Width(); ++i) dst.get()[i] = frame.GateOf(p).Apply(v.get()[i], f[i]);
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    auto weight = qorimg::kernels::TableBuffer(FilterProc.GetFilter(p), FilterProc.GetD(p));
    auto input = qorimg::InputPlane(*frame.in(), p);
    if (!gate) return apply_filter_float(input, weight, FilterProc.GetR(p), output);
    const ToneGate &g = frame.GateOf(p);
    return apply_filter_with_threshold_float(input, weight, FilterProc.GetR(p), g.dark, g.darkMin, g.highlight,
                                             g.highlightMax, output);
  };
  frame.Run(*this, bProgress, 6131, routes);
}

// ---- Mean ----

void CImgFilterBlur::MeanFilter(double fRadius, double fWeight, CLmrImage *src, CRect *rect, int bProgress) {
  Mean(Triple(fRadius).v, Triple(fWeight).v, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::MeanFilter(double *const fRadius, double *const fWeight, CLmrImage *src, CRect *rect,
                                int bProgress) {
  Mean(fRadius, fWeight, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::MeanFilter(double fRadius, double fWeight, int bDark, double fDark, double fDarkWidth,
                                int bHighlight, double fHighlight, double fHighlightWidth, CLmrImage *src,
                                CRect *rect, int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  Mean(Triple(fRadius).v, Triple(fWeight).v, &gate, src, rect, bProgress);
}

void CImgFilterBlur::MeanFilter(double *const fRadius, double *const fWeight, int *const bDark, double *const fDark,
                                double *const fDarkWidth, int *const bHighlight, double *const fHighlight,
                                double *const fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  Mean(fRadius, fWeight, &gate, src, rect, bProgress);
}

void CImgFilterBlur::Mean(const double *fRadius, const double *fWeight, const Gate *gate, CLmrImage *src,
                          CRect *rect, int bProgress) {
  if (!fRadius || !fWeight || (gate && !gate->Complete())) return;
  const BlurFrame frame(*this, src, rect, gate);
  const LineRect &r = frame.rect;
  std::vector<CFilterMatrix> kernels(static_cast<size_t>(frame.planes));
  const qorimg::filter::ThreadLines scratch(r.Width());
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  if (!gate) {
    // The box row of the disc, along x then y, through the rings; the doubled
    // radius only adds cells of weight 0.
    for (int c = 0; c < frame.planes; ++c) {
      kernels[static_cast<size_t>(c)].MakeMean(qorimg::filter::DoubledRadius(fRadius[c]), fRadius[c], fWeight[c]);
      MakeFilterProc(frame.in(), &kernels[static_cast<size_t>(c)], c, 1);
    }
    routes.line = [&](int p, int y) {
      const LockedLine dst(*this, r.left, y, p, false);
      FilterProc.Proc(p).CalcRow(r.left, y, r.Width(), dst.get());
    };
  } else {
    // The true disc, row by row through a window.
    for (int c = 0; c < frame.planes; ++c)
      kernels[static_cast<size_t>(c)].MakeMean(RadiusOf(fRadius[c]), fRadius[c], fWeight[c]);
    routes.line = [&](int p, int y) {
      const CFilterMatrix &m = kernels[static_cast<size_t>(p)];
      const ToneGate &g = frame.GateOf(p);
      const LockedLine dst(*this, r.left, y, p, false);
      const CFilterBlock block(frame.in(), m.GetR(), 0, y, p, 2);
      float *f = scratch.Get();
      block.CalcRow(&m, r.left, r.Width(), f);
      for (int x = r.left; x < r.right; ++x) {
        const float v = block.GetPixel(x, y);
        dst.get()[x - r.left] = g.Filters(v) ? g.Apply(v, f[x - r.left]) : v;
      }
    };
  }
  frame.Run(*this, bProgress, 6119, routes);
}

// ---- Mean without edge ----

void CImgFilterBlur::MeanWithoutEdgeFilter(double fRadius, double fWeight, CLmrImage *src, CRect *rect,
                                           int bProgress) {
  MeanWithoutEdge(Triple(fRadius).v, Triple(fWeight).v, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double *const fRadius, double *const fWeight, CLmrImage *src,
                                           CRect *rect, int bProgress) {
  MeanWithoutEdge(fRadius, fWeight, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double fRadius, double fWeight, int bDark, double fDark,
                                           double fDarkWidth, int bHighlight, double fHighlight,
                                           double fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  MeanWithoutEdge(Triple(fRadius).v, Triple(fWeight).v, &gate, src, rect, bProgress);
}

void CImgFilterBlur::MeanWithoutEdgeFilter(double *const fRadius, double *const fWeight, int *const bDark,
                                           double *const fDark, double *const fDarkWidth, int *const bHighlight,
                                           double *const fHighlight, double *const fHighlightWidth, CLmrImage *src,
                                           CRect *rect, int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  MeanWithoutEdge(fRadius, fWeight, &gate, src, rect, bProgress);
}

void CImgFilterBlur::MeanWithoutEdge(const double *fRadius, const double *fWeight, const Gate *gate,
                                     CLmrImage *src, CRect *rect, int bProgress) {
  if (!fRadius || !fWeight || (gate && !gate->Complete())) return;
  const BlurFrame frame(*this, src, rect, gate);
  const LineRect &r = frame.rect;
  std::vector<CFilterMatrix> means(static_cast<size_t>(frame.planes)), edges(static_cast<size_t>(frame.planes));
  for (int c = 0; c < frame.planes; ++c) {
    const int radius = RadiusOf(fRadius[c]);
    means[static_cast<size_t>(c)].MakeMean(radius, fRadius[c], fWeight[c]);
    MakeFilterProc(frame.in(), &means[static_cast<size_t>(c)], c, 1);
    edges[static_cast<size_t>(c)].MakeLaplacian(radius, fRadius[c]);
    MakeFilterProcEx(0, frame.in(), &edges[static_cast<size_t>(c)], c, 1);
  }
  const qorimg::filter::ThreadLines meanLines(r.Width()), edgeLines(r.Width());
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    float *m = meanLines.Get(), *l = edgeLines.Get();
    FilterProc.Proc(p).CalcRow(r.left, y, r.Width(), m);
    FilterProcEx[0].Proc(p).CalcRow(r.left, y, r.Width(), l);
    const double range = GetLevelRange(p);
    const ToneGate &g = frame.GateOf(p);
    const LockedLine dst(*this, r.left, y, p, false);
    const LockedLine src(*frame.in(), r.left, y, p, true);
    for (int i = 0; i < r.Width(); ++i) {
      const float v = src.get()[i];
      // The edge strength clamped into 0..1; a NaN (a zero-sum Laplacian row
      // below radius 1) counts as 0, so the mean stays.
      double e = l[i] / range;
      e = e > 0.0 ? std::min(e, 1.0) : 0.0;
      const float w = static_cast<float>(e) * static_cast<float>(e);
      const float blended = (1.0f - w) * m[i] + w * v;
      dst.get()[i] = gate ? (g.Filters(v) ? g.Apply(v, blended) : v) : blended;
    }
  };
  frame.Run(*this, bProgress, 6119, routes);
}

// ---- Median ----

void CImgFilterBlur::MedianFilter(double fRadius, CLmrImage *src, CRect *rect, int bProgress) {
  Median(Triple(fRadius).v, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::MedianFilter(double *const fRadius, CLmrImage *src, CRect *rect, int bProgress) {
  Median(fRadius, nullptr, src, rect, bProgress);
}

void CImgFilterBlur::MedianFilter(double fRadius, int bDark, double fDark, double fDarkWidth, int bHighlight,
                                  double fHighlight, double fHighlightWidth, CLmrImage *src, CRect *rect,
                                  int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  Median(Triple(fRadius).v, &gate, src, rect, bProgress);
}

void CImgFilterBlur::MedianFilter(double *const fRadius, int *const bDark, double *const fDark,
                                  double *const fDarkWidth, int *const bHighlight, double *const fHighlight,
                                  double *const fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress) {
  const Gate gate(bDark, fDark, fDarkWidth, bHighlight, fHighlight, fHighlightWidth);
  Median(fRadius, &gate, src, rect, bProgress);
}

void CImgFilterBlur::Median(const double *fRadius, const Gate *gate, CLmrImage *src, CRect *rect, int bProgress) {
  if (!fRadius || (gate && !gate->Complete())) return;
  const BlurFrame frame(*this, src, rect, gate);
  const LineRect &r = frame.rect;
  std::vector<std::vector<Offset>> discs(static_cast<size_t>(frame.planes));
  std::vector<int> radii(static_cast<size_t>(frame.planes));
  size_t largest = 1;
  for (int c = 0; c < frame.planes; ++c) {
    // Offsets farther than the plane's size never land inside it.
    const int radius = std::min(RadiusOf(fRadius[c]), std::max(GetWidth(), GetHeight()));
    radii[static_cast<size_t>(c)] = radius;
    const double limit = fRadius[c] * fRadius[c];
    for (int dy = -radius; dy <= radius; ++dy)
      for (int dx = -radius; dx <= radius; ++dx)
        if (static_cast<double>(dx) * dx + static_cast<double>(dy) * dy <= limit)
          discs[static_cast<size_t>(c)].push_back({dx, dy});
    largest = std::max(largest, discs[static_cast<size_t>(c)].size());
  }
  const qorimg::filter::ThreadLines scratch(static_cast<int>(std::min<size_t>(largest, INT_MAX)));
  const int width = GetWidth(), height = GetHeight();
  // Where the whole disc lies inside the plane (and it is not too large), four
  // pixels at a time go through a sorting network.
  std::vector<std::unique_ptr<qorimg::filter::RankNetwork>> networks(static_cast<size_t>(frame.planes));
  for (int c = 0; c < frame.planes; ++c) {
    const size_t n = discs[static_cast<size_t>(c)].size();
    if (n > 0 && n <= static_cast<size_t>(qorimg::filter::RankNetwork::kMaxCount))
      networks[static_cast<size_t>(c)] = std::make_unique<qorimg::filter::RankNetwork>(static_cast<int>(n));
  }
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const std::vector<Offset> &disc = discs[static_cast<size_t>(p)];
    const int radius = radii[static_cast<size_t>(p)];
    const ToneGate &g = frame.GateOf(p);
    float *samples = scratch.Get();
    const LockedLine dst(*this, r.left, y, p, false);
    const CFilterBlock block(frame.in(), radius, 0, y, p, 2);
    auto finish = [&](int x, float median) {
      const float v = block.GetPixel(x, y);
      dst.get()[x - r.left] = gate ? (g.Filters(v) ? g.Apply(v, median) : v) : median;
    };
    int x = r.left;
    const qorimg::filter::RankNetwork *network = networks[static_cast<size_t>(p)].get();
    if (network && y - radius >= 0 && y + radius < height) {
      std::vector<int> rows;
      for (int k = y - radius; k <= y + radius; ++k) rows.push_back(k);
      const qorimg::filter::LockedRows lines(*frame.in(), 0, p, rows);
      const int first = std::max(r.left, radius), end = std::min(r.right, width - radius);
      for (; x < first; ++x) finish(x, MedianOfDisc(block, disc, x, y, width, height, samples, block.GetPixel(x, y)));
      __m128 v[qorimg::filter::RankNetwork::kMaxCount];
      float medians[4];
      for (; x + 4 <= end; x += 4) {
        for (size_t i = 0; i < disc.size(); ++i)
          v[i] = _mm_loadu_ps(lines.lines()[disc[i].dy + radius] + x + disc[i].dx);
        network->Select(v, network->Count() / 2, medians);
        for (int l = 0; l < 4; ++l) finish(x + l, medians[l]);
      }
    }
    for (; x < r.right; ++x) finish(x, MedianOfDisc(block, disc, x, y, width, height, samples, block.GetPixel(x, y)));
  };
  frame.Run(*this, bProgress, 6120, routes);
}
