// CImgHstEql: pixels bucketed into 258 classes of the value range, each bucket
// sorted by value (ties by a random key), and the running rank written out.
#include "tone/ImgHstEql.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>
#include "core/LineLoops.h"
#include "core/OperatorFrame.h"
#include "platform/Exceptions.h"
#include "tone/PixelSort.h"

CPixelSort::CPixelSort(std::int32_t capacity)
    : m_nCapacity(capacity), m_pItems(new tagPixelSortItem[static_cast<std::size_t>(capacity)]) {}
CPixelSort::~CPixelSort() = default;

void CPixelSort::Add(std::int32_t x, std::int32_t y, float value, float key) {
  if (m_nCount >= m_nCapacity) throw std::bad_alloc();
  m_pItems[m_nCount++] = {x, y, value, key};
}

void CPixelSort::Sort() {
  std::sort(m_pItems.get(), m_pItems.get() + m_nCount, [](const tagPixelSortItem &a, const tagPixelSortItem &b) {
    return a.value < b.value || (a.value == b.value && a.key < b.key);
  });
}

namespace {

constexpr int kClasses = 258;

// The class of a value, used for counting and for filling alike:
// truncate((v - lo) / R * 256) in 0..257. NaN, and every value of a plane
// whose range is 0 or not finite, belong to no class (-1).
int ClassOf(float v, double lo, double range) {
  if (!(range > 0.0) || !std::isfinite(range) || std::isnan(v)) return -1;
  const double t = (v - lo) / range * 256.0;
  if (!(t > 0.0)) return 0;
  return t >= kClasses - 1 ? kClasses - 1 : static_cast<int>(t);
}

// The library's 15-bit generator (that of the histogram dither), one instance
// per class, seeded by plane and class.
struct KeyGenerator {
  unsigned state;
  float Next() {
    state = state * 214013u + 2531011u;
    return static_cast<float>((state >> 16) & 0x7FFF);
  }
};

}  // namespace

CImgHstEql::CImgHstEql() = default;
CImgHstEql::CImgHstEql(const CImgHstEql &source) = default;
CImgHstEql::~CImgHstEql() = default;

int CImgHstEql::Do(CLmrImage *pSrc) {
  const int planes = GetPlanes();
  qorimg::CheckBoundImages({{this, planes}, {pSrc, planes}}, qorimg::ClipRect(*this, nullptr));
  // Ranks are written at the source's pixel positions: the sizes must agree.
  if (pSrc->GetWidth() != GetWidth() || pSrc->GetHeight() != GetHeight()) AfxThrowInvalidArgException();
  qorimg::ProgressFrame progress(*this, 1, 6177, planes * kClasses);
  const int width = pSrc->GetWidth(), height = pSrc->GetHeight();
  const double pixels = static_cast<double>(width) * height;
  for (int c = 0; c < planes; ++c) {
    pSrc->CalcMinMax();
    const float lo = pSrc->GetMinPixel(c), hi = pSrc->GetMaxPixel(c);
    const double range = static_cast<double>(hi) - lo;
    pSrc->SetLevel(c, lo, hi);

    std::vector<std::int32_t> counts(kClasses, 0);
    for (int y = 0; y < height; ++y) {
      const float *s = pSrc->GetImageAdr(0, y, c, CImage::ReadOnly);
      for (int x = 0; x < width; ++x)
        if (const int k = ClassOf(s[x], lo, range); k >= 0) ++counts[static_cast<std::size_t>(k)];
    }
    // One scan fills every bucket; each class's keys come from the private
    // generator seeded by plane and class, so results are reproducible.
    std::vector<std::unique_ptr<CPixelSort>> buckets(kClasses);
    for (int k = 0; k < kClasses; ++k) buckets[static_cast<std::size_t>(k)] = std::make_unique<CPixelSort>(counts[k] + 100);
    std::vector<KeyGenerator> keys(kClasses);
    for (int k = 0; k < kClasses; ++k) keys[static_cast<std::size_t>(k)].state = static_cast<unsigned>(c * kClasses + k + 1);
    for (int y = 0; y < height; ++y) {
      const float *s = pSrc->GetImageAdr(0, y, c, CImage::ReadOnly);
      for (int x = 0; x < width; ++x) {
        const int k = ClassOf(s[x], lo, range);
        if (k < 0) continue;
        buckets[static_cast<std::size_t>(k)]->Add(x, y, s[x], keys[static_cast<std::size_t>(k)].Next());
      }
    }
    qorimg::ParallelLines(0, kClasses, [&](int k) {
      buckets[static_cast<std::size_t>(k)]->Sort();
      ShowProgress(1);
    });
    // The ranks go into a copy of the target plane, written back line by line,
    // so that pixels of no class keep their value.
    std::vector<float> plane(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y)
      std::copy_n(GetImageAdr(0, y, c, CImage::ReadOnly), width, plane.begin() + static_cast<std::ptrdiff_t>(y) * width);
    long long rank = 0;
    for (const auto &bucket : buckets)
      for (std::int32_t i = 0; i < bucket->GetCount(); ++i, ++rank) {
        const tagPixelSortItem &item = (*bucket)[i];
        plane[static_cast<std::size_t>(item.y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(item.x)] =
            static_cast<float>(rank * range / pixels + lo);
      }
    for (int y = 0; y < height; ++y)
      std::copy_n(plane.begin() + static_cast<std::ptrdiff_t>(y) * width, width, GetImageAdr(0, y, c));
  }
  return 1;
}
