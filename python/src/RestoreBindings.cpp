// Fourier transform and phase-only correlation, wavelets, and restoration
// (Richardson-Lucy, maximum entropy, Wiener).
#include <algorithm>

#include "Call.h"

namespace qorpy {

namespace {

// The transform size of an image or of its clipped rectangle, as the Fourier
// operator chooses it: sides rounded up to powers of two for the whole image,
// down for a rectangle.
std::pair<int, int> TransformSize(const CLmrImage &image, const Rect &rect) {
  if (!rect) return {CFftd::GetCeilPowerOf2(image.GetWidth()), CFftd::GetCeilPowerOf2(image.GetHeight())};
  const auto &r = *rect;
  const int w = std::min(std::max(r[0], r[2]), image.GetWidth()) - std::max(std::min(r[0], r[2]), 0);
  const int h = std::min(std::max(r[1], r[3]), image.GetHeight()) - std::max(std::min(r[1], r[3]), 0);
  if (w <= 0 || h <= 0) throw py::value_error("the rectangle does not meet the image");
  return {CFftd::GetFloorPowerOf2(w), CFftd::GetFloorPowerOf2(h)};
}

std::unique_ptr<CLmrImage> Blank(const CLmrImage &like, int width, int height, int planes) {
  auto out = std::make_unique<CLmrImage>(like.VmManager(), CImage::Float32, width, height, planes, 1.0, 0.0, 1,
                                         std::shared_ptr<lumora::Progress>());
  for (int p = 0; p < planes; ++p) out->CImage::SetLevel(p, like.GetLevelMin(std::min(p, like.GetPlanes() - 1)),
                                                         like.GetLevelMax(std::min(p, like.GetPlanes() - 1)));
  return out;
}

CArray<float, float> Weights(const std::vector<float> &values) {
  CArray<float, float> out;
  for (float v : values) out.Add(v);
  return out;
}

// Runs a restoration that works in place on a copy and answers 0 when it
// stopped or failed.
template <class Op, class F>
ImagePtr Restore(const ImagePtr &src, const py::object &progress, const char *name, F &&body) {
  return Apply<Op>(src, progress, [&](Op &t, int p) { CheckStatus(body(t, p), name); });
}

}  // namespace

void BindRestore(py::module_ &m) {
  m.def("phase_correlation", [](const ImagePtr &a, const ImagePtr &b, double sigma, const Rect &rect, bool surface,
                                const py::object &progress) {
    RequireImage(a, "a");
    RequireImage(b, "b");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    double dx = 0, dy = 0, peak = 0;
    int w = 0, h = 0;
    ImagePtr poc;
    Call call(progress);
    call.Run([&] {
      auto op = CopyOf<CImgFourier>(*a);
      call.Attach(*op);
      if (surface) poc = Blank(*a, a->GetWidth(), a->GetHeight(), 1);
      CheckStatus(op->CalcShiftByPOC(b.get(), poc.get(), sigma, r, dx, dy, peak, w, h, call.Reporting()),
                  "phase_correlation");
    });
    py::dict out;
    out["dx"] = dx, out["dy"] = dy, out["peak"] = peak;
    if (surface) out["surface"] = poc;
    return out;
  }, py::arg("a"), py::arg("b"), py::arg("sigma") = 0.0, py::arg("rect") = py::none(), py::arg("surface") = false,
        py::arg("progress") = py::none(),
        "{dx, dy, peak[, surface]}: the shift of b's content against a's, to a fraction of a pixel.");
  m.def("rotation_correlation", [](const ImagePtr &a, const ImagePtr &b, const Rect &rect, bool rows,
                                   const py::object &progress) {
    RequireImage(a, "a");
    RequireImage(b, "b");
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    double rotation = 0;
    int w = 0, h = 0;
    Call call(progress);
    call.Run([&] {
      auto op = CopyOf<CImgFourier>(*a);
      call.Attach(*op);
      CheckStatus(rows ? op->CalcRotByRIPOC_1D(b.get(), nullptr, nullptr, r, rotation, w, h, call.Reporting())
                       : op->CalcRotByRIPOC(b.get(), nullptr, nullptr, r, rotation, w, h, call.Reporting()),
                  "rotation_correlation");
    });
    return rotation;
  }, py::arg("a"), py::arg("b"), py::arg("rect") = py::none(), py::arg("rows") = false, py::arg("progress") = py::none(),
        "The rotation of b against a in degrees (within +-90), from log-polar amplitude spectra.");
  m.def("fft", [](const ImagePtr &re, const ImagePtr &im, bool inverse, bool re_im, bool window, const Rect &rect,
                  const py::object &progress) {
    RequireImage(re, "image");
    const auto [w, h] = TransformSize(*re, rect);
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    ImagePtr outRe, outIm;
    Call call(progress);
    call.Run([&] {
      auto op = CopyOf<CImgFourier>(*re);
      call.Attach(*op);
      outRe = Blank(*re, w, h, re->GetPlanes());
      outIm = Blank(*re, w, h, re->GetPlanes());
      CheckStatus(op->Do(inverse, re_im, window, im.get(), outRe.get(), outIm.get(), r, call.Reporting()), "fft");
    });
    return std::make_pair(outRe, outIm);
  }, py::arg("image"), py::arg("imag") = nullptr, py::kw_only(), py::arg("inverse") = false, py::arg("re_im") = true,
        py::arg("window") = false, py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "(real, imaginary) of the transform (amplitude and centred phase for a forward one with re_im=False).");
  m.def("log_polar", [](const ImagePtr &src, bool log_tone, const Rect &rect, const py::object &progress) {
    RequireImage(src, "image");
    const auto [w, h] = TransformSize(*src, rect);
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    ImagePtr out;
    Call call(progress);
    call.Run([&] {
      auto op = CopyOf<CImgFourier>(*src);
      call.Attach(*op);
      out = Blank(*src, w, h, src->GetPlanes());
      CheckStatus(op->DoLogPolar(out.get(), r, log_tone, call.Reporting()), "log_polar");
    });
    return out;
  }, py::arg("image"), py::arg("log_tone") = false, py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "Per plane the log-polar map of the amplitude spectrum.");

  m.def("wavelet", [](const ImagePtr &src, int order, int levels, float low, const std::vector<float> &hl,
                      const std::vector<float> &lh, const std::vector<float> &hh, const Rect &rect,
                      const py::object &progress) {
    if (levels < 1) throw py::value_error("levels must be at least 1");
    for (const auto *w : {&hl, &lh, &hh})
      if (w->size() < static_cast<std::size_t>(levels)) throw py::value_error("one weight per level in hl, lh and hh");
    CRect region = rect ? ToRect(*rect) : CRect(0, 0, src ? src->GetWidth() : 0, src ? src->GetHeight() : 0);
    auto whl = Weights(hl), wlh = Weights(lh), whh = Weights(hh);
    return Restore<CImgWavelet>(src, progress, "wavelet", [&](CImgWavelet &t, int p) {
      t.SetDaubechyParams(order);
      CRect size;
      t.CalcBufferSize(&region, levels, &size);
      auto buffer = Blank(*src, size.Width(), size.Height(), src->GetPlanes());
      t.CopyToBuffer(buffer.get(), src.get(), &region);
      if (!t.DoMultiResSubbandDecomposition(buffer.get(), levels, p)) return 0;
      if (!t.DoMultiResSubbandComposition(buffer.get(), levels, low, &whl, &wlh, &whh, p)) return 0;
      t.CopyFromBuffer(&t, &region, buffer.get());
      return 1;
    });
  }, py::arg("image"), py::arg("order"), py::arg("levels"), py::arg("low") = 1.0f, py::arg("hl"), py::arg("lh"),
        py::arg("hh"), py::arg("rect") = py::none(), py::arg("progress") = py::none(),
        "Daubechies sub-bands weighted per level (index 0 the finest; above 1 sharpens, below smooths).");
  m.def("lucy", [](const ImagePtr &src, double sigma, double adu, double noise, int iterations, const Rect &rect,
                   const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Restore<CImgLucy>(src, progress, "lucy", [&](CImgLucy &t, int p) { return t.Do(sigma, adu, noise, iterations, r, p); });
  }, py::arg("image"), py::arg("sigma"), py::arg("adu") = 1.0, py::arg("noise") = 0.0, py::arg("iterations") = 10,
        py::arg("rect") = py::none(), py::arg("progress") = py::none(), "Richardson-Lucy deconvolution of a Gaussian blur.");
  m.def("max_entropy", [](const ImagePtr &src, double sigma, double noise, int iterations, const Rect &rect,
                          const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Restore<CImgMem>(src, progress, "max_entropy", [&](CImgMem &t, int p) { return t.Do(sigma, noise, iterations, r, p); });
  }, py::arg("image"), py::arg("sigma"), py::arg("noise"), py::arg("iterations") = 10, py::arg("rect") = py::none(),
        py::arg("progress") = py::none(), "Maximum-entropy deconvolution of a Gaussian blur.");
  m.def("wiener", [](const ImagePtr &src, double radius, double noise, const Rect &rect, const py::object &progress) {
    CRect storage;
    CRect *r = RectOrNull(rect, storage);
    return Restore<CImgWiener>(src, progress, "wiener", [&](CImgWiener &t, int p) { return t.Do(radius, noise, r, p); });
  }, py::arg("image"), py::arg("radius"), py::arg("noise"), py::arg("rect") = py::none(),
        py::arg("progress") = py::none(), "Wiener deconvolution of a Gaussian blur of the given radius.");
}

}  // namespace qorpy
