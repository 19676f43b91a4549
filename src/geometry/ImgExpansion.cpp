// CImgExpansion: each map pixel through the direction cosines of its longitude
// and latitude, the sphere's turn, and the orthographic projection onto src.
#include "geometry/ImgExpansion.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>
#include "core/OperatorRunner.h"
#include "geometry/GeometryInternal.h"
#include "sibling/Lmracl.h"

using namespace qorimg::geometry;

void CImgExpansion::Do(CLmrImage *pSrc, double fCenterX, double fCenterY, double fRadius, double fAzimuth,
                       double fAltitude, double /*fRotation*/, int bGrid, CRect *rect, int bProgress) {
  for (double v : {fCenterX, fCenterY, fRadius, fAzimuth, fAltitude})
    if (!std::isfinite(v)) return;
  CheckSource(pSrc, 1);
  MakeLikeSourceIfEmpty(*this, pSrc, bProgress);
  const int planes = GetPlanes(), width = GetWidth(), height = GetHeight();
  const qorimg::LineRect area = qorimg::ClipRect(*this, rect);
  qorimg::CheckBoundImages({{this, planes}, {pSrc, planes}}, qorimg::LineRect{});
  SourceOf src(pSrc, *this);
  for (int p = 0; p < planes; ++p) CImage::SetLevel(p, src->GetLevelMin(p), src->GetLevelMax(p));

  // The 2:1 panel, centred.
  const bool flat = height < width / 2;
  const int panelWidth = flat ? 2 * height : width, panelHeight = flat ? height : width / 2;
  const int left = flat ? (width - panelWidth) / 2 : 0, top = flat ? 0 : (height - panelHeight) / 2;
  std::vector<char> gridColumn(static_cast<std::size_t>(width), 0), gridRow(static_cast<std::size_t>(height), 0);
  if (bGrid && panelWidth > 0 && panelHeight > 0) {
    for (long long k = 0; k <= 36; ++k) gridColumn[left + std::min(k * panelWidth / 36, panelWidth - 1LL)] = 1;
    for (long long k = 0; k <= 18; ++k) gridRow[top + std::min(k * panelHeight / 18, panelHeight - 1LL)] = 1;
  }
  double turn[9];
  qorimg::RotateY(fAltitude, turn);
  const double ws = src->GetWidth(), hs = src->GetHeight();
  const float offPanel = static_cast<float>(GetLevelRange(0) * 0.0 + GetLevelMin(0));

  // A row is made in scratch and then written, so the target line need not stay
  // resident while src is read.
  LineScratch scratch(width);
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    float *row = scratch.Line();
    const float gridValue = static_cast<float>(GetLevelRange(p) + GetLevelMin(p));
    const bool inRows = y >= top && y < top + panelHeight;
    for (int x = area.left; x < area.right; ++x) {
      if (!inRows || x < left || x >= left + panelWidth) {
        row[x - area.left] = offPanel;
        continue;
      }
      if (gridRow[y] || gridColumn[x]) {
        row[x - area.left] = gridValue;
        continue;
      }
      const double lon = static_cast<double>(x - left) / panelWidth * 360.0 - 180.0;
      const double lat = 90.0 - static_cast<double>(y - top) / panelHeight * 180.0;
      const double ad[2] = {lon - fAzimuth, lat};
      double dc[3], pqr[3];
      qorimg::AdToDc(ad, dc);
      qorimg::RotateDc(dc, turn, pqr);
      float value = 0.0f;
      if (pqr[0] >= 0) {
        const double sx = fRadius * pqr[1] + fCenterX, sy = fCenterY - fRadius * pqr[2];
        if (sx >= 0 && sx <= ws - 1 && sy >= 0 && sy <= hs - 1) value = src->GetPixelGrayRaw(sx, sy, p);
      }
      row[x - area.left] = value;
    }
    std::memcpy(GetImageAdr(area.left, y, p), row, static_cast<std::size_t>(area.Width()) * sizeof(float));
  };
  qorimg::RunOperator({*this, bProgress, 6140, std::max(area.Height(), 0) * planes, area, {0, planes}},
                      {{this, planes}}, routes);
}
