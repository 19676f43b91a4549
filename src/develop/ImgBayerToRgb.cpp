// CImgBayerToRgb: the steps of Do, the half-size path, the scaling of the
// mosaic copy, gains and curves, gamma and the demosaic pipelines. The strip
// loop of block-stored images is in BayerStrips.cpp.
#include "develop/ImgBayerToRgb.h"

#include <cstring>
#include <new>
#include <optional>
#include <tuple>
#include "core/LineLoops.h"
#include "core/OperatorFrame.h"
#include "develop/BayerMath.h"
#include "develop/BayerPlanes.h"
#include "kernels/Arithmetic.h"
#include "kernels/Develop.h"
#include "kernels/FrameEdits.h"
#include "kernels/Runtime.h"

namespace {

using qorimg::develop::FloatRow;
using qorimg::develop::PlaneOf;

double FullScale(int bits) { return static_cast<double>((1LL << bits) - 1); }

using RgbPipeline = int (*)(halide_buffer_t *, halide_buffer_t *, halide_buffer_t *, halide_buffer_t *);
using RgbCutPipeline = int (*)(halide_buffer_t *, float, float, halide_buffer_t *, halide_buffer_t *,
                               halide_buffer_t *);
using GrayPipeline = int (*)(halide_buffer_t *, halide_buffer_t *);
using GrayCutPipeline = int (*)(halide_buffer_t *, float, float, halide_buffer_t *);

// Indexed by nPattern - 1.
constexpr RgbPipeline kRgb[] = {bayer_to_rgb_RGGB_float, bayer_to_rgb_GRBG_float, bayer_to_rgb_BGGR_float,
                                bayer_to_rgb_GBRG_float};
constexpr RgbCutPipeline kRgbCut[] = {bayer_to_rgb_level_cut_RGGB_float, bayer_to_rgb_level_cut_GRBG_float,
                                      bayer_to_rgb_level_cut_BGGR_float, bayer_to_rgb_level_cut_GBRG_float};
constexpr GrayPipeline kGray[] = {bayer_to_gray_RGGB_float, bayer_to_gray_GRBG_float, bayer_to_gray_BGGR_float,
                                  bayer_to_gray_GBRG_float};
constexpr GrayCutPipeline kGrayCut[] = {bayer_to_gray_level_cut_RGGB_float, bayer_to_gray_level_cut_GRBG_float,
                                        bayer_to_gray_level_cut_BGGR_float, bayer_to_gray_level_cut_GBRG_float};

int ToneCurvePipeline(const CImage &image, int plane, const qorimg::develop::ToneCurve &t) {
  auto input = PlaneOf<const float>(image, plane);
  auto output = PlaneOf<float>(image, plane);  // in place: each sample reads only itself
  const float *g = t.gain, *x = t.pointX, *y = t.pointY, *r = t.ratio;
  const float p = static_cast<float>(t.power);
#define QORIMG_TONE_ARGS input, t.min, t.max, g[0], g[1], g[2], g[3], x[0], x[1], x[2], x[3], y[0], y[1], y[2], y[3], \
                         r[0], r[1], r[2], r[3]
  const int flags = (t.curvePower ? 4 : 0) | (t.levelCut ? 2 : 0) | (t.maker ? 1 : 0);
  switch (flags) {
    case 0: return tone_curve_correct_float(QORIMG_TONE_ARGS, output);
    case 1: return tone_curve_correct_maker_float(QORIMG_TONE_ARGS, output);
    case 2: return tone_curve_correct_levelcut_float(QORIMG_TONE_ARGS, output);
    case 3: return tone_curve_correct_levelcut_maker_float(QORIMG_TONE_ARGS, output);
    case 4: return tone_curve_correct_curve_power_float(QORIMG_TONE_ARGS, p, output);
    case 5: return tone_curve_correct_curve_power_maker_float(QORIMG_TONE_ARGS, p, output);
    case 6: return tone_curve_correct_curve_power_levelcut_float(QORIMG_TONE_ARGS, p, output);
    default: return tone_curve_correct_curve_power_levelcut_maker_float(QORIMG_TONE_ARGS, p, output);
  }
#undef QORIMG_TONE_ARGS
}

}  // namespace

