// CImgResolution: the resolution pipelines on whole-plane images; on others the
// extrapolating bilinear line, the normalised a = -0.1 bicubic, or CInterp.
#include "geometry/ImgResolution.h"

#include <algorithm>
#include <cmath>
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"
#include "geometry/Interp.h"
#include "kernels/Geometry.h"

namespace {

using namespace qorimg::geometry;
using ResolutionPipeline = int (*)(halide_buffer_t *, int32_t, int32_t, halide_buffer_t *);

ResolutionPipeline ResolutionPipelineOf(int nMethod) {
  switch (nMethod) {
    case CInterp::BilinearMethod: return resolution_bilinear_float;
    case CInterp::BicubicMethod: return resolution_bicubic_float;
    case CInterp::Lanczos2Method: return resolution_lanczos2_float;
    case CInterp::Lanczos3Method: return resolution_lanczos3_float;
    case CInterp::NearestMethod: return resolution_nearest_float;
    default: return nullptr;
  }
}

// Output rows per band of the CInterp path; the table's lines are released
// between bands.
constexpr int kBandRows = 32;

// The a = -0.1 cubic of the bicubic line path.
double BicubicWeight(double t) {
  if (t < 1.0) return 1.0 - 2.9 * t * t + 1.9 * t * t * t;
  if (t < 2.0) return 0.4 - 0.8 * t + 0.5 * t * t - 0.1 * t * t * t;
  return 0.0;
}

// A tap index of the bicubic line path: a negative one reads |i| (0 when that
// is past the end), one past the end reads 0.
int BicubicIndex(int i, int last) {
  if (i < 0) return -i > last ? 0 : -i;
  return i > last ? 0 : i;
}

// Resizes like src, then runs the routes: `pipeline` of the method on
// whole-plane images, `lines(plane)` on others (its own progress).
int Resample(CLmrImage &target, CLmrImage *pSrc, int width, int height, int bProgress, ResolutionPipeline pipeline,
             bool hasPipeline, const std::function<void(CLmrImage &src, int plane)> &lines) {
  CheckSource(pSrc, pSrc ? pSrc->GetPlanes() : 0);
  SourceOf src(pSrc, target);
  target.InitStdPtCtr();
  if (!ResizeLike(target, *src, width, height, bProgress)) return 0;
  const int planes = src->GetPlanes();
  qorimg::RouteTable routes;
  if (hasPipeline)
    routes.pipelineCall = [&](int p) {
      if (!pipeline) return 0;  // an unknown method leaves the target as it was created
      auto output = qorimg::OutputPlane(target, p);
      return pipeline(qorimg::InputPlane(*src, p), width, height, output);
    };
  routes.planeLoop = [&](int p) { lines(*src, p); };
  qorimg::RunOperator({target, bProgress, 6110, height * planes, {}, {0, planes}},
                      {{&target, planes}, {src.get(), planes}}, routes);
  return 1;
}

}  // namespace

int CImgResolution::Do(CLmrImage *src, int nWidth, int nHeight, int bProgress) {
  return Resample(*this, src, nWidth, nHeight, bProgress, resolution_bilinear_float, true,
                  [&](CLmrImage &source, int p) {
                    DoBilinear(&source, static_cast<float>(source.GetWidth()),
                               static_cast<float>(source.GetHeight()), p);
                  });
}

int CImgResolution::Bilinear(CLmrImage *src, int nWidth, int nHeight, int bProgress) {
  return Do(src, nWidth, nHeight, bProgress);
}

