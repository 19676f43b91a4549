// Pixel accessors of CLmrImage: raw reads, the level mapping to the 0..255
// display scale, the bilinear rule and brightness.
#include <cmath>
#include "core/LmrImage.h"
#include "core/PixelMath.h"

using qorimg::BilinearCell;

float CLmrImage::GetPixelGray(int x, int y, int plane) const {
  return GetPixelGray(GetImageAdr(x, y, plane, CImage::ReadOnly), plane);
}

float CLmrImage::GetPixelGray(const float *p, int plane) const {
  CheckPlane(plane);
  return *p - static_cast<float>(LevelMin[plane]);
}

float CLmrImage::GetPixelGray(double x, double y, int plane) const {
  CheckPlane(plane);
  return static_cast<float>(Bilinear(x, y, plane) - LevelMin[plane]);
}

unsigned char CLmrImage::GetPixelGray256(int x, int y, int plane) const {
  return GetPixelGray256(GetImageAdr(x, y, plane, CImage::ReadOnly), plane);
}

unsigned char CLmrImage::GetPixelGray256(const float *p, int plane) const {
  CheckPlane(plane);
  return qorimg::DisplayByte(*p, LevelMin[plane], LevelMax[plane], LevelRange[plane]);
}

unsigned char CLmrImage::GetPixelGray256(const float *p, float lo, float hi, float scale) {
  return qorimg::DisplayByteFloat(*p, lo, hi, scale);
}

float CLmrImage::GetPixelGray256f(int x, int y, int plane) const {
  return GetPixelGray256f(GetImageAdr(x, y, plane, CImage::ReadOnly), plane);
}

float CLmrImage::GetPixelGray256f(const float *p, int plane) const {
  CheckPlane(plane);
  return static_cast<float>((*p - LevelMin[plane]) / LevelRange[plane] * 255.0);
}

float CLmrImage::GetPixelGray256f(double x, double y, int plane) const {
  CheckPlane(plane);
  return static_cast<float>((Bilinear(x, y, plane) - LevelMin[plane]) / LevelRange[plane] * 255.0);
}

float CLmrImage::GetPixelBright256f(int x, int y) const {
  if (!IsColor()) return GetPixelGray256f(x, y, 0);
  return GetPixelBright256f(GetImageAdr(x, y, 0, CImage::ReadOnly), GetImageAdr(x, y, 1, CImage::ReadOnly),
                            GetImageAdr(x, y, 2, CImage::ReadOnly));
}

float CLmrImage::GetPixelBright256f(const float *r, const float *g, const float *b) const {
  if (!IsColor()) return GetPixelGray256f(r, 0);
  const float rf = GetPixelGray256f(r, 0);
  const float gf = GetPixelGray256f(g, 1);
  const float bf = GetPixelGray256f(b, 2);
  return static_cast<float>(gf * 0.587 + rf * 0.299 + bf * 0.114);
}

float CLmrImage::GetPixelBrightRaw(int x, int y) const {
  return static_cast<float>(GetPixelBright256f(x, y) / 255.0 * LevelRange[0] + LevelMin[0]);
}

float CLmrImage::GetPixelBrightRaw(const float *r, const float *g, const float *b) const {
  return static_cast<float>(GetPixelBright256f(r, g, b) / 255.0 * LevelRange[0] + LevelMin[0]);
}

double CLmrImage::To256(double v, int plane) const {
  CheckPlane(plane);
  return (v - LevelMin[plane]) / LevelRange[plane] * 255.0;
}
float CLmrImage::To256(float v, int plane) const { return static_cast<float>(To256(static_cast<double>(v), plane)); }
double CLmrImage::ToRaw(double v, int plane) const {
  CheckPlane(plane);
  return v / 255.0 * LevelRange[plane] + LevelMin[plane];
}
float CLmrImage::ToRaw(float v, int plane) const { return static_cast<float>(ToRaw(static_cast<double>(v), plane)); }

void CLmrImage::SetPixelGray(int x, int y, float value, int plane) {
  SetPixelGray(GetImageAdr(x, y, plane), value, plane);
}

void CLmrImage::SetPixelGray(float *p, float value, int plane) const {
  CheckPlane(plane);
  *p = static_cast<float>(LevelMin[plane]) + value;
}

void CLmrImage::SetPixelGray256f(int x, int y, float value, int plane) {
  SetPixelGray256f(GetImageAdr(x, y, plane), value, plane);
}

void CLmrImage::SetPixelGray256f(float *p, float value, int plane) const {
  CheckPlane(plane);
  *p = static_cast<float>(value / 255.0 * LevelRange[plane] + LevelMin[plane]);
}