bool CImgBayerToRgb::CanHalide(tagBayerStruct &s, CImage *pA, CImage *pB) {
  return pA && pB && qorimg::IsWholePlane(*pA) && qorimg::IsWholePlane(*pB) && s.nPattern < 5;
}

// Besides the pattern, size and bits, refuses what no step could work with:
// negative cuts, cuts that leave no pixel, and gains asked for without gains.
int CImgBayerToRgb::ArgCheck(tagBayerStruct *s) {
  const int w = GetWidth(), h = GetHeight();
  if (s->nPattern < 1 || s->nPattern > 4 || w < 6 || h < 6) return 0;
  if (s->nSrcBits != 12 && s->nSrcBits != 14 && s->nSrcBits != -32) return 0;
  if (s->nDstBits != (s->nSrcBits == -32 ? -32 : 16)) return 0;
  if (s->nCutLeft < 0 || s->nCutTop < 0 || s->nCutRight < 0 || s->nCutBottom < 0) return 0;
  if (static_cast<long long>(s->nCutLeft) + s->nCutRight >= w) return 0;
  if (static_cast<long long>(s->nCutTop) + s->nCutBottom >= h) return 0;
  if (s->bTone && !s->pGain) return 0;
  return 1;
}

// A null source is the copy's failure; a source the development cannot read
// raises the invalid-argument exception before this image is written.
int CImgBayerToRgb::Do(tagBayerStruct s, CLmrImage *pSrc, int bProgress) {
  if (!pSrc) return 0;
  qorimg::CheckBoundImages({{pSrc, 1}}, qorimg::ClipRect(*pSrc, nullptr));
  if (!CopyImage(*pSrc)) return 0;
  return Do(s, bProgress);
}

int CImgBayerToRgb::Do(tagBayerStruct s, int bProgress) {
  if (s.nRoundUp == 1) return DoRoundUp(s, bProgress);
  qorimg::CheckBoundImages({{this, 1}}, qorimg::ClipRect(*this, nullptr));
  if (!ArgCheck(&s)) return 0;
  const int h = GetHeight();
  int total = h - 7 + 10 * (h / 100);
  if (s.bGamma) total += 3 * (h - s.nCutBottom - s.nCutTop);
  qorimg::ProgressFrame progress(*this, bProgress, s.bMono ? 6145 : 6178, total);
  try {
    return Develop(s);
  } catch (CMemoryException *e) {
    e->Delete();
    return 0;
  } catch (const std::bad_alloc &) {
    return 0;
  }
}

