// CImgFalseColor: brightness on the display scale through a palette.
#include "tone/ImgFalseColor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include "core/OperatorRunner.h"

namespace {

using Rgb = std::array<float, 3>;
using Table256 = std::array<Rgb, 256>;

// Nine samples of tables 3 and 4 at 0, 32, ..., 224 and 255.
constexpr int kSampleAt[9] = {0, 32, 64, 96, 128, 160, 192, 224, 255};
constexpr float kCyanSamples[9][3] = {{0, 0, 0},       {0, 23, 33},     {0, 59, 78},     {0, 100, 124},
                                      {21, 143, 168},  {74, 182, 199},  {140, 213, 224}, {201, 236, 241},
                                      {246, 252, 252}};
constexpr float kRedSamples[9][3] = {{0, 0, 0},        {44, 0, 0},      {104, 1, 0},     {163, 13, 0},
                                     {202, 46, 23},    {225, 103, 76},  {239, 162, 143}, {248, 215, 205},
                                     {253, 249, 248}};

// A monotone cubic through the samples (piecewise cubic Hermite with the
// derivatives of Fritsch and Carlson): it never overshoots between samples.
Table256 MonotoneTable(const float (&samples)[9][3]) {
  Table256 table{};
  for (int ch = 0; ch < 3; ++ch) {
    double h[8], delta[8], d[9];
    for (int k = 0; k < 8; ++k) {
      h[k] = kSampleAt[k + 1] - kSampleAt[k];
      delta[k] = (samples[k + 1][ch] - samples[k][ch]) / h[k];
    }
    for (int k = 1; k < 8; ++k) {
      if (delta[k - 1] * delta[k] <= 0) {
        d[k] = 0;
      } else {
        const double w1 = 2 * h[k] + h[k - 1], w2 = h[k] + 2 * h[k - 1];
        d[k] = (w1 + w2) / (w1 / delta[k - 1] + w2 / delta[k]);
      }
    }
    auto end = [](double h0, double h1, double m0, double m1) {
      double dEnd = ((2 * h0 + h1) * m0 - h0 * m1) / (h0 + h1);
      if ((dEnd > 0) != (m0 > 0) || m0 == 0) return 0.0;
      if ((m0 > 0) != (m1 > 0) && std::abs(dEnd) > 3 * std::abs(m0)) dEnd = 3 * m0;
      return dEnd;
    };
    d[0] = end(h[0], h[1], delta[0], delta[1]);
    d[8] = end(h[7], h[6], delta[7], delta[6]);
    for (int i = 0; i < 256; ++i) {
      int k = 0;
      while (k < 7 && i >= kSampleAt[k + 1]) ++k;
      const double t = (i - kSampleAt[k]) / h[k], t2 = t * t, t3 = t2 * t;
      const double value = (2 * t3 - 3 * t2 + 1) * samples[k][ch] + (t3 - 2 * t2 + t) * h[k] * d[k] +
                           (-2 * t3 + 3 * t2) * samples[k + 1][ch] + (t3 - t2) * h[k] * d[k + 1];
      table[static_cast<std::size_t>(i)][static_cast<std::size_t>(ch)] = static_cast<float>(value);
    }
  }
  return table;
}

Table256 HeatTable() {
  Table256 table{};
  for (int i = 0; i < 256; ++i)
    table[static_cast<std::size_t>(i)] = {static_cast<float>(std::min(255, 3 * i)),
                                          static_cast<float>(std::clamp(3 * (i - 85), 0, 255)),
                                          static_cast<float>(std::clamp(3 * (i - 170), 0, 255))};
  return table;
}

const Table256 &LongTable(int nTable) {
  static const Table256 cyan = MonotoneTable(kCyanSamples), red = MonotoneTable(kRedSamples), heat = HeatTable();
  return nTable == 3 ? cyan : nTable == 4 ? red : heat;
}

// Short palettes: rows `spacing` apart, blended toward the next row by
// (t - i * spacing) * weight.
struct ShortPalette {
  const float (*rows)[3];
  int count;
  float spacing, weight;
};
constexpr float kBlueToRed[5][3] = {{0, 0, 255}, {0, 255, 255}, {0, 255, 0}, {255, 255, 0}, {255, 0, 0}};
constexpr float kHues[7][3] = {{0, 0, 0},     {0, 0, 255}, {0, 255, 255},  {0, 255, 0},
                               {255, 255, 0}, {255, 0, 0}, {255, 255, 255}};
constexpr float kDeepBlue[5][3] = {{0, 0, 0}, {0, 0, 128}, {0, 0, 255}, {128, 128, 255}, {255, 255, 255}};

void Blend(const float *a, const float *b, float w, float *out) {
  for (int ch = 0; ch < 3; ++ch) out[ch] = a[ch] + (b[ch] - a[ch]) * w;
}

}  // namespace

