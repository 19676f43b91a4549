// CImgRotate: any angle through the rotate pipelines or CInterp's rotating line
// reader; half turns by reversed lines; quarter turns by a banded transpose.
#include "geometry/ImgRotate.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"
#include "geometry/Interp.h"
#include "kernels/FrameEdits.h"
#include "kernels/Geometry.h"
#include "kernels/Runtime.h"

namespace {

using qorimg::LineRect;
using namespace qorimg::geometry;

// Output rows per band of the line path: the line table is released between
// bands, so a block store holds only the source lines a band reads.
constexpr int kBandRows = 32;

// ceil(a * b - c * d) in IEEE double, each product rounded on its own: the
// canvas sizes sit on integers, where a fused multiply-add would move a
// ceiling. The volatile keeps the compiler from contracting them.
double CeilOfDifference(double a, double b, double c, double d) {
  volatile double first = a * b;
  volatile double second = c * d;
  return std::ceil(first - second);
}

// The canvas that holds the turned pixel centres of a W x H frame.
void ExpandedSize(int width, int height, double c, double s, int &outWidth, int &outHeight) {
  const int hw = width / 2, hh = height / 2;
  const double xs[2] = {static_cast<double>(-hw), static_cast<double>(width - hw - 1)};
  const double ys[2] = {static_cast<double>(hh), static_cast<double>(hh - height + 1)};
  double minX = 0, maxX = 0, minY = 0, maxY = 0;
  for (double x : xs)
    for (double y : ys) {
      const double X = CeilOfDifference(x, c, y, s);
      const double Y = CeilOfDifference(y, c, -x, s);
      minX = std::min(minX, X), maxX = std::max(maxX, X);
      minY = std::min(minY, Y), maxY = std::max(maxY, Y);
    }
  outWidth = static_cast<int>(maxX - minX);
  outHeight = static_cast<int>(maxY - minY);
}

float FillValue(const CLmrImage &src, unsigned long crFill) {
  const unsigned r = crFill & 0xFF, g = (crFill >> 8) & 0xFF, b = (crFill >> 16) & 0xFF;
  const double level = src.GetDimension() < 3 ? std::trunc(r * 0.299 + g * 0.587 + b * 0.114) : r;
  return static_cast<float>(level / 255.0 * src.GetLevelRange(0) + src.GetLevelMin(0));
}

}  // namespace

void CImgRotate::Do0(CLmrImage *pSrc, int bProgress) {
  MakeLikeSourceIfEmpty(*this, pSrc, bProgress);
  InitStdPtCtr();
  const int planes = GetPlanes(), width = GetWidth();
  const LineRect whole{0, 0, width, GetHeight()};
  qorimg::RouteTable routes;
  routes.line = [&](int p, int y) {
    std::memmove(GetImageAdr(0, y, p), pSrc->GetImageAdr(0, y, p, CImage::ReadOnly),
                 static_cast<std::size_t>(width) * sizeof(float));
  };
  routes.pipeline = [&](int p, qorimg::PlaneOutput &output) {
    return copy_float(qorimg::InputPlane(*pSrc, p), output);
  };
  qorimg::RunOperator({*this, bProgress, 6112, whole.Height() * planes, whole, {0, planes}},
                      {{this, planes}, {pSrc, planes}}, routes);
}

