// Test hook, not installed: forces the answer of CQorSys::SIMD(), so that tests
// and benchmarks run the plain or the vector line loops on any processor.
#pragma once

namespace qorimg::testing {

// Replaces the answer of CQorSys::SIMD() until ClearSIMDOverride().
void OverrideSIMD(unsigned int bits);
void ClearSIMDOverride();

}  // namespace qorimg::testing
