// CImgReduceTone: floor of the display value in n steps, computed in double.
#include "tone/ImgReduceTone.h"

#include <algorithm>
#include <cmath>
#include "core/OperatorRunner.h"

CImgReduceTone::CImgReduceTone() = default;
CImgReduceTone::CImgReduceTone(const CImgReduceTone &source) = default;
CImgReduceTone::~CImgReduceTone() = default;

void CImgReduceTone::Do(int nTones, CLmrImage *pSrc, CRect *rect, int bProgress) {
  const int n = std::clamp(nTones, 1, 256);
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const int planes = GetPlanes();
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int p, int y) {
    const double k = 255.0 / GetLevelRange(p), m = GetLevelMin(p);
    const float *s = pSrc->GetImageAdr(r.left, y, p, CImage::ReadOnly);
    float *d = GetImageAdr(r.left, y, p);
    for (int x = 0; x < r.Width(); ++x) {
      // NaN passes through the clamp and the floor as NaN; nothing is cast to int.
      const double u = std::clamp((s[x] - m) * k, 0.0, 255.0);
      const double w = std::floor(u * 0.00390625 * n) / n;
      d[x] = static_cast<float>(w * 255.0 / k + m);
    }
  };
  qorimg::RunOperator({*this, bProgress, 6144, planes * r.Height(), r, {0, planes}},
                      {{this, planes}, {pSrc, planes}}, routes);
}
