// Calibration: dark subtraction, flat division, both in one pass, and darks
// interpolated between two frames.
#include "Call.h"

namespace qorpy {

namespace {

enum class DarkInterpolation { Proportion, Power, Score };

}  // namespace

void BindCalibrate(py::module_ &m) {
  m.def("subtract_dark", [](const ImagePtr &src, const ImagePtr &dark, const py::object &progress) {
    RequireImage(dark, "dark");
    return Apply<CLmrImage>(src, progress, [&](CLmrImage &t, int p) { t.DarkClbrtn(dark.get(), p); });
  }, py::arg("image"), py::arg("dark"), py::arg("progress") = py::none(),
        "max(0, v - dark); a mono dark serves every plane.");
  m.def("divide_flat", [](const ImagePtr &src, const ImagePtr &flat, std::optional<double> gamma, float offset,
                          const Rect &rect, const py::object &progress) {
    RequireImage(flat, "flat");
    if (gamma && rect) throw py::value_error("divide_flat: rect applies only without gamma");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CLmrImage>(src, progress, [&](CLmrImage &t, int p) {
      gamma ? t.FlatClbrtn(flat.get(), offset, *gamma, p) : t.FlatClbrtn(flat.get(), r, p);
    });
  }, py::arg("image"), py::arg("flat"), py::arg("gamma") = py::none(), py::arg("offset") = 0.0f,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "mean(flat) * v / flat where flat > 0; with gamma, the flat through the power curve and a pedestal.");
  m.def("dark_flat", [](const ImagePtr &src, const ImagePtr &dark, const ImagePtr &flat, float offset, double gamma,
                        const Rect &rect, const py::object &progress) {
    RequireImage(dark, "dark");
    RequireImage(flat, "flat");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CLmrImage>(src, progress, [&](CLmrImage &t, int p) {
      std::vector<float> lo, hi, avr;
      for (int c = 0; c < flat->GetPlanes(); ++c) {
        const auto [l, h, a] = flat->GetMinMaxAvr(c);
        lo.push_back(float(l)), hi.push_back(float(h)), avr.push_back(float(a));
      }
      CheckStatus(t.DarkFlat(src.get(), dark.get(), flat.get(), lo.data(), hi.data(), avr.data(), offset, gamma, r, p),
                  "dark_flat");
    });
  }, py::arg("image"), py::arg("dark"), py::arg("flat"), py::arg("offset") = 0.0f, py::arg("gamma") = 0.0,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(), "Dark and flat in one pass.");

  py::enum_<DarkInterpolation>(m, "DarkInterpolation")
      .value("PROPORTION", DarkInterpolation::Proportion)
      .value("POWER", DarkInterpolation::Power)
      .value("SCORE", DarkInterpolation::Score);
  m.def("interpolate_dark", [](const ImagePtr &a, const ImagePtr &b, DarkInterpolation method,
                               std::pair<double, double> x_range, double x, std::pair<double, double> y_range,
                               double y, double y_scale, const py::object &progress) {
    RequireImage(b, "b");
    return Apply<CImgDark>(a, progress, [&](CImgDark &t, int p) {
      switch (method) {
        case DarkInterpolation::Proportion:
          t.DoInterpolateByProportion(b.get(), x_range.first, x_range.second, x, y_range.first, y_range.second, y, p);
          break;
        case DarkInterpolation::Power:
          t.DoInterpolateByPower(b.get(), x_range.first, x_range.second, x, y_range.first, y_range.second, y, y_scale, p);
          break;
        case DarkInterpolation::Score: t.DoInterpolateByScore(b.get(), x, x_range.first, x_range.second, p); break;
      }
    });
  }, py::arg("a"), py::arg("b"), py::arg("method"), py::arg("x_range"), py::arg("x"),
        py::arg("y_range") = std::make_pair(0.0, 1.0), py::arg("y") = 0.0, py::arg("y_scale") = 1.0,
        py::arg("progress") = py::none(),
        "A dark for quantity x (exposure) and y (temperature) from darks a and b taken at the ends of the ranges.");
}

}  // namespace qorpy
