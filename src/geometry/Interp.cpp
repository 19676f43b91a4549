// CInterp: the five interpolation methods, the line table and the shifted,
// rotated line and pixel readers.
#include "geometry/Interp.h"

#include <algorithm>
#include <cmath>
#include <cwctype>
#include <numbers>
#include "core/PixelMath.h"

namespace {

constexpr const wchar_t *kEngNames[] = {L"Bilinear", L"Bicubic", L"Lanczos2", L"Lanczos3", L"NearestNeighbor"};
constexpr const wchar_t *kNames[] = {L"バイリニア", L"バイキュービック", L"ランチョス2(4x4)", L"ランチョス3(6x6)",
                                     L"ニアレストネイバー"};
constexpr int kMethods = 5;

bool EqualNoCase(const std::wstring &a, const std::wstring &b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](wchar_t l, wchar_t r) {
           return std::towlower(static_cast<wint_t>(l)) == std::towlower(static_cast<wint_t>(r));
         });
}

int ClampIndex(int i, int size) { return i < 0 ? 0 : i >= size ? size - 1 : i; }

// Brightness of three samples, green first as everywhere in the library.
double Brightness(double r, double g, double b) { return g * 0.587 + r * 0.299 + b * 0.114; }

}  // namespace

// ---- Life ----

CInterp::CInterp(int method) : nMethod(method) {}

CInterp::CInterp(int method, CLmrImage *source, int) : nMethod(method) {
  image = source;
  nMode = 1;
  if (image) {
    nWidth = image->GetWidth();
    nHeight = image->GetHeight();
    SetCentre(0);
    SetLevels();
    GetImageYaddress();
  }
}

CInterp::CInterp(const CInterp &other) : nMethod(other.nMethod) { *this = other; }

CInterp &CInterp::operator=(const CInterp &other) {
  if (this == &other) return *this;
  ReleaseTable();
  CopySettings(other);
  if (other.lines) GetImageYaddress();
  return *this;
}

CInterp::~CInterp() { ReleaseTable(); }

void CInterp::CopySettings(const CInterp &o) {
  nMethod = o.nMethod;
  nMode = o.nMode;
  image = o.image;
  fStartX = o.fStartX, fEndX = o.fEndX;
  nStartX = o.nStartX, nEndX = o.nEndX;
  b256 = o.b256;
  fOutside = o.fOutside;
  nPlane = o.nPlane;
  fSin = o.fSin, fCos = o.fCos, fScale = o.fScale;
  fShiftX = o.fShiftX, fShiftY = o.fShiftY;
  center = o.center;
  nWidth = o.nWidth, nHeight = o.nHeight;
  nColour = o.nColour;
  std::copy(o.fLevelMin, o.fLevelMin + 3, fLevelMin);
  std::copy(o.fLevelMul, o.fLevelMul + 3, fLevelMul);
  std::copy(o.levelMin_, o.levelMin_ + 3, levelMin_);
  std::copy(o.levelRange_, o.levelRange_ + 3, levelRange_);
}

// ---- Names ----

CString CInterp::GetEngString(int method) {
  return method >= 0 && method < kMethods ? CString(kEngNames[method]) : CString();
}

CString CInterp::GetString(int method) { return method >= 0 && method < kMethods ? CString(kNames[method]) : CString(); }

int CInterp::GetMethod(CString &name) {
  for (int m = 0; m < kMethods; ++m)
    if (EqualNoCase(name.str(), kEngNames[m])) return m;
  return -1;
}

// ---- Set-up ----

void CInterp::SetLevels() {
  // Mono: the three pairs from plane 0. Colour: a third pair from plane 1 when
  // the image has only two planes.
  const int planes = image->GetPlanes();
  nColour = image->GetDimension() < 3 ? 0 : -1;
  for (int c = 0; c < 3; ++c) {
    const int p = nColour == 0 ? 0 : std::min(c, planes - 1);
    levelMin_[c] = image->GetLevelMin(p);
    levelRange_[c] = image->GetLevelRange(p);
    fLevelMin[c] = static_cast<float>(levelMin_[c]);
    fLevelMul[c] = static_cast<float>(255.0 / levelRange_[c]);
  }
}

void CInterp::SetCentre(int bImageCenter) {
  if (bImageCenter)
    center = image->GetStdCtr();
  else
    center.Set(nWidth * 0.5, nHeight * 0.5);
}

