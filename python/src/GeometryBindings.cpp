// Geometry: crop, flip, scroll, rotate, resize, resample, bin, mosaic and the
// longitude-latitude map of a disc. Each builds its own target.
#include "Call.h"

namespace qorpy {

namespace {

enum class Direction { Vertical = 0, Horizontal = 1 };
enum class Turn { CounterClockwise = 0, Clockwise = 1 };

std::vector<float> FillValues(const py::object &fill, const char *name) {
  if (fill.is_none()) return {0.0f, 0.0f, 0.0f};
  const auto v = PerPlane(fill, name);
  return {float(v[0]), float(v[1]), float(v[2])};
}

// An empty target on the source's store, for operators that make their target
// "like a" only when it is empty but read its geometry otherwise.
void MakeCanvas(CLmrImage &target, const CLmrImage &like, int width, int height) {
  CLmrImage canvas(like.VmManager(), CImage::Float32, width, height, like.GetPlanes(), 1.0, 0.0, 1,
                   std::shared_ptr<lumora::Progress>());
  for (int p = 0; p < like.GetPlanes(); ++p) canvas.CImage::SetLevel(p, like.GetLevelMin(p), like.GetLevelMax(p));
  target.Swap(&canvas);
}

}  // namespace

void BindGeometry(py::module_ &m) {
  py::enum_<CInterp::Method>(m, "Interp")
      .value("BILINEAR", CInterp::BilinearMethod)
      .value("BICUBIC", CInterp::BicubicMethod)
      .value("LANCZOS2", CInterp::Lanczos2Method)
      .value("LANCZOS3", CInterp::Lanczos3Method)
      .value("NEAREST", CInterp::NearestMethod);
  py::enum_<Direction>(m, "Direction").value("VERTICAL", Direction::Vertical).value("HORIZONTAL", Direction::Horizontal);
  py::enum_<Turn>(m, "Turn").value("COUNTER_CLOCKWISE", Turn::CounterClockwise).value("CLOCKWISE", Turn::Clockwise);

  m.def("crop", [](const ImagePtr &src, const std::array<int, 4> &rect, const py::object &progress) {
    RequireImage(src, "image");
    if (rect[0] < 0 || rect[1] < 0 || rect[2] > src->GetWidth() || rect[3] > src->GetHeight() || rect[0] >= rect[2] ||
        rect[1] >= rect[3])
      throw py::value_error("crop: the rectangle must be non-empty and lie in the image");
    return Build<CImgCrop>(src, progress, [&](CImgCrop &t, int p) { CheckStatus(t.Do(ToRect(rect), src.get(), p), "crop"); });
  }, py::arg("image"), py::arg("rect"), py::arg("progress") = py::none(),
        "The rectangle (left, top, right, bottom), which must lie in the image.");
  m.def("flip", [](const ImagePtr &src, Direction direction, const py::object &progress) {
    return Build<CImgFlip>(src, progress, [&](CImgFlip &t, int p) { t.Do(int(direction), src.get(), p); });
  }, py::arg("image"), py::arg("direction"), py::arg("progress") = py::none(),
        "Mirrored top to bottom (VERTICAL) or left to right (HORIZONTAL).");
  m.def("scroll", [](const ImagePtr &src, int amount, bool horizontal, const py::object &progress) {
    return Build<CImgScroll>(src, progress, [&](CImgScroll &t, int p) { t.Do(amount, horizontal, src.get(), p); });
  }, py::arg("image"), py::arg("amount"), py::arg("horizontal") = true, py::arg("progress") = py::none(),
        "A cyclic shift by `amount` columns (or rows).");
  m.def("rotate", [](const ImagePtr &src, double angle, unsigned long fill, bool expand, CInterp::Method method,
                     const py::object &progress) {
    return Build<CImgRotate>(src, progress, [&](CImgRotate &t, int p) {
      CheckStatus(t.Do(angle, fill, src.get(), expand, method, p), "rotate");
    });
  }, py::arg("image"), py::arg("angle"), py::arg("fill") = 0, py::arg("expand") = false,
        py::arg("method") = CInterp::BicubicMethod, py::arg("progress") = py::none(),
        "Turned by `angle` degrees counter-clockwise; fill is a colour, R in the low byte.");
  m.def("rotate90", [](const ImagePtr &src, Turn turn, const py::object &progress) {
    return Build<CImgRotate>(src, progress, [&](CImgRotate &t, int p) { CheckStatus(t.Do90(int(turn), src.get(), p), "rotate90"); });
  }, py::arg("image"), py::arg("turn") = Turn::CounterClockwise, py::arg("progress") = py::none());
  m.def("rotate180", [](const ImagePtr &src, const py::object &progress) {
    return Build<CImgRotate>(src, progress, [&](CImgRotate &t, int p) { t.Do180(src.get(), p); });
  }, py::arg("image"), py::arg("progress") = py::none());
  m.def("resize_canvas", [](const ImagePtr &src, int width, int height, int anchor, const py::object &fill,
                            const py::object &progress) {
    auto values = FillValues(fill, "fill");
    return Build<CImgResize>(src, progress, [&](CImgResize &t, int p) {
      CheckStatus(t.Do(width, height, anchor, values.data(), src.get(), p), "resize_canvas");
    });
  }, py::arg("image"), py::arg("width"), py::arg("height"), py::arg("anchor") = 0, py::arg("fill") = py::none(),
        py::arg("progress") = py::none(),
        "A new canvas without resampling, the frame at anchor 0 (top left) .. 8 (bottom right).");
  m.def("resample", [](const ImagePtr &src, int width, int height, std::optional<CInterp::Method> method,
                       const py::object &progress) {
    return Build<CImgResolution>(src, progress, [&](CImgResolution &t, int p) {
      CheckStatus(method ? t.DoChange(src.get(), width, height, *method, p) : t.Do(src.get(), width, height, p),
                  "resample");
    });
  }, py::arg("image"), py::arg("width"), py::arg("height"), py::arg("method") = py::none(),
        py::arg("progress") = py::none(), "Resampled to width x height (default: the bilinear operator).");
  m.def("soft_binning", [](const ImagePtr &src, int bin_x, int bin_y, bool ceil, bool scale_levels,
                           const py::object &progress) {
    return Build<CImgSoftBinning>(src, progress, [&](CImgSoftBinning &t, int p) {
      CheckStatus(t.Do(bin_x, bin_y, ceil, scale_levels, src.get(), p), "soft_binning");
    });
  }, py::arg("image"), py::arg("bin_x"), py::arg("bin_y"), py::arg("ceil") = false, py::arg("scale_levels") = false,
        py::arg("progress") = py::none(), "Blocks of bin_x x bin_y pixels summed into one.");
  m.def("mosaic", [](const ImagePtr &a, const ImagePtr &b, int width, int height, std::pair<int, int> a_shift,
                     std::pair<double, double> b_shift, double angle, int overlap, const py::object &back,
                     const py::object &fill, bool scale256, bool average, const Rect &rect, const py::object &progress) {
    RequireImage(b, "b");
    auto backs = FillValues(back, "back"), fills = FillValues(fill, "fill");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Build<CImgMosaic>(a, progress, [&](CImgMosaic &t, int p) {
      MakeCanvas(t, *a, width, height);
      t.Do(a.get(), a_shift.first, a_shift.second, b.get(), b_shift.first, b_shift.second, angle, overlap,
           backs.data(), fills.data(), scale256, average, r, p);
    });
  }, py::arg("a"), py::arg("b"), py::arg("width"), py::arg("height"), py::arg("a_shift") = std::make_pair(0, 0),
        py::arg("b_shift") = std::make_pair(0.0, 0.0), py::arg("angle") = 0.0, py::arg("overlap") = 0,
        py::arg("back") = py::none(), py::arg("fill") = py::none(), py::arg("scale256") = false,
        py::arg("average") = false, py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "a (whole-pixel shift) and b (sub-pixel shift, turned) joined on a width x height canvas.");
  m.def("expansion", [](const ImagePtr &src, int width, int height, std::pair<double, double> center, double radius,
                        double azimuth, double altitude, bool grid, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Build<CImgExpansion>(src, progress, [&](CImgExpansion &t, int p) {
      MakeCanvas(t, *src, width, height);
      t.Do(src.get(), center.first, center.second, radius, azimuth, altitude, 0.0, grid, r, p);
    });
  }, py::arg("image"), py::arg("width"), py::arg("height"), py::arg("center"), py::arg("radius"),
        py::arg("azimuth") = 0.0, py::arg("altitude") = 0.0, py::arg("grid") = false, py::arg("rect") = py::none(),
        py::arg("progress") = py::none(), "The disc of a sphere mapped to a width x height longitude-latitude map.");
}

}  // namespace qorpy