// Steps 4 to 14 of the development; ShowProgress(h / 100) after each
// preparing step. The mosaic copy is freed on every path.
int CImgBayerToRgb::Develop(tagBayerStruct &s) {
  const int w = GetWidth(), h = GetHeight(), step = h / 100;
  if (s.bOffset) SubtractOffset(s.fOffset);
  ShowProgress(step);
  auto bayer = std::make_unique<CImage>();
  ShowProgress(step);
  if (!CopySrcToBayer(bayer.get(), s.bTone != 0)) return 0;
  ShowProgress(step);
  if ((s.nSrcBits == 12 || s.nSrcBits == 14) && s.nDstBits == 16 &&
      !ChangeBitImage(bayer.get(), s.nSrcBits, s.nDstBits, s.bDataRange))
    return 0;
  ShowProgress(step);
  const double levelMin = GetLevelMin(0), levelMax = GetLevelMax(0);
  if (!Reshape(w - s.nCutLeft - s.nCutRight, h - s.nCutTop - s.nCutBottom, s.bMono ? GetPlanes() : 3)) return 0;
  ShowProgress(step);
  if (!s.bMono) {
    for (int c = 0; c < 3; ++c) SetLevel(c, levelMin, levelMax);
    SetOrgPlanes(3);
  }
  ShowProgress(step);
  float fMin, fMax;
  if (s.bDataRange) {
    const auto [lo, hi] = bayer->GetMinMax(0);
    fMin = static_cast<float>(lo), fMax = static_cast<float>(hi);
  } else if (s.nSrcBits == -32) {
    fMin = static_cast<float>(bayer->GetLevelMin(0)), fMax = static_cast<float>(bayer->GetLevelMax(0));
  } else {
    fMin = 0.0f, fMax = static_cast<float>(FullScale(s.nDstBits));
  }
  ShowProgress(step);
  bool failed = false;
  if (s.bTone && !ToneCurveCorrect(bayer.get(), 1, &s, fMin, fMax)) failed = true;
  ShowProgress(step);
  const int plane = s.bTone ? 1 : 0;
  if (CanHalide(s, this, bayer.get()))
    DemosaicByPipeline(*bayer, plane, s, fMin, fMax);
  else if (!DemosaicByStrips(*bayer, plane, s, fMin, fMax))
    failed = true;
  if (!failed && s.bGamma) GammaCorrect(this, &s);
  if (!failed) SetBayerImage(false);
  return failed ? 0 : 1;
}

// The result's size (after the cuts) and planes in one fresh store. Nothing of
// the old samples is read afterwards: the pipelines write every pixel and the
// strip loop zero-fills first. So one allocation does what resizing and then
// adding planes (which copies plane 0 into the new ones) would, without the
// copies. Levels stay those of plane 0 on every plane.
bool CImgBayerToRgb::Reshape(int width, int height, int planes) {
  if (width == GetWidth() && height == GetHeight() && planes == GetPlanes()) return true;
  const double lo = GetLevelMin(0), hi = GetLevelMax(0);
  const std::shared_ptr<CVmManager> manager = VmManager();
  SetWidth(width);
  SetHeight(height);
  SetPlanes(planes);
  if (!AllocImage(manager, nullptr)) return false;
  for (int c = 0; c < planes; ++c) SetLevel(c, lo, hi);
  return true;
}

void CImgBayerToRgb::SubtractOffset(float fOffset) {
  if (!HasArea()) return;
  if (qorimg::IsWholePlane(*this)) {
    auto output = PlaneOf<float>(*this, 0);
    qorimg::kernels::CheckPipeline(sub_scalar_inplace_float(fOffset, output));
    return;
  }
  const int w = GetWidth();
  qorimg::ParallelLines(0, GetHeight(), [&](int y) {
    float *row = GetImageAdr(0, y, 0);
    for (int x = 0; x < w; ++x) row[x] -= fOffset;
  });
}

// The mosaic copy: float samples of this image's size and levels, one plane,
// or two equal planes when gains and curves will change the second.
int CImgBayerToRgb::CopySrcToBayer(CImage *pBayer, int bTwoPlanes) {
  const int planes = bTwoPlanes ? 2 : 1, w = GetWidth(), h = GetHeight();
  pBayer->SetDataType(CImage::Float32);
  pBayer->SetWidth(w);
  pBayer->SetHeight(h);
  pBayer->SetPlanes(planes);
  pBayer->SetBscale(1.0);
  pBayer->SetBzero(0.0);
  pBayer->SetOrgBitsPixel(CImage::SourceFloat);
  pBayer->SetOrgPlanes(planes);
  if (!pBayer->AllocImage(VmManager(), nullptr)) return 0;
  for (int p = 0; p < planes; ++p) pBayer->SetLevel(p, GetLevelMin(0), GetLevelMax(0));
  const bool pipeline = qorimg::IsWholePlane(*this) && qorimg::IsWholePlane(*pBayer);
  for (int p = 0; p < planes; ++p) {
    if (pipeline) {
      auto input = PlaneOf<const float>(*this, 0);
      auto output = PlaneOf<float>(*pBayer, p);
      qorimg::kernels::CheckPipeline(paste_float(input, 0, w, 0, h, 0, 0, output));
      continue;
    }
    qorimg::ParallelLines(0, h, [&](int y) {
      std::memcpy(FloatRow(*pBayer, y, p), GetImageAdr(0, y, 0, CImage::ReadOnly), sizeof(float) * w);
    });
  }
  return 1;
}