CImgFalseColor::CImgFalseColor() = default;
CImgFalseColor::CImgFalseColor(const CImgFalseColor &source) = default;
CImgFalseColor::~CImgFalseColor() = default;

void CImgFalseColor::GetFalseColor(float u, int nTable, int nCycle, float *pRed, float *pGreen, float *pBlue) {
  // NaN counts as 0; no value reaches an integer conversion outside 0..255.
  auto clamp255 = [](float t) { return t > 0.0f ? std::min(t, 255.0f) : 0.0f; };
  float t = clamp255(u);
  if (nCycle > 0) t = clamp255(std::fmod(static_cast<float>(nCycle) * t, 256.0f));
  float out[3];
  if (nTable >= 0 && nTable <= 2) {
    static const ShortPalette palettes[3] = {
        {kBlueToRed, 5, 63.75f, 1.0f / 63.75f}, {kHues, 7, 42.5f, 0.015625f}, {kDeepBlue, 5, 63.75f, 1.0f / 63.75f}};
    const ShortPalette &p = palettes[nTable];
    const int i = static_cast<int>(t / p.spacing);
    if (i >= p.count - 1)
      Blend(p.rows[p.count - 1], p.rows[p.count - 1], 0.0f, out);
    else
      Blend(p.rows[i], p.rows[i + 1], (t - i * p.spacing) * p.weight, out);
  } else if (nTable >= 3 && nTable <= 5) {
    const Table256 &table = LongTable(nTable);
    const int i = static_cast<int>(t);
    if (i >= 255)
      Blend(table[255].data(), table[255].data(), 0.0f, out);
    else
      Blend(table[static_cast<std::size_t>(i)].data(), table[static_cast<std::size_t>(i) + 1].data(), t - i, out);
  } else {
    out[0] = out[1] = out[2] = t;
  }
  *pRed = out[0];
  *pGreen = out[1];
  *pBlue = out[2];
}

void CImgFalseColor::Do(double fMin, double fMax, int nTable, int nCycle, CLmrImage *pSrc, CRect *rect,
                        int bProgress) {
  if (!IsColor() || GetPlanes() < 3) return;
  const qorimg::LineRect r = qorimg::ClipRect(*this, rect);
  const bool colourSource = pSrc && pSrc->IsColor();
  const int read = colourSource ? 3 : 1;
  qorimg::CheckBoundImages({{this, 3}, {pSrc, read}}, r);
  const float lo = static_cast<float>((fMin - pSrc->GetLevelMin(0)) / pSrc->GetLevelRange(0) * 255.0);
  const float hi = static_cast<float>((fMax - pSrc->GetLevelMin(0)) / pSrc->GetLevelRange(0) * 255.0);
  const float scale = 255.0f / (hi - lo);
  float levelMin[3], levelRange[3];
  for (int c = 0; c < 3; ++c) {
    levelMin[c] = static_cast<float>(GetLevelMin(c));
    levelRange[c] = static_cast<float>(GetLevelRange(c));
  }
  qorimg::RouteTable routes;
  routes.parallelLines = true;
  routes.line = [&](int, int y) {
    const float *s[3];
    float *d[3];
    for (int c = 0; c < 3; ++c) {
      s[c] = pSrc->GetImageAdr(r.left, y, c < read ? c : 0, CImage::ReadOnly);
      d[c] = GetImageAdr(r.left, y, c);
    }
    auto display = [&](float v, int c) { return ((v - levelMin[c]) * 255.0f / levelRange[c] - lo) * scale; };
    for (int x = 0; x < r.Width(); ++x) {
      const float t = colourSource ? 0.299f * display(s[0][x], 0) + 0.587f * display(s[1][x], 1) +
                                         0.114f * display(s[2][x], 2)
                                   : display(s[0][x], 0);
      float rgb[3];
      GetFalseColor(t, nTable, nCycle, &rgb[0], &rgb[1], &rgb[2]);
      for (int c = 0; c < 3; ++c) d[c][x] = rgb[c] * levelRange[c] / 255.0f + levelMin[c];
    }
  };
  qorimg::RunOperator({*this, bProgress, 6117, r.Height(), r, {0, 1}}, {{this, 3}, {pSrc, read}}, routes);
}
