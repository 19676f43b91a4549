// Composites of two frames, and the band-by-band stacker with its one-call form.
#include <algorithm>

#include "Call.h"

namespace qorpy {

namespace {

enum class CompositeMode {
  Average = 0, Add = 1, Weight = 2, Subtract = 3, Multiply = 4, Divide = 5, Difference = 6, Brighter = 7,
  Darker = 8, Neighbour = 9, KeepA = 10
};
enum class Combine { Median, Sigma, SigmaNormalized, Max, Min };

// A frame's move in a stack: shift (dx, dy) and rotation in degrees.
struct Placement {
  double dx = 0, dy = 0, rotation = 0;
};

Placement PlacementOf(const py::handle &item) {
  const auto v = item.cast<std::vector<double>>();
  if (v.size() != 2 && v.size() != 3) throw py::value_error("a placement is (dx, dy) or (dx, dy, rotation)");
  return {v[0], v[1], v.size() == 3 ? v[2] : 0.0};
}

// The stacker: a target of the first frame's geometry and the store of bands.
class Stacker {
public:
  Stacker(const ImagePtr &like, int frames, int bandRows) : frames_(frames), bandRows_(bandRows) {
    RequireImage(like, "like");
    if (frames < 1 || bandRows < 1) throw py::value_error("frames and band_rows must be at least 1");
    py::gil_scoped_release release;
    target_ = ShapeOf<CLmrImage>(*like);
    op_ = std::make_unique<CImgMedianComposit>(target_.get(), 0);
    if (!op_->AllocateStoreBuffer(target_.get(), frames, bandRows - 1)) throw std::bad_alloc();
  }

  void SetNormalization(const std::vector<std::array<double, 3>> &offsets,
                        const std::vector<std::array<double, 3>> &scales, std::array<double, 3> refOffset,
                        std::array<double, 3> refScale) {
    if (offsets.size() != static_cast<std::size_t>(frames_) || scales.size() != offsets.size())
      throw py::value_error("one offset and one scale triple per frame");
    for (std::size_t i = 0; i < offsets.size(); ++i) {
      auto o = offsets[i], s = scales[i];
      op_->AddNormalizeParam(o.data(), s.data());
    }
    op_->SetRefNormalizeParam(refOffset.data(), refScale.data());
  }

  void Store(int frame, const ImagePtr &image, int top, int stop, const Placement &at, CInterp::Method interp,
             const std::optional<std::array<float, 3>> &offset, bool aroundStdPoints) {
    RequireImage(image, "image");
    if (frame < 0 || frame >= frames_) throw py::value_error("frame index out of range");
    if (top < 0 || stop <= top || stop - top > bandRows_ || stop > target_->GetHeight())
      throw py::value_error("rows must satisfy 0 <= top < stop <= height and stop - top <= band_rows");
    std::array<float, 3> add = offset.value_or(std::array<float, 3>{0, 0, 0});
    int status;
    {
      py::gil_scoped_release release;
      status = op_->Store(frame, image.get(), top, stop - 1, at.dx, at.dy, at.rotation, aroundStdPoints,
                          offset.has_value(), add.data(), interp);
    }
    if (!status) throw py::value_error("the stacker refused the frame (no sample, or a move that is not finite)");
  }

  void Reduce(Combine how, double kappa, bool discard, int top, int stop) {
    if (top < 0 || stop <= top || stop - top > bandRows_ || stop > target_->GetHeight())
      throw py::value_error("rows must satisfy 0 <= top < stop <= height and stop - top <= band_rows");
    py::gil_scoped_release release;
    ReduceReleased(how, kappa, discard, top, stop);
  }

  void ReduceReleased(Combine how, double kappa, bool discard, int top, int stop) {
    const int bottom = stop - 1;
    switch (how) {
      case Combine::Median: op_->MedianCalc(top, bottom); break;
      case Combine::Sigma: op_->Calc(kappa, top, bottom, discard); break;
      case Combine::SigmaNormalized: op_->SigmaCalc(kappa, top, bottom); break;
      case Combine::Max: op_->CalcMax(top, bottom); break;
      case Combine::Min: op_->CalcMin(top, bottom); break;
    }
  }

