// Helpers shared by the transform classes and CImgFourier; not installed.
#pragma once
#include <cstddef>

namespace qorimg::fft {

// W x H elements without int overflow.
std::size_t ArrayElements(int width, int height);

namespace testing {
// While set, CFftd's array and work-area allocations fail (CFftd::Create
// returns 0, Do leaves the array).
void FailTransformAllocations(bool fail);
}  // namespace testing

}  // namespace qorimg::fft