// The bilinear line path over the rows of one plane. Positions at pixel corners; at
// the last column and row the cell steps back one, so the fraction passes 1 and
// the value is extrapolated from the last two samples.
void CImgResolution::DoBilinear(CLmrImage *src, float fWidth, float fHeight, int nPlane) {
  const int ws = src->GetWidth(), hs = src->GetHeight(), wd = GetWidth(), hd = GetHeight();
  const float rx = fWidth / static_cast<float>(wd), ry = fHeight / static_cast<float>(hd);
  const int step = ws - 1 != 0 ? 1 : 0;
  qorimg::RunLineLoop(
      *this, {0, 0, wd, hd}, {nPlane, 1},
      [&](int p, int y) {
        const float fy0 = static_cast<float>(y) * ry;
        // Held inside the source should the product round up to its height.
        int iy = std::min(static_cast<int>(fy0), hs - 1);
        float fy = fy0 - static_cast<float>(iy);
        int rowA = iy, rowB = iy;
        if (fy != 0.0f && hs - 1 != 0) {
          if (iy < hs - 1) {
            rowB = iy + 1;
          } else {
            rowA = iy - 1;
            fy = fy0 - static_cast<float>(iy - 1);
          }
        }
        const float *a = src->GetImageAdr(0, rowA, p, CImage::ReadOnly);
        const float *b = rowB == rowA ? a : src->GetImageAdr(0, rowB, p, CImage::ReadOnly);
        float *out = GetImageAdr(0, y, p);
        for (int x = 0; x < wd; ++x) {
          const float fx0 = static_cast<float>(x) * rx;
          int ix = std::min(static_cast<int>(fx0), ws - 1);
          // A one-column source keeps column 0: there is no column before it.
          if (ix >= ws - 1 && ix > 0) --ix;
          const float fx = fx0 - static_cast<float>(ix);
          if (fx == 0.0f && fy == 0.0f) {
            out[x] = a[ix];
            continue;
          }
          out[x] = (fy - fx * fy) * b[ix] + (1.0f - fx) * (1.0f - fy) * a[ix] + (fx - fx * fy) * a[ix + step] +
                   fx * fy * b[ix + step];
        }
      },
      true);
}

int CImgResolution::Bicubic(CLmrImage *src, int nWidth, int nHeight, int bProgress) {
  return Resample(*this, src, nWidth, nHeight, bProgress, resolution_bicubic_float, true, [&](CLmrImage &source,
                                                                                                 int p) {
    const int ws = source.GetWidth(), hs = source.GetHeight();
    const double rx = static_cast<double>(ws) / nWidth, ry = static_cast<double>(hs) / nHeight;
    qorimg::RunLineLoop(
        *this, {0, 0, nWidth, nHeight}, {p, 1},
        [&](int plane, int y) {
          const double sy = y * ry;
          const int iy = static_cast<int>(sy);
          const float *rows[4];
          double wy[4];
          for (int j = 0; j < 4; ++j) {
            wy[j] = BicubicWeight(std::fabs(iy - 1 + j - sy));
            rows[j] = source.GetImageAdr(0, BicubicIndex(iy - 1 + j, hs - 1), plane, CImage::ReadOnly);
          }
          float *out = GetImageAdr(0, y, plane);
          for (int x = 0; x < nWidth; ++x) {
            const double sx = x * rx;
            const int ix = static_cast<int>(sx);
            double sum = 0.0, weights = 0.0;
            for (int j = 0; j < 4; ++j)
              for (int i = 0; i < 4; ++i) {
                const double w = BicubicWeight(std::fabs(ix - 1 + i - sx)) * wy[j];
                if (w == 0.0) continue;
                sum += w * rows[j][BicubicIndex(ix - 1 + i, ws - 1)];
                weights += w;
              }
            out[x] = static_cast<float>(sum) / static_cast<float>(weights);
          }
        },
        true);
  });
}

int CImgResolution::DoChange(CLmrImage *src, int nWidth, int nHeight, int nMethod, int bProgress) {
  return Resample(*this, src, nWidth, nHeight, bProgress, ResolutionPipelineOf(nMethod), true, [&](CLmrImage &source,
                                                                                                       int p) {
    const float rx = static_cast<float>(source.GetWidth()) / static_cast<float>(nWidth);
    const float ry = static_cast<float>(source.GetHeight()) / static_cast<float>(nHeight);
    CInterp interp(nMethod, &source, 0);
    for (int y0 = 0; y0 < nHeight; y0 += kBandRows) {
      if (y0 > 0) interp.GetImageYaddress();  // the band before releases its lines
      qorimg::RunLineLoop(
          *this, {0, y0, nWidth, std::min(y0 + kBandRows, nHeight)}, {p, 1},
          [&](int plane, int y) {
            float *out = GetImageAdr(0, y, plane);
            const float sy = static_cast<float>(y) * ry;
            for (int x = 0; x < nWidth; ++x) out[x] = interp.Do(static_cast<float>(x) * rx, sy, plane);
          },
          true);
    }
  });
}