void CImgRotate::Do180(CLmrImage *pSrc, int bProgress) {
  MakeLikeSourceIfEmpty(*this, pSrc, bProgress);
  qorimg::CheckBoundImages({{this, GetPlanes()}, {pSrc, GetPlanes()}}, {0, 0, GetWidth(), GetHeight()});
  SourceOf src(pSrc, *this);
  InitStdPtCtr();
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  const LineRect whole{0, 0, width, height};
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const float *from = src->GetImageAdr(0, height - 1 - y, p, CImage::ReadOnly);
    std::reverse_copy(from, from + width, GetImageAdr(0, y, p));
  };
  qorimg::RunOperator({*this, bProgress, 6112, height * planes, whole, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
}

// The quarter turn as a banded transpose: each band of destination rows is
// gathered from every source row in one pass (one store call per source row and
// band), then written out, so memory stays at one band whatever the store.
int CImgRotate::Do90(int nDirection, CLmrImage *pSrc, int bProgress) {
  CheckSource(pSrc, pSrc ? pSrc->GetPlanes() : 0);
  SourceOf src(pSrc, *this);
  const int ws = src->GetWidth(), hs = src->GetHeight(), planes = src->GetPlanes();
  InitStdPtCtr();
  if (!qorimg::geometry::ResizeLike(*this, *src, hs, ws, bProgress)) return 0;
  const bool counterClockwise = nDirection == 0;
  constexpr int kBand = 64;
  std::vector<float> band(static_cast<std::size_t>(kBand) * hs);
  qorimg::RouteTable routes;
  routes.planeLoop = [&](int p) {
    for (int y0 = 0; y0 < ws; y0 += kBand) {
      const int y1 = std::min(y0 + kBand, ws);
      for (int sy = 0; sy < hs; ++sy) {
        const float *row = src->GetImageAdr(0, sy, p, CImage::ReadOnly);
        const int dx = counterClockwise ? sy : hs - 1 - sy;
        for (int y = y0; y < y1; ++y)
          band[static_cast<std::size_t>(y - y0) * hs + dx] = row[counterClockwise ? ws - 1 - y : y];
      }
      for (int y = y0; y < y1; ++y) {
        std::memcpy(GetImageAdr(0, y, p), &band[static_cast<std::size_t>(y - y0) * hs],
                    static_cast<std::size_t>(hs) * sizeof(float));
        ShowProgress(1);
      }
    }
  };
  qorimg::RunOperator({*this, bProgress, 6112, ws * planes, {}, {0, planes}}, {{this, planes}, {src.get(), planes}},
                      routes);
  return 1;
}

int CImgRotate::Do(double fAngle, unsigned long crFill, CLmrImage *pSrc, int bExpand, int nMethod, int bProgress) {
  if (!std::isfinite(fAngle)) return 0;
  if (fAngle == 0.0) {
    Do0(pSrc, bProgress);
    return 1;
  }
  // A canvas made here takes the source's planes; a kept one needs its own from the source.
  const bool keepCanvas = !bExpand && !IsEmpty();
  CheckSource(pSrc, keepCanvas ? GetPlanes() : pSrc ? pSrc->GetPlanes() : 0);
  SourceOf src(pSrc, *this);
  const int ws = src->GetWidth(), hs = src->GetHeight();
  const int planes = keepCanvas ? GetPlanes() : src->GetPlanes();
  const float fill = FillValue(*src, crFill);
  InitStdPtCtr();
  const double theta = fAngle * std::numbers::pi / 180.0;
  const double s = std::sin(theta), c = std::cos(theta);
  if (bExpand || IsEmpty()) {
    int wd = ws, hd = hs;
    if (bExpand) ExpandedSize(ws, hs, c, s, wd, hd);
    if (!ResizeLike(*this, *src, wd, hd, bProgress)) return 0;
  }
  const int wd = GetWidth(), hd = GetHeight();
  SetStdCtr(wd / 2, hd / 2);
  // Without bExpand the source must cover this image; with it, only its planes count.
  const LineRect checked = bExpand ? LineRect{} : LineRect{0, 0, wd, hd};

  qorimg::RouteTable routes;
  const RotatePipeline pipeline = RotatePipelineOf(nMethod);
  routes.pipelineCall = [&](int p) {
    if (!pipeline) return 0;  // an unknown method leaves the target as it was
    auto output = qorimg::OutputPlane(*this, p);
    const int status = pipeline(qorimg::InputPlane(*src, p), static_cast<float>((ws - wd) * 0.5),
                                static_cast<float>((hs - hd) * 0.5), static_cast<float>(ws * 0.5),
                                static_cast<float>(hs * 0.5), static_cast<float>(c), static_cast<float>(s), fill,
                                output);
    if (status == 0) ShowProgress(hd);
    return status;
  };
  routes.planeLoop = [&](int p) {
    const CfPoint savedCentre = src->GetStdCtr();
    src->SetDefaultCenter();
    CInterp interp(nMethod);
    auto restore = [&] { src->SetStdCtr(savedCentre); };
    try {
      // The span starts at -(Wd - Ws) / 2. Where that is positive (a canvas
      // narrower than the source) the floors would give fewer than Wd columns;
      // the span's end moves out with its start, so every kept column is written.
      const double start = -(wd - ws) * 0.5;
      interp.SetBParam(2, src.get(), start, std::max<double>(wd, start + wd), 0, fill, p, s, c, 1.0, 1);
      LineScratch scratch(wd + std::abs(wd - ws) + 2);
      for (int y0 = 0; y0 < hd; y0 += kBandRows) {
        if (y0 > 0) interp.GetImageYaddress();  // the band before releases its lines
        qorimg::RunLineLoop(
            *this, {0, y0, wd, std::min(y0 + kBandRows, hd)}, {p, 1},
            [&](int plane, int y) {
              float *line = scratch.Line();
              interp.GetBLine(y - (hd - hs) * 0.5, line);
              std::memcpy(GetImageAdr(0, y, plane), line, static_cast<std::size_t>(wd) * sizeof(float));
            },
            true);
      }
    } catch (...) {
      restore();
      throw;
    }
    restore();
  };
  qorimg::RunOperator({*this, bProgress, 6112, hd * planes, checked, {0, planes}},
                      {{this, planes}, {src.get(), planes}}, routes);
  return 1;
}
