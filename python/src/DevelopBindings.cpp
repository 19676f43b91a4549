// Development of colour-filter mosaics (Bayer) into RGB or brightness.
#include "Call.h"

namespace qorpy {

namespace {

enum class Pattern { RGGB = 1, GRBG = 2, BGGR = 3, GBRG = 4 };

}  // namespace

void BindDevelop(py::module_ &m) {
  py::enum_<Pattern>(m, "BayerPattern")
      .value("RGGB", Pattern::RGGB)
      .value("GRBG", Pattern::GRBG)
      .value("BGGR", Pattern::BGGR)
      .value("GBRG", Pattern::GBRG);
  m.def("develop_bayer", [](const ImagePtr &src, Pattern pattern, int src_bits, std::array<int, 4> cut,
                            std::optional<int> dst_bits, bool mono, bool data_range,
                            std::optional<std::array<double, 4>> gains, bool maker, std::optional<double> curve_power,
                            std::optional<double> gamma, bool level_cut, std::optional<float> offset, bool half,
                            int half_green, const py::object &progress) {
    std::array<double, 4> gain = gains.value_or(std::array<double, 4>{1, 1, 1, 1});
    tagBayerStruct s{};
    s.nPattern = int(pattern);
    s.nSrcBits = src_bits;
    s.nCutLeft = cut[0], s.nCutTop = cut[1], s.nCutRight = cut[2], s.nCutBottom = cut[3];
    s.nDstBits = dst_bits.value_or(src_bits == 12 || src_bits == 14 ? 16 : src_bits);
    s.bMono = mono;
    s.bDataRange = data_range;
    s.bTone = gains.has_value() || curve_power.has_value();
    s.bMaker = maker;
    s.bCurvePower = curve_power.has_value();
    s.fCurvePower = curve_power.value_or(1.0);
    s.pGain = gain.data();
    s.bGamma = gamma.has_value();
    s.fGamma = gamma.value_or(1.0);
    s.bLevelCut = level_cut;
    s.bOffset = offset.has_value();
    s.fOffset = offset.value_or(0.0f);
    s.nRoundUp = half;
    s.nRoundUpGreen = half_green;
    return Build<CImgBayerToRgb>(src, progress, [&](CImgBayerToRgb &t, int p) {
      CheckStatus(t.Do(s, src.get(), p), "develop_bayer");
    });
  }, py::arg("image"), py::arg("pattern"), py::kw_only(), py::arg("src_bits") = -32,
        py::arg("cut") = std::array<int, 4>{0, 0, 0, 0}, py::arg("dst_bits") = py::none(), py::arg("mono") = false,
        py::arg("data_range") = false, py::arg("gains") = py::none(), py::arg("maker") = false,
        py::arg("curve_power") = py::none(), py::arg("gamma") = py::none(), py::arg("level_cut") = false,
        py::arg("offset") = py::none(), py::arg("half") = false, py::arg("half_green") = 2,
        py::arg("progress") = py::none(),
        "Demosaics a mono mosaic (pattern of the top-left cell as stored) into RGB, or brightness with mono=True. "
        "cut = (left, top, right, bottom) pixels cut off the result; gains in phase order; half: one pixel per 2x2 cell.");
  m.def("bayer_gains", [](const ImagePtr &src, Pattern pattern) {
    RequireImage(src, "image");
    std::array<double, 4> gain{};
    py::gil_scoped_release release;
    auto op = CopyOf<CImgBayerToRgb>(*src);
    CheckStatus(op->GetGain(int(pattern), gain.data()), "bayer_gains");
    return gain;
  }, py::arg("image"), py::arg("pattern"), "White-balance gains of a mosaic from the medians of its four phases.");
}

}  // namespace qorpy