// (v - lo) (2^dst - 1) / (hi - lo) in double, rounded to float and clamped to
// the destination range. The clamp sends NaN to 0, so a constant frame scaled
// by its own range (0 / 0) gives 0.
int CImgBayerToRgb::ChangeBitImage(CImage *pImage, int nSrcBits, int nDstBits, int bDataRange) {
  double lo = 0.0, hi = FullScale(nSrcBits);
  if (bDataRange) std::tie(lo, hi) = pImage->GetMinMax(0);
  const double top = FullScale(nDstBits), span = hi - lo;
  const float ceiling = static_cast<float>(top);
  const int w = pImage->GetWidth();
  for (int p = 0; p < pImage->GetPlanes(); ++p)
    qorimg::ParallelLines(0, pImage->GetHeight(), [&](int y) {
      float *row = FloatRow(*pImage, y, p);
      for (int x = 0; x < w; ++x) {
        const float v = static_cast<float>((row[x] - lo) * top / span);
        row[x] = v > 0.0f ? (v > ceiling ? ceiling : v) : 0.0f;
      }
    });
  return 1;
}

int CImgBayerToRgb::ToneCurveCorrect(CImage *pImage, int nPlane, tagBayerStruct *s, float fMin, float fMax) {
  if (!pImage || !s->pGain || nPlane < 0 || nPlane >= pImage->GetPlanes()) return 0;
  const qorimg::develop::ToneCurve curve(s->pGain, fMin, fMax, s->bMaker, s->bLevelCut, s->bCurvePower,
                                         s->fCurvePower);
  if (qorimg::IsWholePlane(*pImage)) {
    qorimg::kernels::CheckPipeline(ToneCurvePipeline(*pImage, nPlane, curve));
    return 1;
  }
  const int w = pImage->GetWidth();
  qorimg::ParallelLines(0, pImage->GetHeight(), [&](int y) {
    float *row = FloatRow(*pImage, y, nPlane);
    const int k = 2 * (y & 1);
    for (int x = 0; x < w; ++x) row[x] = curve.Apply(row[x], k + (x & 1));
  });
  return 1;
}

// Each plane over its levels (float results) or the destination's full scale.
int CImgBayerToRgb::GammaCorrect(CImage *pImage, tagBayerStruct *s) {
  const float e = static_cast<float>(1.0 / s->fGamma);
  const int w = pImage->GetWidth();
  for (int c = 0; c < pImage->GetPlanes(); ++c) {
    const double lo = s->nDstBits == -32 ? pImage->GetLevelMin(c) : 0.0;
    const double hi = s->nDstBits == -32 ? pImage->GetLevelMax(c) : FullScale(s->nDstBits);
    const float fLo = static_cast<float>(lo), fRange = static_cast<float>(hi - lo);
    if (qorimg::IsWholePlane(*pImage)) {
      if (!pImage->GetWidth() || !pImage->GetHeight()) continue;
      auto output = PlaneOf<float>(*pImage, c);
      qorimg::kernels::CheckPipeline(gamma_correct_float(fLo, fRange, e, output));
      continue;
    }
    qorimg::ParallelLines(0, pImage->GetHeight(), [&](int y) {
      float *row = FloatRow(*pImage, y, c);
      for (int x = 0; x < w; ++x) row[x] = qorimg::develop::Gamma(row[x], fLo, fRange, e);
      ShowProgress(1);
    });
  }
  return 1;
}

