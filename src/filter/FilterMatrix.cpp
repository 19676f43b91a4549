#include "filter/FilterMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "filter/FilterInternal.h"

namespace {
constexpr double kPi = 3.14159265358979323846;
}

CFilterMatrix::CFilterMatrix() = default;

CFilterMatrix::CFilterMatrix(int nR, int nSize) { MakeMtx(nR, nSize, 0); }

CFilterMatrix::CFilterMatrix(int nR, float *p, int n) { SetMtx(nR, p, n); }

CFilterMatrix::CFilterMatrix(int nR, double *p, int n) { SetMtx(nR, p, n); }

CFilterMatrix::CFilterMatrix(const CFilterMatrix &other) { *this = other; }

CFilterMatrix &CFilterMatrix::operator=(const CFilterMatrix &other) {
  if (this == &other) return *this;
  if (!other.mtx) {
    delete[] mtx;
    mtx = nullptr;
    nR = nD = nSize = 0;
    return *this;
  }
  MakeMtx(other.nR, 0, 1);
  std::memcpy(mtx, other.mtx, sizeof(float) * static_cast<size_t>(nSize));
  return *this;
}

CFilterMatrix::~CFilterMatrix() { delete[] mtx; }

int CFilterMatrix::GetGaussian_nR(double fStdDev) {
  return qorimg::filter::AtLeastOne(qorimg::filter::TruncRadius(fStdDev * 2.8 + 1.0));
}

int CFilterMatrix::MakeMtx(int radius, int nNeed, int bClear) {
  const long long side = 2LL * std::max(radius, 0) + 1;
  if (side * side > INT_MAX) throw std::bad_alloc();
  float *cells = new float[static_cast<size_t>(side * side)]();
  delete[] mtx;
  mtx = cells;
  nR = std::max(radius, 0);
  nD = static_cast<int>(side);
  nSize = nD * nD;
  return nNeed != 0 && nNeed > nSize ? 0 : 1;
}

namespace {
template <typename T>
int CopyCells(float *mtx, int nSize, const T *p, int n) {
  if (!p) return 1;
  const int count = (n == 0 || n > nSize) ? nSize : std::max(n, 0);
  for (int i = 0; i < count; ++i) mtx[i] = static_cast<float>(p[i]);
  return n > nSize ? 0 : 1;
}
}  // namespace

int CFilterMatrix::SetMtx(int radius, float *p, int n) {
  MakeMtx(radius, n, 0);
  return CopyCells(mtx, nSize, p, n);
}

int CFilterMatrix::SetMtx(int radius, double *p, int n) {
  MakeMtx(radius, n, 0);
  return CopyCells(mtx, nSize, p, n);
}

int CFilterMatrix::MakeGaussian(double fStdDev) { return MakeGaussian(GetGaussian_nR(fStdDev), fStdDev); }

int CFilterMatrix::MakeGaussian(int radius, double fStdDev) {
  if (fStdDev == -1.0) fStdDev = radius;
  MakeMtx(radius, 0, 0);
  if (fStdDev == 0.0) {
    mtx[nSize / 2] = 1.0f;
    return 1;
  }
  for (int y = -nR, i = 0; y <= nR; ++y)
    for (int x = -nR; x <= nR; ++x, ++i)
      mtx[i] = static_cast<float>(std::exp(static_cast<double>(x * x + y * y) / (fStdDev * -2.0 * fStdDev)));
  Normalize();
  return 1;
}

double CFilterMatrix::PrepareDisc(int radius, double fRadius) {
  MakeMtx(radius, 0, 1);
  return fRadius == -1.0 ? static_cast<double>(nR) : fRadius;
}

int CFilterMatrix::MakeMean(int radius, double fRadius, double fWeight) {
  const double r = PrepareDisc(radius, fRadius);
  for (int y = -nR, i = 0; y <= nR; ++y)
    for (int x = -nR; x <= nR; ++x, ++i)
      if (x * x + y * y <= r * r) mtx[i] = static_cast<float>(fWeight);
  mtx[nSize / 2] = 1.0f;
  Normalize();
  return 1;
}

int CFilterMatrix::MarkAround(double squaredLimit, float value) {
  int count = 0;
  for (int y = -nR, i = 0; y <= nR; ++y)
    for (int x = -nR; x <= nR; ++x, ++i)
      if ((x != 0 || y != 0) && x * x + y * y <= squaredLimit) {
        mtx[i] = value;
        ++count;
      }
  return count;
}

int CFilterMatrix::MakeLaplacian(int radius, double fRadius) {
  // The radius is compared with x^2 + y^2 unsquared.
  const int count = MarkAround(PrepareDisc(radius, fRadius), -1.0f);
  mtx[nSize / 2] = static_cast<float>(count);
  return 1;
}

int CFilterMatrix::MakeSharp(double fRadius, double fStrength) {
  const int radius = qorimg::filter::AtLeastOne(qorimg::filter::TruncRadius(fRadius));
  const int count = MarkAround(PrepareDisc(radius, fRadius), static_cast<float>(-fStrength));
  mtx[nSize / 2] = static_cast<float>(count * fStrength + 1.0);
  Normalize();
  return 1;
}

