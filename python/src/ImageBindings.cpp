// Image: numpy arrays in and out, zero-copy plane views, levels, statistics,
// the whole-image edits, and CImgCalculation.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "Call.h"

namespace qorpy {

namespace {

// Layout of an array: planes, height, width and the element steps of each.
struct Layout {
  int planes, height, width;
  py::ssize_t planeStep, rowStep, colStep;
};

Layout LayoutOf(const py::array_t<float> &a) {
  const auto item = static_cast<py::ssize_t>(sizeof(float));
  if (a.ndim() == 2)
    return {1, static_cast<int>(a.shape(0)), static_cast<int>(a.shape(1)), 0, a.strides(0) / item, a.strides(1) / item};
  if (a.ndim() == 3 && a.shape(2) == 3)
    return {3, static_cast<int>(a.shape(0)), static_cast<int>(a.shape(1)), a.strides(2) / item, a.strides(0) / item,
            a.strides(1) / item};
  if (a.ndim() == 3 && a.shape(0) == 3)
    return {3, static_cast<int>(a.shape(1)), static_cast<int>(a.shape(2)), a.strides(0) / item, a.strides(1) / item,
            a.strides(2) / item};
  throw py::value_error("an image array is (H, W), (H, W, 3) or (3, H, W)");
}

void CheckDimensions(const py::array &a) {
  for (py::ssize_t i = 0; i < a.ndim(); ++i)
    if (a.shape(i) < 1 || a.shape(i) > std::numeric_limits<int>::max())
      throw py::value_error("every side of an image array must be between 1 and 2^31 - 1");
}

// Per-plane levels: the finite range of the samples (0..1 when none is finite).
void LevelsFromData(CLmrImage &image) {
  for (int p = 0; p < image.GetPlanes(); ++p) {
    double lo = std::numeric_limits<double>::infinity(), hi = -lo;
    for (int y = 0; y < image.GetHeight(); ++y) {
      const float *line = image.GetImageAdr(0, y, p, CImage::ReadOnly);
      for (int x = 0; x < image.GetWidth(); ++x)
        if (std::isfinite(line[x])) {
          lo = std::min(lo, double(line[x]));
          hi = std::max(hi, double(line[x]));
        }
    }
    if (lo > hi) lo = 0, hi = 1;
    image.CImage::SetLevel(p, lo, hi);
  }
}

void SetLevels(CLmrImage &image, const py::object &levels) {
  const auto seq = levels.cast<py::sequence>();
  std::vector<std::pair<double, double>> pairs;
  if (seq.size() == 2 && !py::isinstance<py::sequence>(seq[0]))
    pairs.emplace_back(seq[0].cast<double>(), seq[1].cast<double>());
  else
    pairs = levels.cast<std::vector<std::pair<double, double>>>();
  if (pairs.empty()) throw py::value_error("levels: one (low, high) pair, or one per plane");
  if (pairs.size() == 1) pairs.resize(static_cast<std::size_t>(image.GetPlanes()), pairs[0]);
  if (pairs.size() != static_cast<std::size_t>(image.GetPlanes()))
    throw py::value_error("levels: one (low, high) pair, or one per plane");
  for (int p = 0; p < image.GetPlanes(); ++p) image.CImage::SetLevel(p, pairs[p].first, pairs[p].second);
}

ImagePtr FromArray(const py::array &input, const std::string &store, std::optional<std::size_t> memory,
                   const py::object &levels) {
  const char kind = input.dtype().kind();
  if (kind != 'b' && kind != 'i' && kind != 'u' && kind != 'f')
    throw py::type_error(std::string("cannot make an image of dtype ") + py::str(input.dtype()).cast<std::string>());
  CheckDimensions(input);
  auto a = py::array_t<float>::ensure(input);  // a float32 copy unless it is one already
  if (!a) throw py::error_already_set();
  for (py::ssize_t i = 0; i < a.ndim(); ++i)
    if (a.strides(i) % py::ssize_t(sizeof(float)) != 0) {  // steps that are not whole samples
      a = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(a);
      break;
    }
  const Layout l = LayoutOf(a);
  auto manager = MakeManager(store, memory);
  const float *data = a.data();
  ImagePtr image;
  {
    py::gil_scoped_release release;
    image = std::make_shared<CLmrImage>(manager, CImage::Float32, l.width, l.height, l.planes, 1.0, 0.0, 1,
                                        std::shared_ptr<lumora::Progress>());
    for (int p = 0; p < l.planes; ++p)
      for (int y = 0; y < l.height; ++y) {
        float *line = image->GetImageAdr(0, y, p, CImage::Write);
        const float *row = data + p * l.planeStep + y * l.rowStep;
        if (l.colStep == 1)
          std::memcpy(line, row, sizeof(float) * static_cast<std::size_t>(l.width));
        else
          for (int x = 0; x < l.width; ++x) line[x] = row[x * l.colStep];
      }
    if (levels.is_none()) LevelsFromData(*image);
  }
  if (!levels.is_none()) SetLevels(*image, levels);
  return image;
}

py::array ToArray(const CLmrImage &image, const std::string &layout) {
  if (layout != "hwc" && layout != "chw") throw py::value_error("layout must be \"hwc\" or \"chw\"");
  const py::ssize_t w = image.GetWidth(), h = image.GetHeight(), planes = image.GetPlanes();
  py::array_t<float> out;
  if (planes == 1)
    out = py::array_t<float>({h, w});
  else if (layout == "hwc")
    out = py::array_t<float>({h, w, planes});
  else
    out = py::array_t<float>({planes, h, w});
  const Layout l = planes == 1 ? Layout{1, int(h), int(w), 0, w, 1}
                               : (layout == "hwc" ? Layout{int(planes), int(h), int(w), 1, w * planes, planes}
                                                  : Layout{int(planes), int(h), int(w), h * w, w, 1});
  float *data = out.mutable_data();
  py::gil_scoped_release release;
  for (int p = 0; p < l.planes; ++p)
    for (int y = 0; y < l.height; ++y) {
      const float *line = image.GetImageAdr(0, y, p, CImage::ReadOnly);
      float *row = data + p * l.planeStep + y * l.rowStep;
      if (l.colStep == 1)
        std::memcpy(row, line, sizeof(float) * static_cast<std::size_t>(l.width));
      else
        for (int x = 0; x < l.width; ++x) row[x * l.colStep] = line[x];
    }
  return out;
}

// A view of one plane of a whole-plane image; the array's base is the image
// object, which thereby stays alive as long as the view.
py::array PlaneView(const py::object &self, int plane) {
  auto &image = self.cast<CLmrImage &>();
  if (image.GetAllocationPolicy() != CVmManager::WholePlane)
    throw py::value_error("plane views need a whole-plane image; this one is block-stored (use to_array)");
  image.CheckPlane(plane);
  float *base = image.GetImageAdr(0, 0, plane, CImage::Write);
  const py::ssize_t rowStep = image.GetHeight() > 1
                                  ? reinterpret_cast<char *>(image.GetImageAdr(0, 1, plane, CImage::Write)) -
                                        reinterpret_cast<char *>(base)
                                  : py::ssize_t(sizeof(float)) * image.GetWidth();
  return py::array_t<float>({py::ssize_t(image.GetHeight()), py::ssize_t(image.GetWidth())},
                            {rowStep, py::ssize_t(sizeof(float))}, base, self);
}

py::list Levels(const CLmrImage &image) {
  py::list out;
  for (int p = 0; p < image.GetPlanes(); ++p) out.append(py::make_tuple(image.GetLevelMin(p), image.GetLevelMax(p)));
  return out;
}

py::tuple Histogram(CLmrImage &image, int bins, double low, double high, int plane, bool log, bool height, bool cull,
                    const Rect &rect, const py::object &progress) {
  if (bins < 0) throw py::value_error("bins must not be negative");
  py::array_t<int> counts(bins);
  int *data = counts.mutable_data();
  CRect storage;
  CRect *r = RectOrNull(rect, storage);
  Call call(progress);
  call.Attach(image);
  const int value = call.Run(
      [&] { return image.GetHistogram(data, bins, low, high, plane, log, height, cull, r, call.Reporting(), 0); });
  return py::make_tuple(std::move(counts), value);
}

enum class Threshold { Equal, NotEqual, Greater, Less, LessEqual };

ImagePtr ApplyThreshold(const ImagePtr &src, Threshold test, int plane, float threshold, float value) {
  return Apply<CLmrImage>(src, py::none(), [&](CLmrImage &t, int) {
    switch (test) {
      case Threshold::Equal: t.ThresholdEqual(plane, threshold, value); break;
      case Threshold::NotEqual: t.ThresholdNotEqual(plane, threshold, value); break;
      case Threshold::Greater: t.ThresholdGreaterThan(plane, threshold, value); break;
      case Threshold::Less: t.ThresholdLessThan(plane, threshold, value); break;
      case Threshold::LessEqual: t.ThresholdLessThanEqual(plane, threshold, value); break;
    }
  });
}

}  // namespace

void BindImage(py::module_ &m) {
  py::class_<CLmrImage, ImagePtr> image(m, "Image", "A frame of float planes on a whole-plane or block store.");
  image
      .def_static("from_array", &FromArray, py::arg("array"), py::arg("store") = "whole-plane",
                  py::arg("memory") = py::none(), py::arg("levels") = py::none(),
                  "Copies a (H, W), (H, W, 3) or (3, H, W) array of any numeric dtype into float planes. "
                  "memory: the block store's resident budget, or the whole-plane store's ceiling, in bytes. "
                  "levels: (low, high) or one pair per plane; default the data's finite range.")
      .def("to_array", &ToArray, py::arg("layout") = "hwc", "A float32 copy: (H, W), or (H, W, 3) / (3, H, W).")
      .def("plane", &PlaneView, py::arg("plane"), "Zero-copy float32 view of one plane of a whole-plane image.")
      .def("copy", [](const CLmrImage &self) -> ImagePtr {
        py::gil_scoped_release release;
        return ImagePtr(self.Clone());
      })
      .def_property_readonly("width", &CLmrImage::GetWidth)
      .def_property_readonly("height", &CLmrImage::GetHeight)
      .def_property_readonly("planes", &CLmrImage::GetPlanes)
      .def_property_readonly("shape", [](const CLmrImage &s) { return py::make_tuple(s.GetPlanes(), s.GetHeight(), s.GetWidth()); })
      .def_property_readonly("store", [](const CLmrImage &s) {
        return s.GetAllocationPolicy() == CVmManager::WholePlane ? "whole-plane" : "block";
      })
      .def_property("levels", &Levels, [](CLmrImage &s, const py::object &levels) { SetLevels(s, levels); },
                    "Per plane (low, high): the raw values shown as black and white.")
      .def("__repr__", [](const CLmrImage &s) {
        return "<qorimg.Image " + std::to_string(s.GetWidth()) + "x" + std::to_string(s.GetHeight()) + "x" +
               std::to_string(s.GetPlanes()) + ">";
      })
      // Statistics.
      .def("min_max", [](const CLmrImage &s, int plane) {
        s.CheckPlane(plane);
        py::gil_scoped_release release;
        return s.GetMinMax(plane);
      }, py::arg("plane") = 0)
      .def("min_max_mean", [](const CLmrImage &s, int plane) {
        s.CheckPlane(plane);
        py::gil_scoped_release release;
        return s.GetMinMaxAvr(plane);
      }, py::arg("plane") = 0)
      .def("min_max_mode", [](const CLmrImage &s, int plane, int bins, bool skipZero) {
        s.CheckPlane(plane);
        py::gil_scoped_release release;
        return s.GetMinMaxMode(plane, bins, skipZero);
      }, py::arg("plane") = 0, py::arg("bins") = 256, py::arg("skip_zero") = false)
      .def("mean", [](CLmrImage &s, int plane) {
        py::gil_scoped_release release;
        return s.GetAvrGrayRaw(plane);
      }, py::arg("plane") = 0)
      .def("calc_min_max", [](CLmrImage &s, int margin) {
        {
          py::gil_scoped_release release;
          s.CalcMinMax(margin);
        }
        std::vector<std::tuple<float, float, float>> out;
        for (int p = 0; p < std::min(s.GetPlanes(), 3); ++p)
          out.emplace_back(s.GetMinPixel(p), s.GetMaxPixel(p), s.GetAvrPixel(p));
        return out;
      }, py::arg("margin") = 0, "Per plane (minimum, maximum, average) as the image records them.")
      .def("histogram", &Histogram, py::arg("bins"), py::arg("low"), py::arg("high"), py::arg("plane") = 0,
           py::arg("log") = false, py::arg("height") = false, py::arg("cull") = false, py::arg("rect") = py::none(),
           py::arg("progress") = py::none(), "(counts, value): plane -1 bins the brightness.")
      .def("centroid", [](CLmrImage &s, const Rect &rect) {
        CRect storage;
        CRect *r = RectOrNull(rect, storage);
        double x = 0, y = 0;
        py::gil_scoped_release release;
        s.GetCentroidRaw(x, y, r);
        return std::make_pair(x, y);
      }, py::arg("rect") = py::none())
      .def("max_pixel", [](CLmrImage &s, int plane, const Rect &rect) {
        CRect storage;
        CRect *r = RectOrNull(rect, storage);
        int x = -1, y = -1;
        py::gil_scoped_release release;
        const float v = s.GetMaxPixel(plane, r, x, y);
        return std::make_tuple(v, x, y);
      }, py::arg("plane") = 0, py::arg("rect") = py::none(), "(value, x, y) of the brightest sample.")
      .def("first_brighter_pixel", [](CLmrImage &s, double threshold, int plane, const Rect &rect) {
        CRect storage;
        CRect *r = RectOrNull(rect, storage);
        int x = -1, y = -1;
        py::gil_scoped_release release;
        const float v = s.Get1stBrighterPixel(plane, r, threshold, x, y);
        return std::make_tuple(v, x, y);
      }, py::arg("threshold"), py::arg("plane") = 0, py::arg("rect") = py::none());

  py::enum_<Threshold>(m, "Threshold")
      .value("EQUAL", Threshold::Equal)
      .value("NOT_EQUAL", Threshold::NotEqual)
      .value("GREATER", Threshold::Greater)
      .value("LESS", Threshold::Less)
      .value("LESS_EQUAL", Threshold::LessEqual);
  m.def("threshold", &ApplyThreshold, py::arg("image"), py::arg("test"), py::arg("plane"), py::arg("threshold"),
        py::arg("value"), "Samples of `plane` passing the test against `threshold` set to `value`.");
  m.def("cut_out_of_level", [](const ImagePtr &src, bool zero) {
    return Apply<CLmrImage>(src, py::none(), [&](CLmrImage &t, int) { zero ? t.CutOutOfZeroLevel() : t.CutOutOfLevel(); });
  }, py::arg("image"), py::arg("zero") = false, "Samples clipped to the levels (to 0 and the top with zero=True).");

  py::enum_<CImgCalculation::CalcMode>(m, "CalcMode")
      .value("ADD", CImgCalculation::Add)
      .value("SUBTRACT", CImgCalculation::Subtract)
      .value("MULTIPLY", CImgCalculation::Multiply)
      .value("DIVIDE", CImgCalculation::Divide);
  m.def("calculate", [](const ImagePtr &src, double value, CImgCalculation::CalcMode mode, bool clip, const Rect &rect,
                        const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgCalculation>(src, progress, [&](CImgCalculation &t, int p) { t.Do(value, mode, clip, src.get(), r, p); });
  }, py::arg("image"), py::arg("value"), py::arg("mode") = CImgCalculation::Add, py::arg("clip") = false,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "The raw samples plus, minus, times or divided by `value` (clip: subtraction stops at 0).");
}

}  // namespace qorpy