float CLmrImage::CalcBright(float r, float g, float b) {
  return static_cast<float>(g * 0.587 + r * 0.299 + b * 0.114);
}

double CLmrImage::CalcBright(double r, double g, double b) { return g * 0.587 + r * 0.299 + b * 0.114; }

// The lightness round trip through Lab does not enter the result: what comes
// back is the gamma-weighted red of the RGB -> XYZ step, on the 0..255 scale.
double CLmrImage::CalcBrightL(double r, double g, double b) {
  auto scaled = [](double v) { return (v < -5000.0 ? -5000.0 : v > 5000.0 ? 5000.0 : v) / 255.0; };
  const double rs = scaled(r), gs = scaled(g), bs = scaled(b);
  const double mean = (rs + gs + bs) / 3.0;
  const double weight = mean < 1e-7 ? 1.0 : std::pow(mean, 1.2000000000000002);
  return rs * weight * 255.0;
}

// ---- Bilinear rule ----

double CLmrImage::Bilinear(double x, double y, int plane) const {
  const BilinearCell cx = BilinearCell::Along(x, GetWidth());
  const BilinearCell cy = BilinearCell::Along(y, GetHeight());
  if (cx.exact && cy.exact) return *GetImageAdr(cx.first, cy.first, plane, CImage::ReadOnly);
  const float *upper = GetImageAdr(0, cy.first, plane, CImage::ReadOnly);
  const float *lower = GetImageAdr(0, cy.second, plane, CImage::ReadOnly);
  return qorimg::BlendCell(upper, lower, cx, cy);
}

float CLmrImage::GetPixelGrayRaw(double x, double y, int plane) const {
  return static_cast<float>(Bilinear(x, y, plane));
}

void CLmrImage::GetPixelGrayRawBufInit() {
  BufLine[0] = BufLine[1] = nullptr;
  BufLineNo[0] = BufLineNo[1] = -1;
}

// The bilinear rule through a two-line cache keyed by line number only: a change
// of plane needs GetPixelGrayRawBufInit() first.
float CLmrImage::GetPixelGrayRawBuf(double x, double y, int plane) {
  const BilinearCell cx = BilinearCell::Along(x, GetWidth());
  const BilinearCell cy = BilinearCell::Along(y, GetHeight());
  if (cx.exact && cy.exact) return *GetImageAdr(cx.first, cy.first, plane, CImage::ReadOnly);
  if (BufLineNo[0] != cy.first) {
    BufLine[0] = GetImageAdr(0, cy.first, plane, CImage::ReadOnly);
    BufLineNo[0] = cy.first;
  }
  if (BufLineNo[1] != cy.second) {
    BufLine[1] = GetImageAdr(0, cy.second, plane, CImage::ReadOnly);
    BufLineNo[1] = cy.second;
  }
  return static_cast<float>(qorimg::BlendCell(BufLine[0], BufLine[1], cx, cy));
}

// ---- Direct image ----

float CLmrImage::GetPixelDirectRaw(int x, int y, int plane) const {
  if (plane < 0 || plane > 2 || !DirectImage[plane]) return 0.0f;
  if (x > GetWidth() || y > GetHeight()) return 0.0f;
  // x == Width reads the first pixel of the next line, as the tests above allow.
  // Reads before the plane or past its end (negative coordinates, or the last
  // line with x == Width, or y == Height) give 0.0 instead of leaving the plane.
  const long long index = static_cast<long long>(y) * GetWidth() + x;
  if (x < 0 || y < 0 || index >= static_cast<long long>(GetWidth()) * GetHeight()) return 0.0f;
  return DirectImage[plane][index];
}

float CLmrImage::GetPixelDirectRaw(double x, double y, int plane) const {
  const BilinearCell cx = BilinearCell::Along(x, GetWidth());
  const BilinearCell cy = BilinearCell::Along(y, GetHeight());
  if (cx.exact && cy.exact) return GetPixelDirectRaw(cx.first, cy.first, plane);
  const double p00 = GetPixelDirectRaw(cx.first, cy.first, plane);
  const double p01 = GetPixelDirectRaw(cx.first, cy.second, plane);
  const double p10 = GetPixelDirectRaw(cx.first + 1, cy.first, plane);
  const double p11 = GetPixelDirectRaw(cx.first + 1, cy.second, plane);
  return static_cast<float>(qorimg::BlendValues(p00, p01, p10, p11, cx.fraction, cy.fraction));
}
