// Filters: the small-window filters, the smoothing filters with their tonal
// gate, and digital development.
#include "Call.h"

namespace qorpy {

namespace {

enum class Window { Cross = 0, Square3 = 1, Round5 = 2 };
enum class BlurKind { Gaussian, Mean, MeanWithoutEdge, Median };
enum class DevelopOrder { GammaFirst, GammaAfter, Mixed };

// The tonal gate of the smoothing filters: (level, width) on the 0..255 scale
// for the shadows and the highlights, or None.
struct Gate {
  int dark[3] = {0, 0, 0}, highlight[3] = {0, 0, 0};
  double darkLevel[3] = {}, darkWidth[3] = {}, highLevel[3] = {}, highWidth[3] = {};
  bool on = false;

  Gate(const std::optional<std::pair<double, double>> &d, const std::optional<std::pair<double, double>> &h) {
    on = d.has_value() || h.has_value();
    for (int c = 0; c < 3; ++c) {
      if (d) dark[c] = 1, darkLevel[c] = d->first, darkWidth[c] = d->second;
      if (h) highlight[c] = 1, highLevel[c] = h->first, highWidth[c] = h->second;
    }
  }
};

ImagePtr Blur(BlurKind kind, const ImagePtr &src, const py::object &size, const py::object &weight,
              const std::optional<std::pair<double, double>> &dark,
              const std::optional<std::pair<double, double>> &highlight, const Rect &rect,
              const py::object &progress) {
  auto s = PerPlane(size, "size");
  auto w = weight.is_none() ? std::array<double, 3>{1.0, 1.0, 1.0} : PerPlane(weight, "weight");
  Gate g(dark, highlight);
  CRect storage;
  CRect *r = RectOrNull(rect, storage);
  return Apply<CImgFilterBlur>(src, progress, [&](CImgFilterBlur &t, int p) {
    CLmrImage *in = src.get();
    switch (kind) {
      case BlurKind::Gaussian:
        g.on ? t.GaussianFilter(s.data(), g.dark, g.darkLevel, g.darkWidth, g.highlight, g.highLevel, g.highWidth, in, r, p)
             : t.GaussianFilter(s.data(), in, r, p);
        break;
      case BlurKind::Mean:
        g.on ? t.MeanFilter(s.data(), w.data(), g.dark, g.darkLevel, g.darkWidth, g.highlight, g.highLevel, g.highWidth,
                            in, r, p)
             : t.MeanFilter(s.data(), w.data(), in, r, p);
        break;
      case BlurKind::MeanWithoutEdge:
        g.on ? t.MeanWithoutEdgeFilter(s.data(), w.data(), g.dark, g.darkLevel, g.darkWidth, g.highlight, g.highLevel,
                                       g.highWidth, in, r, p)
             : t.MeanWithoutEdgeFilter(s.data(), w.data(), in, r, p);
        break;
      case BlurKind::Median:
        g.on ? t.MedianFilter(s.data(), g.dark, g.darkLevel, g.darkWidth, g.highlight, g.highLevel, g.highWidth, in, r, p)
             : t.MedianFilter(s.data(), in, r, p);
        break;
    }
  });
}

void DefineBlur(py::module_ &m, const char *name, BlurKind kind, const char *sizeName, const char *doc) {
  m.def(name, [kind](const ImagePtr &src, const py::object &size, const py::object &weight,
                     const std::optional<std::pair<double, double>> &dark,
                     const std::optional<std::pair<double, double>> &highlight, const Rect &rect,
                     const py::object &progress) { return Blur(kind, src, size, weight, dark, highlight, rect, progress); },
        py::arg("image"), py::arg(sizeName), py::kw_only(), py::arg("weight") = py::none(), py::arg("dark") = py::none(),
        py::arg("highlight") = py::none(), py::arg("rect") = py::none(), py::arg("progress") = py::none(), doc);
}

}  // namespace

void BindFilter(py::module_ &m) {
  py::enum_<Window>(m, "Window")
      .value("CROSS", Window::Cross)
      .value("SQUARE3", Window::Square3)
      .value("ROUND5", Window::Round5);
  m.def("median_window", [](const ImagePtr &src, Window window, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgFilter>(src, progress, [&](CImgFilter &t, int p) { t.MedianFilter(int(window), src.get(), r, p); });
  }, py::arg("image"), py::arg("window") = Window::Square3, py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "Median over a small fixed window.");
  m.def("rank_window", [](const ImagePtr &src, int rank, Window window, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgFilter>(src, progress, [&](CImgFilter &t, int p) { t.MinMaxFilter(int(window), rank, src.get(), r, p); });
  }, py::arg("image"), py::arg("rank"), py::arg("window") = Window::Square3, py::arg("rect") = py::none(),
        py::arg("progress") = py::none(), "Element `rank` of the sorted window (0: minimum).");
  m.def("laplacian", [](const ImagePtr &src, Window window, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgFilter>(src, progress, [&](CImgFilter &t, int p) { t.LaplacianFilter(int(window), src.get(), r, p); });
  }, py::arg("image"), py::arg("window") = Window::Square3, py::arg("rect") = py::none(), py::arg("progress") = py::none());
  m.def("unsharp_mask", [](const ImagePtr &src, double amount, Window window, double weight, double threshold,
                           std::optional<int> plane, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgFilter>(src, progress, [&](CImgFilter &t, int p) {
      plane ? t.UnSharpMask(amount, int(window), weight, threshold, src.get(), *plane, r, p)
            : t.UnSharpMask(amount, int(window), weight, threshold, src.get(), r, p);
    });
  }, py::arg("image"), py::arg("amount"), py::arg("window") = Window::Square3, py::arg("weight") = 1.0,
        py::arg("threshold") = 0.0, py::arg("plane") = py::none(), py::arg("rect") = py::none(),
        py::arg("progress") = py::none(), "c + (c - weighted mean) * amount where the area is not flat.");

  DefineBlur(m, "gaussian", BlurKind::Gaussian, "sigma", "Gaussian blur (one sigma, or one per plane).");
  DefineBlur(m, "mean_filter", BlurKind::Mean, "radius", "Box (or, gated, disc) mean of the given radius.");
  DefineBlur(m, "mean_without_edge", BlurKind::MeanWithoutEdge, "radius", "The mean, spared where there is an edge.");
  DefineBlur(m, "median_filter", BlurKind::Median, "radius", "Upper median of the disc of the given radius.");

  py::enum_<DevelopOrder>(m, "DevelopOrder")
      .value("GAMMA_FIRST", DevelopOrder::GammaFirst)
      .value("GAMMA_AFTER", DevelopOrder::GammaAfter)
      .value("MIXED", DevelopOrder::Mixed);
  m.def("digital_development", [](const ImagePtr &src, double sigma, const py::object &a, const py::object &mul,
                                  const py::object &gamma, DevelopOrder order, double strength, int min_max,
                                  const Rect &rect, const py::object &progress) {
    const auto av = PerPlane(a, "a"), mv = PerPlane(mul, "mul");
    auto gv = PerPlane(gamma, "gamma");
    float fa[3] = {float(av[0]), float(av[1]), float(av[2])}, fm[3] = {float(mv[0]), float(mv[1]), float(mv[2])};
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgFilterSpecial>(src, progress, [&](CImgFilterSpecial &t, int p) {
      CFilterMatrix kernel;
      for (int c = 0; c < src->GetPlanes(); ++c) {
        kernel.MakeGaussian(sigma);
        CheckStatus(t.MakeFilterProc(src.get(), &kernel, c, 1), "digital_development");
      }
      int blur[3] = {0, 1, 2};
      float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0}, range[3] = {1, 1, 1};
      t.DigitalDvlpGetMinMax(min_max, src.get(), lo, hi, range);
      switch (order) {
        case DevelopOrder::GammaFirst: t.DigitalDvlp2(1, gv.data(), src.get(), blur, lo, range, fa, fm, r, p); break;
        case DevelopOrder::GammaAfter:
          t.DigitalDvlpGmAftrDdp(1, gv.data(), src.get(), blur, lo, range, fa, fm, r, p);
          break;
        case DevelopOrder::Mixed: t.DigitalDvlpOnly(1, src.get(), strength, blur, lo, range, fa, fm, r, p); break;
      }
    });
  }, py::arg("image"), py::arg("sigma"), py::arg("a"), py::arg("mul"), py::arg("gamma") = 1.0,
        py::arg("order") = DevelopOrder::GammaFirst, py::arg("strength") = 1.0, py::arg("min_max") = 0,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "Each pixel divided by its Gaussian-blurred surroundings: v * mul / (blur + a) on the 0..255 scale.");
}

}  // namespace qorpy
