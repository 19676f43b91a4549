// The steps of the command's workflow (masters, calibration, registration,
// stacking, stretch) in the submodule `workflow`.
// Frames are Images or FITS paths; a path is read band by band, through the
// calibration when one is given, so that a stack never holds whole frames.
#include <cmath>
#include <cstring>

#include "Call.h"
#include "FrameSource.h"
#include "Register.h"
#include "Stack.h"
#include "Stretch.h"
#include "io/Fits.h"
#ifdef QORIMG_PY_CALIBRATE
#include "Calibrate.h"
#endif
#ifdef QORIMG_PY_MASTERS
#include "Masters.h"
#endif

namespace qorpy {

namespace wf = qorimg::workflow;
namespace io = qorimg::io;

namespace {

std::shared_ptr<CVmManager> DefaultManager() { return MakeManager("whole-plane", std::nullopt); }

// Masters and the arithmetic of the calibration, read from FITS paths once.
struct Calibration {
  ImagePtr bias, dark, flat;
  double darkExposure = 0, pedestal = 0;
  bool scaleDark = false, cfa = false;
};

// The workflow's calibration of `light` in place, with masters that cover it.
void ApplyCalibration(CLmrImage &light, double exposure, const Calibration &c, const CLmrImage *bias,
                      const CLmrImage *dark, const CLmrImage *flat) {
#ifdef QORIMG_PY_CALIBRATE
  wf::CalibrationOptions o;
  o.bias = bias, o.dark = dark, o.flat = flat;
  o.darkExposure = c.darkExposure, o.pedestal = c.pedestal, o.cfa = c.cfa;
  o.darkScale = c.scaleDark ? wf::DarkScale::Exposure : wf::DarkScale::None;
  wf::Calibrate(light, exposure, o);
#else
  throw std::invalid_argument("calibration: this build's workflow has no calibration step");
#endif
}

void ApplyCalibration(CLmrImage &light, double exposure, const Calibration &c) {
  ApplyCalibration(light, exposure, c, c.bias.get(), c.dark.get(), c.flat.get());
}

// A FITS frame read band by band, calibrated band by band when asked: the
// calibration is pixel by pixel, so a band of the masters gives the same
// values as the whole frame.
class FitsSource : public wf::FrameSource {
public:
  FitsSource(const std::string &path, std::shared_ptr<const Calibration> calibration)
      : info_(io::ReadFitsInfo(path)), calibration_(std::move(calibration)) {
    exposure_ = info_.header.Number("EXPTIME").value_or(info_.header.Number("EXPOSURE").value_or(0.0));
  }
  int Width() const override { return info_.width; }
  int Height() const override { return info_.height; }
  int Planes() const override { return info_.planes; }
  double Exposure() const override { return exposure_; }
  std::string Name() const override { return info_.path; }
  void ReadRows(int top, int rows, float *dst) override {
    io::ReadFitsRows(info_, top, rows, dst);
    if (!calibration_) return;
    const auto &c = *calibration_;
    auto band = Band(dst, top, rows, info_.planes);
    const CRect rect(0, top, Width(), top + rows);
    auto rowsOf = [&](const ImagePtr &master) { return master ? master->Crop(rect) : nullptr; };
    const auto bias = rowsOf(c.bias), dark = rowsOf(c.dark), flat = rowsOf(c.flat);
    ApplyCalibration(*band, exposure_, c, bias.get(), dark.get(), flat.get());
    for (int p = 0; p < info_.planes; ++p)
      for (int y = 0; y < rows; ++y)
        std::memcpy(dst + (std::size_t(p) * rows + y) * Width(), band->GetImageAdr(0, y, p, CImage::ReadOnly),
                    sizeof(float) * std::size_t(Width()));
  }

private:
  std::unique_ptr<CLmrImage> Band(const float *data, int, int rows, int planes) const {
    auto band = std::make_unique<CLmrImage>(DefaultManager(), CImage::Float32, Width(), rows, planes, 1.0, 0.0, 1,
                                            std::shared_ptr<lumora::Progress>());
    for (int p = 0; p < planes; ++p)
      for (int y = 0; y < rows; ++y)
        std::memcpy(band->GetImageAdr(0, y, p), data + (std::size_t(p) * rows + y) * Width(),
                    sizeof(float) * std::size_t(Width()));
    return band;
  }