void CInterp::SetBParam(int mode, CLmrImage *source, double startX, double endX, int map256, float outside,
                        int plane, double sine, double cosine, double scale, int bImageCenter) {
  ReleaseTable();
  nMode = mode;
  image = source;
  fStartX = startX, fEndX = endX;
  nStartX = qorimg::TruncateToInt(std::floor(startX));
  nEndX = qorimg::TruncateToInt(std::floor(endX));
  b256 = map256;
  fOutside = outside;
  nPlane = plane;
  fSin = sine, fCos = cosine, fScale = scale;
  nWidth = image->GetWidth();
  nHeight = image->GetHeight();
  SetCentre(bImageCenter);
  SetLevels();
  GetImageYaddress();
}

void CInterp::SetBParam(CLmrImage *source, double shiftX, double shiftY, double sine, double cosine, double scale,
                        int bImageCenter, int plane, float outside) {
  ReleaseTable();
  image = source;
  fShiftX = shiftX, fShiftY = shiftY;
  fSin = sine, fCos = cosine, fScale = scale;
  nPlane = plane;
  fOutside = outside;
  nWidth = image->GetWidth();
  nHeight = image->GetHeight();
  SetCentre(bImageCenter);
  SetLevels();
  if (cosine == 1.0)
    nMode = (shiftX != std::trunc(shiftX) || shiftY != std::trunc(shiftY)) ? 1 : 0;
  else
    nMode = 2;
}

// ---- The line table ----

void CInterp::ReleaseTable() {
  if (image)
    for (const CVmImage::AddressHandle &handle : locks_) image->Unlock(handle);
  locks_.clear();
  lines.reset();
  lineBase.clear();
  nPlanes = 0;
}

void CInterp::GetImageYaddress() {
  ReleaseTable();
  if (!image || image->IsEmpty()) return;
  nPlanes = image->GetPlanes();
  const std::size_t count = static_cast<std::size_t>(nPlanes) * static_cast<std::size_t>(nHeight);
  lines = std::make_unique<std::atomic<const float *>[]>(count);
  lineBase.resize(static_cast<std::size_t>(nPlanes));
  // Whole-plane stores never move their planes: every address is known at once.
  // Block stores fill the table as lines are first read (Line).
  const bool wholePlane = image->GetAllocationPolicy() != 0;
  for (int p = 0; p < nPlanes; ++p) {
    lineBase[static_cast<std::size_t>(p)] = p * nHeight;
    const float *base = wholePlane && nHeight > 0 ? image->GetImageAdr(0, 0, p, CImage::ReadOnly) : nullptr;
    for (int y = 0; y < nHeight; ++y)
      lines[static_cast<std::size_t>(p * nHeight + y)].store(base ? base + static_cast<std::ptrdiff_t>(y) * nWidth
                                                                  : nullptr,
                                                             std::memory_order_relaxed);
  }
}

// The start of line y of `plane`; y and plane are in range.
const float *CInterp::Line(int y, int plane) {
  if (!lines) return image->GetImageAdr(0, y, plane, CImage::ReadOnly);
  std::atomic<const float *> &slot = lines[static_cast<std::size_t>(lineBase[static_cast<std::size_t>(plane)] + y)];
  const float *line = slot.load(std::memory_order_acquire);
  if (line) return line;
  std::lock_guard<std::mutex> guard(lockMutex_);
  line = slot.load(std::memory_order_relaxed);
  if (!line) {
    CVmImage::AddressHandle handle = -1;
    line = image->GetImageAdr(0, y, plane, CImage::ReadOnlyLock, &handle);
    locks_.push_back(handle);
    slot.store(line, std::memory_order_release);
  }
  return line;
}

float CInterp::GetPixData(int x, int y, int plane) {
  // Outside the source (or without one) there is no pixel: 0.0.
  if (!image || x < 0 || x >= nWidth || y < 0 || y >= nHeight || plane < 0 || plane >= image->GetPlanes())
    return 0.0f;
  return Line(y, plane)[x];
}

// ---- Kernels and methods ----

double CInterp::KernelBicubic(double x, double a) {
  const double t = std::fabs(x);
  if (t <= 1.0) return 1.0 - (a + 3.0) * t * t + (a + 2.0) * t * t * t;
  if (t <= 2.0) return (8.0 * t - 4.0 - 5.0 * t * t + t * t * t) * a;
  return 0.0;
}

double CInterp::KernelLanczos(double x, double n) {
  const double t = std::fabs(x);
  if (t == 0.0) return 1.0;
  if (t > n) return 0.0;
  const double pt = std::numbers::pi * t;
  return std::sin(pt / n) * (std::sin(pt) * n) / (pt * pt);
}

float CInterp::Calc(double *wy, float *samples, double *wx, int n) {
  double sum = 0.0;
  for (int j = 0; j < n; ++j) {
    double row = 0.0;
    for (int i = 0; i < n; ++i) row += wx[i] * samples[j * n + i];
    sum += row * wy[j];
  }
  return static_cast<float>(sum);
}

