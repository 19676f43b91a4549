// Processor features and the parallel runtime, as the library asks for them.
#pragma once
#include "Export.h"

class QORIMG_API CQorSys {
public:
  // The processor's vector feature bits; bit 1 (value 2) lets the 128-bit vector
  // loops run. Cheap: read once, then cached.
  static unsigned int SIMD();
  // Test hook: replaces the answer of SIMD() until cleared with ClearSIMDOverride().
  static void OverrideSIMD(unsigned int bits);
  static void ClearSIMDOverride();
};

class QORIMG_API CParallel {
public:
  static int GetMaxThreads();
  static int GetThreadNum();
};
