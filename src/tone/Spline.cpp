// CSpline: natural cubic spline coefficients by a tridiagonal solve, and
// evaluation by segment type.
#include "tone/Spline.h"

#include <climits>
#include <stdexcept>
#include <vector>

namespace {

using Points = CArray<tagSplinePoint, tagSplinePoint>;

// Steps shared by both GetValue forms: the refusals, the ends, a point hit
// exactly (other than the last) and the straight line of two points. True when
// `value` and `status` are final.
bool Settled(double x, const Points *points, double &value, int &status) {
  value = 0.0;
  if (!points || points->GetSize() < 2) {
    status = 0;
    return true;
  }
  const int n = points->GetSize();
  const tagSplinePoint *p = points->GetData();
  if (x < p[0].dX) {
    status = -2;
    return true;
  }
  if (x > p[n - 1].dX) {
    status = -1;
    return true;
  }
  for (int i = 0; i < n - 1; ++i)
    if (x == p[i].dX) {
      status = 1;
      value = p[i].dY;
      return true;
    }
  if (n == 2) {
    status = 1;
    value = (x - p[0].dX) / (p[1].dX - p[0].dX) * (p[1].dY - p[0].dY) + p[0].dY;
    return true;
  }
  return false;
}

// The segment from point k - 1 to point k at offset t from point k - 1.
double Segment(const tagSplinePoint *p, int k, double x, int &status) {
  const double t = x - p[k - 1].dX;
  status = 1;
  switch (p[k - 1].nType) {
    case 0: return (x - p[k - 1].dX) / (p[k].dX - p[k - 1].dX) * (p[k].dY - p[k - 1].dY) + p[k - 1].dY;
    case 1: return ((t * p[k].dD + p[k].dC) * t + p[k - 1].dB) * t + p[k - 1].dY;
    case 2: return p[k - 1].dY;
    case 3: return p[k].dY;
  }
  status = 0;
  return 0.0;
}

}  // namespace

CSpline::CSpline() { Init(); }
CSpline::~CSpline() = default;

int CSpline::CalcSpline(Points *pPoints) {
  if (!pPoints || pPoints->GetSize() < 3) return 0;
  const int n = pPoints->GetSize();
  tagSplinePoint *p = pPoints->GetData();
  for (int i = 0; i + 1 < n; ++i)
    if (p[i].dX > p[i + 1].dX) return 0;
  for (int i = 0; i < n; ++i) p[i].dM = p[i].dB = p[i].dC = p[i].dD = 0.0;

  const auto size = static_cast<std::size_t>(n);
  std::vector<double> mu(size), lambda(size), diag(size), r(size);
  for (int i = 1; i <= n - 2; ++i) {
    const double h0 = p[i].dX - p[i - 1].dX, h1 = p[i + 1].dX - p[i].dX;
    mu[i] = h0 / (h1 + h0);
    lambda[i] = 1.0 - mu[i];
    diag[i] = 2.0;
    r[i] = ((p[i + 1].dY - p[i].dY) / h1 - (p[i].dY - p[i - 1].dY) / h0) / (h1 + h0) * 6.0;
  }
  for (int i = 1; i <= n - 3; ++i) {
    lambda[i] /= diag[i];
    r[i] /= diag[i];
    diag[i + 1] -= mu[i + 1] * lambda[i];
    r[i + 1] -= mu[i + 1] * r[i];
  }
  p[n - 2].dM = r[n - 2] / diag[n - 2];
  for (int i = n - 3; i >= 1; --i) p[i].dM = r[i] - lambda[i] * p[i + 1].dM;

  const double h = p[1].dX - p[0].dX;
  p[0].dB = (p[1].dY - p[0].dY) / h - h * p[1].dM / 6.0;
  for (int i = 1; i < n; ++i) {
    const double hi = p[i].dX - p[i - 1].dX;
    p[i].dB = (p[i - 1].dM + p[i].dM) * hi * 0.5 + p[i - 1].dB;
    p[i].dD = (p[i].dM - p[i - 1].dM) / (6.0 * hi);
    p[i].dC = p[i - 1].dM * 0.5;
  }
  return 1;
}

double CSpline::GetValue(double x, Points *pPoints, int *pStatus) {
  double value = 0.0;
  int status = 0;
  if (!Settled(x, pPoints, value, status)) {
    const int n = pPoints->GetSize();
    const tagSplinePoint *p = pPoints->GetData();
    status = 0;  // x equal to the last abscissa falls in no open segment
    for (int k = 1; k < n; ++k)
      if (p[k - 1].dX < x && x < p[k].dX) {
        value = Segment(p, k, x, status);
        break;
      }
  }
  if (pStatus) *pStatus = status;
  return value;
}

double CSpline::GetValue(double x, int *pStatus) {
  double value = 0.0;
  int status = 0;
  if (!Settled(x, this, value, status)) {
    status = 0;
    if (bDirty && !CalcSpline(this)) {
      if (pStatus) *pStatus = 0;
      return 0.0;
    }
    bDirty = 0;
    // The first segment whose both ends lie above x: the one after the segment
    // holding x, evaluated with a negative offset.
    const int n = GetSize();
    const tagSplinePoint *p = GetData();
    for (int k = 1; k < n; ++k)
      if (x < p[k].dX && x < p[k - 1].dX) {
        value = Segment(p, k, x, status);
        break;
      }
  }
  if (pStatus) *pStatus = status;
  return value;
}

std::int64_t CSpline::SetPoint(tagSplinePoint point) {
  point.dM = point.dB = point.dC = point.dD = 0.0;
  const int n = GetSize();
  const tagSplinePoint *p = GetData();
  for (int i = 0; i < n; ++i)
    if (p[i].dX == point.dX) return -1;
  // A point between i and i + 1 goes to index i, before point i.
  int index = 0;
  for (int i = 0; i + 1 < n; ++i)
    if (p[i].dX < point.dX && point.dX < p[i + 1].dX) index = i;
  if (n > 0 && point.dX > p[n - 1].dX) index = n;
  InsertAt(index, point);
  bDirty = 1;
  return index;
}

std::int64_t CSpline::SetPoint(double x, double y, std::uint64_t nType) {
  return SetPoint(tagSplinePoint{x, y, nType, 0.0, 0.0, 0.0, 0.0});
}

int CSpline::GetPoint(std::int64_t nIndex, tagSplinePoint *pPoint) {
  if (!pPoint || nIndex <= GetSize()) return 0;
  throw std::out_of_range("CSpline::GetPoint");
}

int CSpline::RemoveAtPoint(std::int64_t nIndex, std::int64_t nCount) {
  if (nIndex < 0 || nIndex <= GetSize()) return 0;
  // The array's remove refuses an index beyond its end.
  if (nIndex > INT_MAX || nCount < INT_MIN || nCount > INT_MAX) throw std::out_of_range("CSpline::RemoveAtPoint");
  RemoveAt(static_cast<int>(nIndex), static_cast<int>(nCount));
  return 1;
}

void CSpline::Init() {
  RemoveAll();
  bDirty = 0;
}

void CSpline::RemoveAllPoint() { Init(); }