// The kernel methods' common walk: `taps` columns and rows from offset
// 1 - taps / 2 about the truncated position, each clamped into the image.
int CInterp::KernelSample(int plane, double x, double y, float *pOut, int taps,
                          double (CInterp::*weight)(double)) {
  // Tested before any conversion, so NaN and huge positions are refused here.
  if (!(x >= 0.0 && x <= nWidth && y >= 0.0 && y <= nHeight)) return 0;
  const int ix = static_cast<int>(x), iy = static_cast<int>(y);
  const double fx = x - ix, fy = y - iy;
  const int first = 1 - taps / 2;
  double wx[6], wy[6];
  float samples[36];
  for (int k = 0; k < taps; ++k) {
    wx[k] = (this->*weight)(fx - (first + k));
    wy[k] = (this->*weight)(fy - (first + k));
  }
  for (int j = 0; j < taps; ++j) {
    const float *line = Line(ClampIndex(iy + first + j, nHeight), plane);
    for (int i = 0; i < taps; ++i) samples[j * taps + i] = line[ClampIndex(ix + first + i, nWidth)];
  }
  *pOut = Calc(wy, samples, wx, taps);
  return 1;
}

int CInterp::Bicubic(CLmrImage *, int plane, double x, double y, float *pOut) {
  return KernelSample(plane, x, y, pOut, 4, &CInterp::WeightBicubic);
}

int CInterp::Lanczos2(CLmrImage *, int plane, double x, double y, float *pOut) {
  return KernelSample(plane, x, y, pOut, 4, &CInterp::WeightLanczos2);
}

int CInterp::Lanczos3(CLmrImage *, int plane, double x, double y, float *pOut) {
  return KernelSample(plane, x, y, pOut, 6, &CInterp::WeightLanczos3);
}

int CInterp::Bilinear(CLmrImage *, int plane, double x, double y, float *pOut) {
  if (!(x >= 0.0 && x <= nWidth && y >= 0.0 && y <= nHeight)) return 0;
  const int ix = static_cast<int>(x), iy = static_cast<int>(y);
  const double fx = x - ix, fy = y - iy;
  const int x0 = ClampIndex(ix, nWidth), x1 = ClampIndex(ix + 1, nWidth);
  const float *upper = Line(ClampIndex(iy, nHeight), plane);
  if (fx == 0.0 && fy == 0.0) {
    *pOut = upper[x0];
    return 1;
  }
  const float *lower = fy == 0.0 ? upper : Line(ClampIndex(iy + 1, nHeight), plane);
  // A neighbour with weight zero is replaced by one that is used, so that only
  // real samples enter the sum (0 times an infinity would not vanish).
  const double p00 = upper[x0], p01 = lower[x0];
  const double p10 = fx == 0.0 ? p00 : upper[x1], p11 = fx == 0.0 ? p01 : lower[x1];
  *pOut = static_cast<float>(qorimg::BlendValues(p00, p01, p10, p11, fx, fy));
  return 1;
}

int CInterp::Nearest(CLmrImage *, int plane, double x, double y, float *pOut) {
  if (std::isnan(x) || std::isnan(y)) return 0;
  // Clamped in floating point before the conversion, so any position is defined.
  const double cx = std::clamp(x + 0.5, 0.0, static_cast<double>(nWidth - 1));
  const double cy = std::clamp(y + 0.5, 0.0, static_cast<double>(nHeight - 1));
  *pOut = Line(static_cast<int>(cy), plane)[static_cast<int>(cx)];
  return 1;
}

float CInterp::Do(double x, double y, int plane) {
  if (!image || plane < 0 || plane >= image->GetPlanes() || nWidth <= 0 || nHeight <= 0) return 0.0f;
  float v = 0.0f;
  int ok = 0;
  switch (nMethod) {
    case BilinearMethod: ok = Bilinear(image, plane, x, y, &v); break;
    case BicubicMethod: ok = Bicubic(image, plane, x, y, &v); break;
    case Lanczos2Method: ok = Lanczos2(image, plane, x, y, &v); break;
    case Lanczos3Method: ok = Lanczos3(image, plane, x, y, &v); break;
    case NearestMethod: ok = Nearest(image, plane, x, y, &v); break;
    default: break;
  }
  return ok ? v : 0.0f;
}

// ---- Line readers ----

float CInterp::Map256(float v, int plane) const {
  if (!b256) return v;
  plane = std::min(plane, 2);  // a fourth plane, if any, maps like the third
  return static_cast<float>((static_cast<double>(v) - levelMin_[plane]) / levelRange_[plane] * 255.0);
}

