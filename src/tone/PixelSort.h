// CPixelSort: the bucket of one histogram class in CImgHstEql, pixels with
// their value and a random key, sorted by value and then by key.
#pragma once
#include <cstdint>
#include <memory>

struct tagPixelSortItem {
  std::int32_t x;
  std::int32_t y;
  float value;
  float key;
};

class CPixelSort {
public:
  explicit CPixelSort(std::int32_t capacity);
  virtual ~CPixelSort();
  CPixelSort(const CPixelSort &) = delete;
  CPixelSort &operator=(const CPixelSort &) = delete;

  void Add(std::int32_t x, std::int32_t y, float value, float key);
  void Sort();
  std::int32_t GetCount() const { return m_nCount; }
  const tagPixelSortItem &operator[](std::int32_t i) const { return m_pItems[i]; }

private:
  std::int32_t m_nCapacity;
  std::int32_t m_nCount = 0;
  std::unique_ptr<tagPixelSortItem[]> m_pItems;
};
