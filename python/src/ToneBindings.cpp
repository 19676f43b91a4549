// Levels and tone: automatic levels and the statistics behind them,
// brightness and contrast, curves, cut-off, false colour, equalisation,
// normalisation, posterisation.
#include "Call.h"

namespace qorpy {

namespace {

enum class LevelMethod { Histogram, Mean, Median, Normal };

ImagePtr AutoLevel(const ImagePtr &src, LevelMethod method, double low, double high, bool perPlane, int balance,
                   const Rect &rect) {
  CRect storage;
  CRect *r = RectOrNull(rect, storage);
  return Apply<CImgAutoLevel>(src, py::none(), [&](CImgAutoLevel &t, int) {
    switch (method) {
      case LevelMethod::Histogram: t.DoByHistogram(low, high, perPlane, balance, r); break;
      case LevelMethod::Mean: t.DoByMean(low, high, perPlane, r); break;
      case LevelMethod::Median: t.DoByMedian(low, high, perPlane, r); break;
      case LevelMethod::Normal: t.DoByNormal(low, high, perPlane, r); break;
    }
  });
}

// The operator object measuring a copy of `src` (the measurements are const in
// effect, but the members are not).
template <class F>
auto Measure(const ImagePtr &src, F &&f) {
  RequireImage(src, "image");
  py::gil_scoped_release release;
  auto op = CopyOf<CImgAutoLevel>(*src);
  return f(*op);
}

std::vector<float> TableOf(const py::object &curve, const char *name) {
  auto table = curve.cast<std::vector<float>>();
  if (table.empty()) throw py::value_error(std::string(name) + " must not be empty");
  return table;
}

}  // namespace

void BindTone(py::module_ &m) {
  py::enum_<LevelMethod>(m, "LevelMethod")
      .value("HISTOGRAM", LevelMethod::Histogram)
      .value("MEAN", LevelMethod::Mean)
      .value("MEDIAN", LevelMethod::Median)
      .value("NORMAL", LevelMethod::Normal);
  m.def("auto_level", &AutoLevel, py::arg("image"), py::arg("method") = LevelMethod::Median, py::arg("low") = 1.5,
        py::arg("high") = 3.0, py::arg("per_plane") = false, py::arg("balance") = 3, py::arg("rect") = py::none(),
        "A copy of the image with display levels found automatically (pixels unchanged).");
  m.def("level_parameters", [](const ImagePtr &src, LevelMethod method, const Rect &rect) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    const int code = method == LevelMethod::Mean ? 1 : method == LevelMethod::Median ? 2 : 0;
    return Measure(src, [&](CImgAutoLevel &op) {
      double low = 0, high = 0;
      op.Get(low, high, code, r);
      return std::make_pair(low, high);
    });
  }, py::arg("image"), py::arg("method") = LevelMethod::Median, py::arg("rect") = py::none(),
        "The (low, high) parameters of auto_level that give the image's present levels.");
  m.def("median", [](const ImagePtr &src, int plane, bool sampling, bool brightness, const Rect &rect) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Measure(src, [&](CImgAutoLevel &op) {
      float median[3] = {0, 0, 0};
      op.GetMedian(median, sampling, brightness, plane, r);
      return median[0];
    });
  }, py::arg("image"), py::arg("plane") = 0, py::arg("sampling") = false, py::arg("brightness") = false,
        py::arg("rect") = py::none());
  m.def("mode", [](const ImagePtr &src, int plane, bool brightness, const Rect &rect) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Measure(src, [&](CImgAutoLevel &op) {
      float mode = 0, low = 0, high = 0;
      op.GetMode(&mode, &low, &high, brightness, plane, r);
      return std::make_tuple(mode, low, high);
    });
  }, py::arg("image"), py::arg("plane") = 0, py::arg("brightness") = false, py::arg("rect") = py::none(),
        "(mode, low, high): the histogram's peak and the sky width about it.");
  m.def("range_deviation", [](const ImagePtr &src, float low, float high, int plane, const Rect &rect) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Measure(src, [&](CImgAutoLevel &op) {
      int count = 0;
      double deviation = 0;
      op.GetLevelRangeNum(low, high, &count, plane, r);
      op.GetLevelRangeStd(low, high, &deviation, plane, r);
      return std::make_pair(count, deviation);
    });
  }, py::arg("image"), py::arg("low"), py::arg("high"), py::arg("plane") = 0, py::arg("rect") = py::none(),
        "(count, RMS deviation) of the samples within low..high.");

  m.def("bright", [](const ImagePtr &src, const py::object &brightness, const py::object &contrast, double average,
                     const Rect &rect, const py::object &progress) {
    const auto b = PerPlane(brightness, "brightness"), c = PerPlane(contrast, "contrast");
    float bright[3] = {float(b[0]), float(b[1]), float(b[2])}, cont[3] = {float(c[0]), float(c[1]), float(c[2])};
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgBright>(src, progress, [&](CImgBright &t, int p) { t.Do(bright, cont, average, src.get(), r, p); });
  }, py::arg("image"), py::arg("brightness") = 0.0, py::arg("contrast") = 0.0, py::arg("average") = 128.0,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "Brightness and contrast per plane on the display scale (contrast 256: a gain of 2).");
  m.def("correct_curve", [](const ImagePtr &src, double power, double low, double high, std::optional<int> plane,
                            const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgCorrectCurve>(src, progress, [&](CImgCorrectCurve &t, int p) {
      CheckStatus(plane ? t.Do(power, low, high, *plane, src.get(), r, p) : t.Do(power, low, high, src.get(), r, p),
                  "correct_curve");
    });
  }, py::arg("image"), py::arg("power"), py::arg("low"), py::arg("high"), py::arg("plane") = py::none(),
        py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "The superellipse curve between low and high (display scale; pixel units with a plane).");
  m.def("cut_off", [](const ImagePtr &src, float low, float high, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgCutOff>(src, progress, [&](CImgCutOff &t, int p) { t.Do(src.get(), low, high, r, p); });
  }, py::arg("image"), py::arg("low"), py::arg("high"), py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "Samples at or beyond the levels replaced by low (black side) and high (white side).");
  m.def("false_color", [](const ImagePtr &src, double low, double high, int table, int cycle, const Rect &rect,
                          const py::object &progress) {
    RequireImage(src, "image");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Build<CImgFalseColor>(src, progress, [&](CImgFalseColor &t, int p) {
      CLmrImage colour(src->VmManager(), CImage::Float32, src->GetWidth(), src->GetHeight(), 3, 1.0, 0.0, 1,
                       std::shared_ptr<lumora::Progress>());
      for (int c = 0; c < 3; ++c) colour.CImage::SetLevel(c, 0.0, 255.0);
      t.Swap(&colour);
      t.Do(low, high, table, cycle, src.get(), r, p);
    });
  }, py::arg("image"), py::arg("low"), py::arg("high"), py::arg("table") = 0, py::arg("cycle") = 1,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "An RGB image (levels 0..255) colouring the brightness between low and high through a palette.");
  m.def("equalize", [](const ImagePtr &src) {
    RequireImage(src, "image");
    // The equalisation sets its source's levels: it reads a private copy.
    return Apply<CImgHstEql>(src, py::none(), [&](CImgHstEql &t, int) {
      auto source = src->Clone();
      CheckStatus(t.Do(source.get()), "equalize");
    });
  }, py::arg("image"), "Histogram equalisation by rank.");
  m.def("invert", [](const ImagePtr &src, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgInvert>(src, progress, [&](CImgInvert &t, int p) { t.Do(src.get(), r, p); });
  }, py::arg("image"), py::arg("rect") = py::none(), py::arg("progress") = py::none());
  m.def("normalize", [](const ImagePtr &src, const py::object &mean, const py::object &sigma,
                        const py::object &progress) {
    std::array<float, 3> m{}, s{};
    const bool hasMean = !mean.is_none(), hasSigma = !sigma.is_none();
    if (hasMean) { const auto v = PerPlane(mean, "mean"); for (int i = 0; i < 3; ++i) m[i] = float(v[i]); }
    if (hasSigma) { const auto v = PerPlane(sigma, "sigma"); for (int i = 0; i < 3; ++i) s[i] = float(v[i]); }
    return Apply<CImgNormalize>(src, progress, [&](CImgNormalize &t, int p) {
      t.Do(src.get(), hasMean ? m.data() : nullptr, hasSigma ? s.data() : nullptr, p);
    });
  }, py::arg("image"), py::arg("mean") = py::none(), py::arg("sigma") = py::none(), py::arg("progress") = py::none(),
        "Each plane given a wanted mean, standard deviation, or both.");
  m.def("reduce_tone", [](const ImagePtr &src, int tones, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgReduceTone>(src, progress, [&](CImgReduceTone &t, int p) { t.Do(tones, src.get(), r, p); });
  }, py::arg("image"), py::arg("tones"), py::arg("rect") = py::none(), py::arg("progress") = py::none());
  m.def("tone_curve", [](const ImagePtr &src, const py::object &master, const py::object &planes, const Rect &rect,
                         const py::object &progress) {
    std::vector<std::vector<float>> tables{TableOf(master, "master")};
    const auto size = tables[0].size();
    if (planes.is_none()) {
      tables.resize(4, tables[0]);
    } else {
      for (const auto &curve : planes) tables.push_back(TableOf(py::reinterpret_borrow<py::object>(curve), "curve"));
      if (tables.size() != 4) throw py::value_error("planes: one curve for each of the three colour planes");
    }
    for (const auto &t : tables)
      if (t.size() != size) throw py::value_error("every curve must have as many points as the master curve");
    float *curves[4] = {tables[0].data(), tables[1].data(), tables[2].data(), tables[3].data()};
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgToneCurve>(src, progress, [&](CImgToneCurve &t, int p) {
      t.Do(curves, static_cast<int>(size), src.get(), r, p, 0);
    });
  }, py::arg("image"), py::arg("master"), py::arg("planes") = py::none(), py::arg("rect") = py::none(),
        py::arg("progress") = py::none(),
        "Look-up curves (fractions of full scale): a master curve and optionally one per colour plane.");
  m.def("h_alpha", [](const ImagePtr &src, double point, double gain, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgToneCurve>(src, progress, [&](CImgToneCurve &t, int p) { t.DoHAlpha(point, gain, src.get(), r, p); });
  }, py::arg("image"), py::arg("point"), py::arg("gain"), py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "The solar H-alpha curve that lifts faint prominences while the bright disc stays.");
}

}  // namespace qorpy