// Outputs are bound with their mins at the cut corner, so that the pipeline
// reads the uncut mosaic at image coordinates.
void CImgBayerToRgb::DemosaicByPipeline(CImage &bayer, int plane, const tagBayerStruct &s, float fMin, float fMax) {
  auto input = PlaneOf<const float>(bayer, plane);
  const int i = s.nPattern - 1;
  auto output = [&](int c) {
    auto buffer = PlaneOf<float>(*this, c);
    buffer.set_min(s.nCutLeft, s.nCutTop);
    return buffer;
  };
  int status;
  if (s.bMono) {
    auto y = output(0);
    status = s.bLevelCut ? kGrayCut[i](input, fMin, fMax, y) : kGray[i](input, y);
  } else {
    auto r = output(0), g = output(1), b = output(2);
    status = s.bLevelCut ? kRgbCut[i](input, fMin, fMax, r, g, b) : kRgb[i](input, r, g, b);
  }
  qorimg::kernels::CheckPipeline(status);
}

// One pixel of the half-size image per 2 x 2 cell: R and B from their sites,
// green from the two greens as nRoundUpGreen says. Frames below 2 x 2 are
// refused, as they have no whole cell.
int CImgBayerToRgb::DoRoundUp(tagBayerStruct s, int bProgress) {
  if (s.nRoundUp != 1 || s.nRoundUpGreen > 4) return 0;
  qorimg::CheckBoundImages({{this, 1}}, qorimg::ClipRect(*this, nullptr));
  const int w = GetWidth(), h = GetHeight();
  if (w < 2 || h < 2 || s.nPattern < 1 || s.nPattern > 4) return 0;
  // The mosaic's samples stay in their store, which this image hands over
  // to a copy instead of copying it; a failure gives the samples back.
  std::unique_ptr<CVmImage> mosaic = std::move(Store);
  const double lo = GetLevelMin(0), hi = GetLevelMax(0);
  const auto giveBack = [&] {
    Store = std::move(mosaic);
    SetWidth(w), SetHeight(h), SetPlanes(static_cast<int>(Store->GetPlanes()));
  };
  try {
    SetWidth(w / 2);
    SetHeight(h / 2);
    SetPlanes(3);
    if (!AllocImage(mosaic->VmManager(), nullptr)) {
      giveBack();
      return 0;
    }
    for (int c = 0; c < 3; ++c) SetLevel(c, lo, hi);
    SetOrgPlanes(3);
    const qorimg::develop::Phase phase(s.nPattern);
    const int rx = phase.rx, ry = phase.ry;
    // The green of row 2y is at the column parity that red lacks in a red row.
    const int g0 = ry == 0 ? 1 - rx : rx, g1 = ry == 1 ? 1 - rx : rx;
    const int ow = w / 2, green = s.nRoundUpGreen;
    std::optional<qorimg::ProgressFrame> progress;
    if (bProgress) progress.emplace(*this, bProgress, 6178, h / 2);
    qorimg::ParallelLines(0, h / 2, [&](int y) {
      const float *rows[2];
      for (int dy = 0; dy < 2; ++dy)
        rows[dy] = reinterpret_cast<const float *>(mosaic->GetImageAdr(0, 2 * y + dy, 0, true, false, nullptr));
      float *red = GetImageAdr(0, y, 0), *grn = GetImageAdr(0, y, 1), *blue = GetImageAdr(0, y, 2);
      for (int x = 0; x < ow; ++x) {
        const int cx = 2 * x;
        red[x] = rows[ry][cx + rx];
        blue[x] = rows[1 - ry][cx + 1 - rx];
        const float a = rows[0][cx + g0], b = rows[1][cx + g1];
        grn[x] = green == 0 ? a : green == 1 ? b : green == 3 ? (b < a ? b : a) : green == 4 ? (b > a ? b : a)
                                                                                            : (a + b) * 0.5f;
      }
      ShowProgress(1);
    });
  } catch (CMemoryException *e) {
    e->Delete();
    if (!Store) giveBack();
    return 0;
  } catch (const std::bad_alloc &) {
    if (!Store) giveBack();
    return 0;
  }
  return 1;
}