// One output sample at a source position known to be inside: the plane, or
// (plane < 0) the brightness of the three planes, each mapped with b256 first.
// Whole-pixel positions (mode 0) read the pixel itself.
float CInterp::LineSample(double x, double y, int plane, bool brightness) {
  auto read = [&](int p) -> float {
    const float v = nMode == 0 ? GetPixData(static_cast<int>(x), static_cast<int>(y), p) : Do(x, y, p);
    return Map256(v, p);
  };
  if (!brightness) return read(plane);
  return static_cast<float>(Brightness(read(0), read(1), read(2)));
}

// The line at output row y in the current mode, into out[0 .. count) with the
// validity flags when `valid` is given. Outside the source: fOutside, as given.
void CInterp::ReadLine(double y, int plane, float *out, int *valid, bool brightness) {
  const int count = std::max(nEndX - nStartX, 0);
  auto put = [&](int i, bool inside, double px, double py) {
    out[i] = inside ? LineSample(px, py, plane, brightness) : fOutside;
    if (valid) valid[i] = inside ? 1 : 0;
  };
  auto fill = [&] {
    for (int i = 0; i < count; ++i) put(i, false, 0, 0);
  };
  if (!image || nWidth <= 0 || nHeight <= 0) return fill();
  switch (nMode) {
    case 0: {
      const int iy = qorimg::TruncateToInt(y);
      if (iy < 0 || iy > nHeight - 1 || nStartX >= nWidth) return fill();
      for (int i = 0; i < count; ++i) {
        const long long x = static_cast<long long>(nStartX) + i;
        put(i, x >= 0 && x < nWidth, static_cast<double>(x), iy);
      }
      return;
    }
    case 1: {
      if (!(y <= nHeight - 1) || std::floor(y) < 0) return fill();
      for (int i = 0; i < count; ++i) {
        const double x = fStartX + i;
        put(i, x >= 0.0 && x < nWidth, x, y);
      }
      return;
    }
    case 2: {
      const double cx = center.fx, cy = center.fy;
      const double u = fStartX - cx, w = cy - y;
      double px = fCos * u - fSin * w + cx;
      double py = cy - (fSin * u + fCos * w);
      for (int i = 0; i < count; ++i) {
        put(i, px >= 0.0 && px <= nWidth - 1 && py >= 0.0 && py <= nHeight - 1, px, py);
        px += fCos;
        py -= fSin;
      }
      return;
    }
    default: return;  // other modes write nothing
  }
}

void CInterp::GetBLine_int(int y, int plane, float *out) { ReadLine(y, plane, out, nullptr, false); }
void CInterp::GetBLine_float(double y, int plane, float *out) { ReadLine(y, plane, out, nullptr, false); }
void CInterp::GetBLine_rotate(double y, int plane, float *out) { ReadLine(y, plane, out, nullptr, false); }
void CInterp::GetBLineMed_int(int y, int plane, float *out, int *valid) { ReadLine(y, plane, out, valid, false); }
void CInterp::GetBLineMed_float(double y, int plane, float *out, int *valid) {
  ReadLine(y, plane, out, valid, false);
}
void CInterp::GetBLineMed_rotate(double y, int plane, float *out, int *valid) {
  ReadLine(y, plane, out, valid, false);
}

void CInterp::GetBLine(double y, float *line) {
  // A colour source with a negative plane gives its brightness; a mono one plane 0.
  const bool brightness = nColour != 0 && nPlane < 0;
  const int plane = nColour == 0 || nPlane < 0 ? 0 : nPlane;
  switch (nMode) {
    case 0: ReadLine(std::trunc(y), plane, line, nullptr, brightness); break;
    case 1:
    case 2: ReadLine(y, plane, line, nullptr, brightness); break;
    default: break;
  }
}

void CInterp::GetBLine(double y, float *r, float *g, float *b) {
  if (nMode < 0 || nMode > 2) return;
  const double row = nMode == 0 ? std::trunc(y) : y;
  if (nColour != 0 && nPlane == -1) {
    float *outputs[3] = {r, g, b};
    for (int p = 0; p < 3; ++p) ReadLine(row, p, outputs[p], nullptr, false);
    return;
  }
  ReadLine(row, 0, r, nullptr, nColour != 0);
}

void CInterp::GetBLineMed(double y, float *out, int *valid) {
  if (nMode < 0 || nMode > 2) return;
  const double row = nMode == 0 ? std::trunc(y) : y;
  // Here nPlane counts planes, laid out one after the other at the source's width.
  const int planes = image ? std::min(nPlane, image->GetPlanes()) : 0;
  for (int p = 0; p < planes; ++p) {
    const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(p) * nWidth;
    ReadLine(row, p, out + offset, valid + offset, false);
  }
}