int CFilterMatrix::MakeMask(int radius, double fRadius) {
  const double r = PrepareDisc(radius, fRadius);
  int count = 0;
  for (int y = -nR, i = 0; y <= nR; ++y)
    for (int x = -nR; x <= nR; ++x, ++i)
      if (x * x + y * y <= r * r) {
        mtx[i] = 1.0f;
        ++count;
      }
  return count;
}

int CFilterMatrix::MakeCFAMask(int nPlane, int nKind) {
  const bool redBlue = nPlane == 0 || nPlane == 2;
  auto corners = [this](int d) {
    for (int y : {-d, d})
      for (int x : {-d, d}) *GetMtxPtr(x, y) = 1.0f;
  };
  auto axis = [this] { *GetMtxPtr(-2, 0) = *GetMtxPtr(2, 0) = *GetMtxPtr(0, -2) = *GetMtxPtr(0, 2) = 1.0f; };
  if (nKind == 0) {
    MakeMtx(2, 0, 1);
    if (redBlue)
      corners(2);
    else if (nPlane == 1)
      axis();
    else
      return 0;
  } else if (redBlue) {
    MakeMtx(2, 0, 1);
    axis();
  } else if (nPlane == 1) {
    MakeMtx(1, 0, 1);
    corners(1);
  } else {
    return 0;
  }
  return 4;
}

int CFilterMatrix::MakeGuideErrorCanceller(int radius, double fLength, double fAngle, double fCentre) {
  MakeMtx(radius, 0, 1);
  if (fLength == -1.0) fLength = nR;
  const double theta = (90.0 - fAngle) * kPi / 180.0;
  const double cs = std::cos(theta), sn = std::sin(theta);

  // The smear: the middle row at -1 except its centre; only the left end takes
  // the fractional length.
  std::vector<float> line(static_cast<size_t>(nSize), 0.0f);
  float *middle = line.data() + static_cast<size_t>(nR) * nD;
  for (int i = 0; i < nD; ++i) middle[i] = -1.0f;
  middle[nR] = 0.0f;
  if (nR > 0) middle[0] = nR >= fLength ? -1.0f : static_cast<float>(fLength - std::floor(fLength));
  float s = 0.0f;
  for (float v : line) s += v;
  middle[nR] = 1.0f - s;

  float t = 0.0f;
  for (int dy = -nR, i = 0; dy <= nR; ++dy)
    for (int dx = -nR; dx <= nR; ++dx, ++i) {
      if (dx == 0 && dy == 0) continue;
      const double xr = dx * cs - dy * sn, yr = dy * cs + dx * sn;
      const double fx = std::floor(xr), fy = std::floor(yr);
      const int x0 = qorimg::filter::TruncRadius(fx), y0 = qorimg::filter::TruncRadius(fy);
      const int x1 = qorimg::filter::TruncRadius(std::ceil(xr)), y1 = qorimg::filter::TruncRadius(std::ceil(yr));
      mtx[i] = Hokan4(line[GetIndex(x0, y0, nR)], line[GetIndex(x1, y0, nR)], line[GetIndex(x0, y1, nR)],
                      line[GetIndex(x1, y1, nR)], static_cast<float>(xr - fx), static_cast<float>(yr - fy));
      t += mtx[i];
    }
  mtx[nSize / 2] = static_cast<float>((1.0f - t) * fCentre);
  Normalize();
  return 1;
}

void CFilterMatrix::Normalize() {
  if (!mtx) return;
  double sum = 0.0;
  for (int i = 0; i < nSize; ++i) sum += mtx[i];
  if (sum == 0.0) return;
  for (int i = 0; i < nSize; ++i) mtx[i] = static_cast<float>(mtx[i] / sum);
}

long long CFilterMatrix::IndexOf(int x, int y) const {
  const long long i = (static_cast<long long>(nR) + y) * nD + nR + x;
  return (mtx && i >= 0 && i < nSize) ? i : -1;
}

float CFilterMatrix::GetPrm(int i) const { return (mtx && i >= 0 && i < nSize) ? mtx[i] : 0.0f; }

float CFilterMatrix::GetPrm(int x, int y) const {
  const long long i = IndexOf(x, y);
  return i < 0 ? 0.0f : mtx[i];
}

float *CFilterMatrix::GetMtxPtr(int x, int y) {
  const long long i = IndexOf(x, y);
  return i < 0 ? nullptr : mtx + i;
}

int CFilterMatrix::GetIndex(int x, int y, int radius) {
  const long long side = 2LL * radius;
  const long long cy = std::clamp(static_cast<long long>(y) + radius, 0LL, side);
  const long long cx = std::clamp(static_cast<long long>(x) + radius, 0LL, side);
  return static_cast<int>((side + 1) * cy + cx);
}

float CFilterMatrix::Hokan4(float a, float b, float c, float d, float fX, float fY) {
  return (1 - fY) * (1 - fX) * a + (1 - fX) * fY * c + (1 - fY) * fX * b + fX * fY * d;
}