  CImgMedianComposit &Op() { return *op_; }
  ImagePtr Result() const { return target_; }
  int BandRows() const { return bandRows_; }

private:
  int frames_, bandRows_;
  ImagePtr target_;
  std::unique_ptr<CImgMedianComposit> op_;
};

ImagePtr Stack(const std::vector<ImagePtr> &frames, const py::object &placements, Combine how, double kappa,
               bool discard, CInterp::Method interp, int bandRows, const py::object &progress) {
  if (frames.empty()) throw py::value_error("stack needs at least one frame");
  for (const auto &f : frames) RequireImage(f, "frame");
  std::vector<Placement> at(frames.size());
  if (!placements.is_none()) {
    std::size_t i = 0;
    for (const auto &item : placements) {
      if (i == at.size()) throw py::value_error("one placement per frame");
      at[i++] = PlacementOf(item);
    }
    if (i != at.size()) throw py::value_error("one placement per frame");
  }
  if (how == Combine::SigmaNormalized) throw py::value_error("stack: use a Stacker with set_normalization for SIGMA_NORMALIZED");
  const int height = frames[0]->GetHeight();
  Stacker stacker(frames[0], static_cast<int>(frames.size()), std::clamp(bandRows, 1, std::max(height, 1)));
  Call call(progress);
  const int rows = stacker.BandRows();
  for (int top = 0; top < height; top += rows) {
    const int stop = std::min(height, top + rows);
    bool stored = true;
    call.Run([&] {
      for (std::size_t i = 0; i < frames.size() && stored; ++i)
        stored = stacker.Op().Store(static_cast<int>(i), frames[i].get(), top, stop - 1, at[i].dx, at[i].dy,
                                    at[i].rotation, 0, 0, nullptr, interp) != 0;
      if (stored) stacker.ReduceReleased(how, kappa, discard, top, stop);
    });
    if (!stored) throw py::value_error("stack: a frame was refused (another size, or a move that is not finite)");
    call.Update(static_cast<int>(static_cast<long long>(stop) * 100 / height));
    if (call.Poll()) call.Run([] {});  // raises the interrupt
  }
  return stacker.Result();
}

}  // namespace

void BindComposite(py::module_ &m) {
  py::enum_<CompositeMode>(m, "CompositeMode")
      .value("AVERAGE", CompositeMode::Average)
      .value("ADD", CompositeMode::Add)
      .value("WEIGHT", CompositeMode::Weight)
      .value("SUBTRACT", CompositeMode::Subtract)
      .value("MULTIPLY", CompositeMode::Multiply)
      .value("DIVIDE", CompositeMode::Divide)
      .value("DIFFERENCE", CompositeMode::Difference)
      .value("BRIGHTER", CompositeMode::Brighter)
      .value("DARKER", CompositeMode::Darker)
      .value("NEIGHBOUR", CompositeMode::Neighbour)
      .value("KEEP_A", CompositeMode::KeepA);
  m.def("composite", [](const ImagePtr &a, const ImagePtr &b, CompositeMode mode, double dx, double dy,
                        double rotation, CInterp::Method interp, double weight, bool level, bool cut_minus,
                        double threshold, int radius, bool about_std_points, const Rect &rect,
                        const py::object &progress) {
    RequireImage(b, "b");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Apply<CImgComposit>(a, progress, [&](CImgComposit &t, int p) {
      t.Do(a.get(), b.get(), dx, dy, rotation, about_std_points, int(mode), interp, weight, level, cut_minus,
           threshold, radius, r, p, -1);
    });
  }, py::arg("a"), py::arg("b"), py::arg("mode") = CompositeMode::Average, py::kw_only(), py::arg("dx") = 0.0,
        py::arg("dy") = 0.0, py::arg("rotation") = 0.0, py::arg("interp") = CInterp::BicubicMethod,
        py::arg("weight") = 0.5, py::arg("level") = false, py::arg("cut_minus") = false, py::arg("threshold") = 0.95,
        py::arg("radius") = 0, py::arg("about_std_points") = false, py::arg("rect") = py::none(),
        py::arg("progress") = py::none(), "a and b (moved by dx, dy and turned by rotation degrees) joined pixel by pixel.");

  py::enum_<Combine>(m, "Combine")
      .value("MEDIAN", Combine::Median)
      .value("SIGMA", Combine::Sigma)
      .value("SIGMA_NORMALIZED", Combine::SigmaNormalized)
      .value("MAX", Combine::Max)
      .value("MIN", Combine::Min);
  py::class_<Stacker>(m, "Stacker", "Stacks frames band by band into an image of `like`'s geometry and levels.")
      .def(py::init<const ImagePtr &, int, int>(), py::arg("like"), py::arg("frames"), py::arg("band_rows"))
      .def("set_normalization", &Stacker::SetNormalization, py::arg("offsets"), py::arg("scales"),
           py::arg("ref_offset"), py::arg("ref_scale"), "Per frame (and for the reference) three offsets and scales.")
      .def("store", [](Stacker &s, int frame, const ImagePtr &image, int top, int stop, const py::object &placement,
                       CInterp::Method interp, const std::optional<std::array<float, 3>> &offset, bool about) {
        s.Store(frame, image, top, stop, placement.is_none() ? Placement{} : PlacementOf(placement), interp, offset, about);
      }, py::arg("frame"), py::arg("image"), py::arg("top"), py::arg("stop"), py::arg("placement") = py::none(),
           py::arg("interp") = CInterp::BicubicMethod, py::arg("offset") = py::none(),
           py::arg("about_std_points") = false, "Rows top..stop-1 of the frame, moved by (dx, dy[, rotation]).")
      .def("combine", [](Stacker &s, int top, int stop, Combine how, double kappa, bool discard) {
        s.Reduce(how, kappa, discard, top, stop);
      }, py::arg("top"), py::arg("stop"), py::arg("method") = Combine::Median, py::arg("kappa") = 3.0,
           py::arg("discard") = false, "Rows top..stop-1 of the result from the stored bands.")
      .def_property_readonly("result", &Stacker::Result)
      .def_property_readonly("band_rows", &Stacker::BandRows);
  m.def("stack", &Stack, py::arg("frames"), py::arg("placements") = py::none(), py::kw_only(),
        py::arg("method") = Combine::Median, py::arg("kappa") = 3.0, py::arg("discard") = false,
        py::arg("interp") = CInterp::BicubicMethod, py::arg("band_rows") = 256, py::arg("progress") = py::none(),
        "Frames stacked pixel by pixel band by band; placements (dx, dy[, rotation]) per frame.");
}

}  // namespace qorpy
