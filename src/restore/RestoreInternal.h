// What the restoration operators (Wiener, Lucy-Richardson, maximum entropy)
// share: moving a rectangle of one plane to and from private arrays, the
// allocation of those arrays (with a test hook), and the Gaussian point
// spread function. Not installed.
#pragma once
#include <cstddef>
#include <cstring>
#include <memory>
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

namespace qorimg::restore {

// fn(row, line) for every row of `rect` in `plane`, row counted from the
// rectangle's top: by pointer arithmetic from the plane's base on whole-plane
// stores, through GetImageAdr line by line otherwise. Both give the same
// addresses' contents, so every route moves the same bits.
template <class Fn>
void ForRectRows(const CLmrImage &image, int plane, const LineRect &rect, bool write, Fn &&fn) {
  if (rect.IsEmpty()) return;
  const CImage::Mode mode = write ? CImage::Write : CImage::ReadOnly;
  if (IsWholePlane(image)) {
    float *base = image.GetImageAdr(0, 0, plane, mode);
    const std::size_t stride = static_cast<std::size_t>(image.GetWidth());
    for (int y = 0; y < rect.Height(); ++y) fn(y, base + (static_cast<std::size_t>(rect.top) + y) * stride + rect.left);
  } else {
    for (int y = 0; y < rect.Height(); ++y) fn(y, image.GetImageAdr(rect.left, rect.top + y, plane, mode));
  }
}

// The rectangle of `plane` into dst (rows of rect.Width()), and back.
void CopyRectOut(const CLmrImage &image, int plane, const LineRect &rect, float *dst);
void CopyRectIn(CLmrImage &image, int plane, const LineRect &rect, const float *src);

// Every private array of the restoration operators is had through here, so
// that a test can make the n-th one fail (std::bad_alloc).
void CheckAllocation();
template <class T>
std::unique_ptr<T[]> Allocate(std::size_t n) {
  CheckAllocation();
  return std::unique_ptr<T[]>(new T[n == 0 ? 1 : n]);
}

// The Gaussian PSF of the Lucy and maximum-entropy operators, nWidth x
// nHeight, centred at half sizes; null for sigma <= 0 or not finite, or a
// size below 1. See Restore.cpp for the normalisation.
float *MakeGaussPsf(double fSigma, int nWidth, int nHeight);

// "%d" formatting of a string resource with one or two numbers.
std::wstring FormatResource(int id, int a, int b = 0);

namespace testing {
// The n-th allocation from now (0: the next) and every later one through
// Allocate, CFft::Create and the Lucy core fail; negative: they succeed.
void FailAllocationsFrom(int n);
}  // namespace testing

}  // namespace qorimg::restore