// ---- Pixel readers ----

// Bilinear from the source in every method. A coordinate at or past size - 1
// reads as size - 1 from the cell at size - 2, fraction 1.
float CInterp::GetBPixelGrayRaw(double x, double y, int plane) {
  const qorimg::BilinearCell cx = qorimg::BilinearCell::Along(x, nWidth);
  const qorimg::BilinearCell cy = qorimg::BilinearCell::Along(y, nHeight);
  const float *upper = Line(cy.first, plane);
  const float *lower = Line(cy.second, plane);
  if (cx.exact && cy.exact) return upper[cx.first];
  return static_cast<float>(qorimg::BlendCell(upper, lower, cx, cy));
}

float CInterp::GetBPixelGray256f(double x, double y, int plane) {
  const double v = GetBPixelGrayRaw(x, y, plane);
  const int level = std::min(plane, 2);  // a fourth plane, if any, maps like the third
  return static_cast<float>((v - levelMin_[level]) / levelRange_[level] * 255.0);
}

namespace {

struct Mapped {
  double x, y;
};

// Output (x, y) to source for the pixel readers. With `scale` false the scale is
// ignored (the GetBPixel forms).
Mapped MapPixel(int x, int y, double shiftX, double shiftY, double c, double s, double z, double cx, double cy,
                bool scale) {
  if (c == 1.0 && s == 0.0) {
    if (!scale || z == 1.0) return {x - shiftX, y - shiftY};
    return {(x - cx - shiftX) * z + cx, (y - cy - shiftY) * z + cy};
  }
  const double u = x - cx - shiftX, w = cy - y + shiftY;
  if (!scale) return {c * u - s * w + cx, cy - (s * u + c * w)};
  return {(c * u - s * w) * z + cx, cy - (s * u + c * w) * z};
}

}  // namespace

namespace {
bool OutsideImage(double x, double y, int width, int height) {
  return !(x >= 0.0 && x < width && y >= 0.0 && y < height);
}
}  // namespace

float CInterp::GetBPixelGrayRaw(int x, int y, int *pOutside, double *pX, double *pY) {
  return ReadPixel(x, y, pOutside, pX, pY, false);
}

float CInterp::GetBPixelGray256f(int x, int y, int *pOutside, double *pX, double *pY) {
  return ReadPixel(x, y, pOutside, pX, pY, true);
}

// The two GetBPixel forms: the mapped position without the scale, fOutside
// outside, else the plane (or a colour source's brightness for nPlane -1 or -2)
// by the bilinear read, raw or on the 0..255 scale.
float CInterp::ReadPixel(int x, int y, int *pOutside, double *pX, double *pY, bool map256) {
  const Mapped m = MapPixel(x, y, fShiftX, fShiftY, fCos, fSin, fScale, center.fx, center.fy, false);
  if (pX) *pX = m.x;
  if (pY) *pY = m.y;
  const bool outside = !image || OutsideImage(m.x, m.y, nWidth, nHeight);
  if (pOutside) *pOutside = outside ? 1 : 0;
  if (outside) return fOutside;
  auto read = [&](int p) { return map256 ? GetBPixelGray256f(m.x, m.y, p) : GetBPixelGrayRaw(m.x, m.y, p); };
  if (nColour != 0 && (nPlane == -1 || nPlane == -2)) return static_cast<float>(Brightness(read(0), read(1), read(2)));
  return read(nColour == 0 || nPlane < 0 ? 0 : std::min(nPlane, image->GetPlanes() - 1));
}

float CInterp::GetPixelL(int x, int y) {
  const Mapped m = MapPixel(x, y, fShiftX, fShiftY, fCos, fSin, fScale, center.fx, center.fy, true);
  if (!image || OutsideImage(m.x, m.y, nWidth, nHeight)) return fOutside;
  return GetBPixelGrayRaw(m.x, m.y, 0);
}

void CInterp::GetPixelAb(int x, int y, double *pA, double *pB) {
  const Mapped m = MapPixel(x, y, fShiftX, fShiftY, fCos, fSin, fScale, center.fx, center.fy, true);
  if (!image || image->GetPlanes() < 2 || OutsideImage(m.x, m.y, nWidth, nHeight)) {
    *pA = *pB = fOutside;
    return;
  }
  *pA = GetBPixelGrayRaw(m.x, m.y, 0);
  *pB = GetBPixelGrayRaw(m.x, m.y, 1);
}