  io::FitsInfo info_;
  std::shared_ptr<const Calibration> calibration_;
  double exposure_ = 0;
};

// Frames given as Images or paths, as sources the workflow reads.
struct Sources {
  std::vector<std::unique_ptr<wf::FrameSource>> owned;
  std::vector<ImagePtr> images;  // kept alive for the image sources
  std::vector<wf::FrameSource *> list;

  Sources(const py::iterable &frames, const std::shared_ptr<const Calibration> &calibration) {
    for (const auto &item : frames) {
      if (py::isinstance<CLmrImage>(item)) {
        auto image = item.cast<ImagePtr>();
        images.push_back(image);
        owned.push_back(std::make_unique<wf::ImageSource>(*image));
      } else {
        owned.push_back(std::make_unique<FitsSource>(PathOf(py::reinterpret_borrow<py::object>(item)), calibration));
      }
      list.push_back(owned.back().get());
    }
    if (list.empty()) throw py::value_error("no frames");
  }
};

std::shared_ptr<const Calibration> CalibrationFrom(const py::object &spec) {
  if (spec.is_none()) return nullptr;
  auto c = std::make_shared<Calibration>();
  const auto d = spec.cast<py::dict>();
  auto master = [&](const char *key) -> ImagePtr {
    if (!d.contains(key) || d[key].is_none()) return nullptr;
    py::object v = d[key];
    if (py::isinstance<CLmrImage>(v)) return v.cast<ImagePtr>();
    const std::string path = PathOf(v);
    py::gil_scoped_release release;
    return ImagePtr(io::ReadFits(path, DefaultManager()));
  };
  c->bias = master("bias"), c->dark = master("dark"), c->flat = master("flat");
  if (d.contains("dark_exposure")) c->darkExposure = d["dark_exposure"].cast<double>();
  if (d.contains("pedestal")) c->pedestal = d["pedestal"].cast<double>();
  if (d.contains("scale_dark")) c->scaleDark = d["scale_dark"].cast<bool>();
  if (d.contains("cfa")) c->cfa = d["cfa"].cast<bool>();
  return c;
}

std::vector<wf::Placement> PlacementsFrom(const py::object &placements, std::size_t count) {
  std::vector<wf::Placement> out(count);
  if (placements.is_none()) return out;
  out.clear();
  for (const auto &item : placements) {
    if (py::isinstance<wf::Placement>(item)) {
      out.push_back(item.cast<wf::Placement>());
      continue;
    }
    const auto v = item.cast<std::vector<double>>();
    if (v.size() < 2 || v.size() > 3) throw py::value_error("a placement is (dx, dy[, rotation])");
    wf::Placement p;
    p.dx = v[0], p.dy = v[1], p.rotationDeg = v.size() == 3 ? v[2] : 0.0;
    out.push_back(p);
  }
  if (out.size() != count) throw py::value_error("one placement per frame");
  return out;
}

wf::StackOptions StackOptionsFrom(wf::Combine combine, double kappa, bool discard, wf::Normalization norm,
                                  wf::Interpolation interp, int bandRows, std::size_t memory) {
  wf::StackOptions o;
  o.combine = combine, o.kappa = kappa, o.discard = discard, o.norm = norm, o.interp = interp;
  o.bandRows = bandRows, o.memoryBytes = memory;
  return o;
}

// The workflow's progress and cancellation through a Call.
wf::Control ControlOf(Call &call) {
  wf::Control control;
  control.progress = [&call](int, int, double fraction) { call.Update(static_cast<int>(fraction * 100)); };
  control.cancelled = [&call] { return call.Poll(); };
  return control;
}

// Runs a workflow step. The step is cancelled only after the call recorded a
// Python error (Ctrl-C, or the callback's exception), which the call raises.
template <class F>
auto Step(Call &call, F &&f) {
  return call.Run([&] {
    try {
      return f();
    } catch (const wf::Cancelled &) {
      return decltype(f()){};
    }
  });
}

}  // namespace

void BindWorkflow(py::module_ &m) {
  auto w = m.def_submodule("workflow", "The steps of the command: masters, calibrate, register, stack, stretch.");
  py::enum_<wf::Combine>(w, "Combine")
      .value("AUTO", wf::Combine::Auto)
      .value("MEDIAN", wf::Combine::Median)
      .value("SIGMA", wf::Combine::Sigma)
      .value("MEAN", wf::Combine::Mean)
      .value("MIN", wf::Combine::Min)
      .value("MAX", wf::Combine::Max);
  py::enum_<wf::Normalization>(w, "Normalization")
      .value("NONE", wf::Normalization::None)
      .value("ADD", wf::Normalization::Add)
      .value("MUL", wf::Normalization::Mul)
      .value("ADD_SCALE", wf::Normalization::AddScale);
  py::enum_<wf::Interpolation>(w, "Interpolation")
      .value("BILINEAR", wf::Interpolation::Bilinear)
      .value("BICUBIC", wf::Interpolation::Bicubic)
      .value("LANCZOS3", wf::Interpolation::Lanczos3);
  py::enum_<wf::LevelsMode>(w, "LevelsMode")
      .value("HISTOGRAM", wf::LevelsMode::Histogram)
      .value("MEDIAN", wf::LevelsMode::Median)
      .value("NORMAL", wf::LevelsMode::Normal)
      .value("FIXED", wf::LevelsMode::Fixed);
  py::class_<wf::Placement>(w, "Placement", "Where a frame lies against the reference.")
      .def(py::init([](double dx, double dy, double rotation) {
        wf::Placement p;
        p.dx = dx, p.dy = dy, p.rotationDeg = rotation;
        return p;
      }), py::arg("dx") = 0.0, py::arg("dy") = 0.0, py::arg("rotation") = 0.0)
      .def_readwrite("dx", &wf::Placement::dx)
      .def_readwrite("dy", &wf::Placement::dy)
      .def_readwrite("rotation", &wf::Placement::rotationDeg)
      .def_readwrite("peak", &wf::Placement::peak)
      .def_readwrite("ok", &wf::Placement::ok)
      .def_readwrite("reason", &wf::Placement::reason)
      .def(py::pickle([](const wf::Placement &p) { return py::make_tuple(p.dx, p.dy, p.rotationDeg, p.peak, p.ok, p.reason); },
                      [](const py::tuple &t) {
                        wf::Placement p;
                        p.dx = t[0].cast<double>(), p.dy = t[1].cast<double>(), p.rotationDeg = t[2].cast<double>();
                        p.peak = t[3].cast<double>(), p.ok = t[4].cast<bool>(), p.reason = t[5].cast<std::string>();
                        return p;
                      }))
      .def("__repr__", [](const wf::Placement &p) {
        return "Placement(dx=" + std::to_string(p.dx) + ", dy=" + std::to_string(p.dy) +
               ", rotation=" + std::to_string(p.rotationDeg) + (p.ok ? ")" : ", failed: " + p.reason + ")");
      });

#ifdef QORIMG_PY_MASTERS
  py::enum_<wf::MasterKind>(w, "MasterKind")
      .value("BIAS", wf::MasterKind::Bias)
      .value("DARK", wf::MasterKind::Dark)
      .value("FLAT", wf::MasterKind::Flat);
  w.def("build_master", [](wf::MasterKind kind, const py::iterable &frames, wf::Combine combine, double kappa,
                           wf::Normalization norm, const ImagePtr &bias, const ImagePtr &dark, bool cfa,
                           const py::object &progress) {
    Sources sources(frames, nullptr);
    wf::MasterOptions o;
    o.combine = combine, o.kappa = kappa, o.norm = norm, o.bias = bias.get(), o.dark = dark.get(), o.cfa = cfa;
    Call call(progress);
    auto control = ControlOf(call);
    auto result = Step(call, [&] { return wf::BuildMaster(kind, sources.list, o, DefaultManager(), control); });
    py::dict out;
    out["image"] = ImagePtr(std::move(result.image));
    out["combine"] = result.used, out["why"] = result.why, out["exposure"] = result.exposure;
    return out;
  }, py::arg("kind"), py::arg("frames"), py::kw_only(), py::arg("combine") = wf::Combine::Auto,
        py::arg("kappa") = 3.0, py::arg("norm") = wf::Normalization::None, py::arg("bias") = nullptr,
        py::arg("dark") = nullptr, py::arg("cfa") = false, py::arg("progress") = py::none(),
        "{image, combine, why, exposure}: a master bias, dark or flat from frames (Images or FITS paths).");
#endif
#ifdef QORIMG_PY_CALIBRATE
  w.def("calibrate", [](const ImagePtr &light, double exposure, const py::dict &calibration) {
    RequireImage(light, "light");
    auto c = CalibrationFrom(calibration);
    py::gil_scoped_release release;
    auto out = light->Clone();
    ApplyCalibration(*out, exposure, *c);
    return ImagePtr(std::move(out));
  }, py::arg("light"), py::arg("exposure") = 0.0, py::arg("calibration") = py::dict(),
        "(light - bias - k dark) / flat + pedestal; calibration: {bias, dark, flat (Images or paths), dark_exposure, "
        "scale_dark, pedestal, cfa}.");
#endif
#ifdef QORIMG_PY_REGISTER
  py::enum_<wf::RegisterMethod>(w, "RegisterMethod")
      .value("POC", wf::RegisterMethod::Poc)
      .value("POC_ROTATION", wf::RegisterMethod::PocRotation);
  w.def("register", [](const ImagePtr &reference, const py::iterable &frames, wf::RegisterMethod method,
                       std::pair<int, int> region, const py::object &calibration, const py::object &progress) {
    RequireImage(reference, "reference");
    wf::RegisterOptions o;
    o.method = method, o.regionW = region.first, o.regionH = region.second;
    auto c = CalibrationFrom(calibration);
    std::vector<py::object> items;
    for (const auto &f : frames) items.push_back(py::reinterpret_borrow<py::object>(f));
    std::vector<std::string> paths(items.size());
    std::vector<ImagePtr> images(items.size());
    for (std::size_t i = 0; i < items.size(); ++i)
      py::isinstance<CLmrImage>(items[i]) ? void(images[i] = items[i].cast<ImagePtr>()) : void(paths[i] = PathOf(items[i]));
    Call call(progress);
    return call.Run([&] {
      wf::Registrar registrar(*reference, o, DefaultManager());
      std::vector<wf::Placement> out;
      for (std::size_t i = 0; i < items.size() && !call.Stopped(); ++i) {
        ImagePtr frame = images[i];
        if (!frame) {
          frame = ImagePtr(io::ReadFits(paths[i], DefaultManager()));
          if (c) ApplyCalibration(*frame, FitsSource(paths[i], nullptr).Exposure(), *c);
        }
        out.push_back(registrar.Measure(*frame));
        call.Update(static_cast<int>((i + 1) * 100 / items.size()));
      }
      return out;
    });
  }, py::arg("reference"), py::arg("frames"), py::kw_only(), py::arg("method") = wf::RegisterMethod::PocRotation,
        py::arg("region") = std::make_pair(0, 0), py::arg("calibration") = py::none(), py::arg("progress") = py::none(),
        "The placement of each frame (Image, or FITS path calibrated by `calibration`) against the reference.");
#endif
  w.def("measure_normalization", [](const py::iterable &frames, wf::Normalization norm, const py::object &calibration) {
    Sources sources(frames, CalibrationFrom(calibration));
    Call call;
    auto norms = Step(call, [&] { return wf::MeasureNormalization(sources.list, norm); });
    std::vector<std::pair<double, double>> out;
    for (const auto &n : norms) out.emplace_back(n.offset, n.scale);
    return out;
  }, py::arg("frames"), py::arg("norm") = wf::Normalization::AddScale, py::arg("calibration") = py::none(),
        "(offset, scale) of each frame against the first.");
  w.def("stack", [](const py::iterable &frames, const py::object &placements, wf::Combine combine, double kappa,
                    bool discard, wf::Normalization norm, wf::Interpolation interp, int band_rows, std::size_t memory,
                    const py::object &calibration, const py::object &progress) {
    Sources sources(frames, CalibrationFrom(calibration));
    const auto at = PlacementsFrom(placements, sources.list.size());
    const auto o = StackOptionsFrom(combine, kappa, discard, norm, interp, band_rows, memory);
    Call call(progress);
    auto control = ControlOf(call);
    auto result = Step(call, [&] { return wf::Stack(sources.list, at, o, DefaultManager(), control); });
    py::dict out;
    out["image"] = ImagePtr(std::move(result.image));
    out["rejected_percent"] = result.rejectedPercent, out["frames"] = result.frames;
    out["live_time"] = result.liveTime, out["band_rows"] = result.bandRows;
    return out;
  }, py::arg("frames"), py::arg("placements") = py::none(), py::kw_only(), py::arg("combine") = wf::Combine::Sigma,
        py::arg("kappa") = 3.0, py::arg("discard") = false, py::arg("norm") = wf::Normalization::AddScale,
        py::arg("interp") = wf::Interpolation::Bicubic, py::arg("band_rows") = 0, py::arg("memory") = 0,
        py::arg("calibration") = py::none(), py::arg("progress") = py::none(),
        "{image, rejected_percent, frames, live_time, band_rows}: the frames stacked band by band.");
  w.def("stack_band", [](const py::iterable &frames, const py::object &placements,
                         const std::vector<std::pair<double, double>> &norms, int top, int rows, wf::Combine combine,
                         double kappa, bool discard, wf::Normalization norm, wf::Interpolation interp,
                         const py::object &calibration) {
    Sources sources(frames, CalibrationFrom(calibration));
    const auto at = PlacementsFrom(placements, sources.list.size());
    if (norms.size() != sources.list.size()) throw py::value_error("one (offset, scale) per frame");
    std::vector<wf::FrameNorm> fn;
    for (const auto &[offset, scale] : norms) fn.push_back({offset, scale});
    const auto o = StackOptionsFrom(combine, kappa, discard, norm, interp, 0, 0);
    const int width = sources.list[0]->Width(), planes = sources.list[0]->Planes();
    if (top < 0 || rows < 1 || top + rows > sources.list[0]->Height()) throw py::value_error("rows outside the frame");
    std::vector<float> band;
    {
      py::gil_scoped_release release;
      band = wf::StackBand(sources.list, at, fn, o, top, rows);
    }
    py::array_t<float> out({py::ssize_t(planes), py::ssize_t(rows), py::ssize_t(width)});
    std::memcpy(out.mutable_data(), band.data(), band.size() * sizeof(float));
    return out;
  }, py::arg("frames"), py::arg("placements"), py::arg("norms"), py::arg("top"), py::arg("rows"), py::kw_only(),
        py::arg("combine") = wf::Combine::Sigma, py::arg("kappa") = 3.0, py::arg("discard") = false,
        py::arg("norm") = wf::Normalization::AddScale, py::arg("interp") = wf::Interpolation::Bicubic,
        py::arg("calibration") = py::none(),
        "Rows top..top+rows-1 of the stack (planes, rows, width), reading only the rows each frame needs.");
  w.def("stretch", [](const ImagePtr &stacked, wf::LevelsMode levels, double black, double white,
                      double develop_sigma) {
    RequireImage(stacked, "image");
    wf::StretchOptions o;
    o.levels = levels, o.black = black, o.white = white, o.developSigma = develop_sigma;
    py::gil_scoped_release release;
    auto s = wf::Stretch(*stacked, o, DefaultManager());
    return std::make_tuple(ImagePtr(std::move(s.image)), s.black, s.white);
  }, py::arg("image"), py::arg("levels") = wf::LevelsMode::Median, py::arg("black") = 0.0, py::arg("white") = 0.0,
        py::arg("develop_sigma") = 0.0, "(image, black, white): the display stretch of a stack.");
}

}  // namespace qorpy
