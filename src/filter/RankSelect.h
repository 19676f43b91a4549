// Rank selection for the median and rank filters, four pixels at a time: a
// sorting network (Batcher's odd-even merge sort) over vectors of samples,
// lane i holding the samples of pixel i. Lanes with a NaN sample are left to
// the scalar selection (NaN sorts last there), so every lane's result is the
// element of the rank in the ascending order of its samples.
#pragma once
#include <immintrin.h>

#include <array>
#include <utility>
#include <vector>

#include "filter/FilterInternal.h"

namespace qorimg::filter {

// The compare-exchange pairs of Batcher's odd-even merge sort of `size` (a
// power of two) values, into `out` (which the caller sizes); returns the count.
constexpr int BatcherPairs(int size, std::pair<int, int> *out) {
  int n = 0;
  for (int p = 1; p < size; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < size; j += 2 * k)
        for (int i = 0; i < k && i + j + k < size; ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p)) {
            if (out) out[n] = {i + j, i + j + k};
            ++n;
          }
  return n;
}

// The network of `Size` values fixed at compile time, so that the exchanges
// unroll and the values stay in registers.
template <int Size>
struct FixedNetwork {
  static constexpr int kPairs = BatcherPairs(Size, nullptr);
  static constexpr std::array<std::pair<int, int>, kPairs> Make() {
    std::array<std::pair<int, int>, kPairs> pairs{};
    BatcherPairs(Size, pairs.data());
    return pairs;
  }
  static constexpr std::array<std::pair<int, int>, kPairs> pairs = Make();

  static void Sort(__m128 *v) {
#pragma GCC unroll 1024
    for (int i = 0; i < kPairs; ++i) {
      const __m128 a = v[pairs[i].first], b = v[pairs[i].second];
      v[pairs[i].first] = _mm_min_ps(a, b);
      v[pairs[i].second] = _mm_max_ps(a, b);
    }
  }
};

class RankNetwork {
public:
  // A network for `count` samples (padded with +inf to a power of two).
  explicit RankNetwork(int count) : count_(count) {
    size_ = 1;
    while (size_ < count) size_ <<= 1;
    pairs_.resize(static_cast<size_t>(BatcherPairs(size_, nullptr)));
    BatcherPairs(size_, pairs_.data());
  }
  int Count() const { return count_; }
  int Size() const { return size_; }

  // Sorts v[0..Size()) lane by lane; v[Count()..Size()) must hold +inf.
  void Sort(__m128 *v) const {
    switch (size_) {
      case 8: return FixedNetwork<8>::Sort(v);
      case 16: return FixedNetwork<16>::Sort(v);
      case 32: return FixedNetwork<32>::Sort(v);
      default: break;
    }
    for (const auto &[a, b] : pairs_) {
      const __m128 lo = _mm_min_ps(v[a], v[b]);
      v[b] = _mm_max_ps(v[a], v[b]);
      v[a] = lo;
    }
  }

  // out[0..4) := element `rank` of each lane's samples; lanes with a NaN go
  // through the scalar selection. v is reordered.
  void Select(__m128 *v, int rank, float *out) const {
    __m128 unordered = _mm_setzero_ps();
    for (int i = 0; i < count_; ++i) unordered = _mm_or_ps(unordered, _mm_cmpunord_ps(v[i], v[i]));
    const int nanLanes = _mm_movemask_ps(unordered);
    float lanes[4][64];
    if (nanLanes)
      for (int i = 0; i < count_; ++i) {
        float s[4];
        _mm_storeu_ps(s, v[i]);
        for (int l = 0; l < 4; ++l) lanes[l][i] = s[l];
      }
    for (int i = count_; i < size_; ++i) v[i] = _mm_set1_ps(__builtin_inff());
    Sort(v);
    _mm_storeu_ps(out, v[rank]);
    for (int l = 0; l < 4; ++l)
      if (nanLanes & (1 << l)) out[l] = SelectNanLast(lanes[l], count_, rank);
  }

  // The largest window the scalar fallback holds.
  static constexpr int kMaxCount = 64;

private:
  int count_;
  int size_;
  std::vector<std::pair<int, int>> pairs_;
};

}  // namespace qorimg::filter
