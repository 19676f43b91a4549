// Processor features and the parallel runtime, as the library asks for them.
// The closed sibling's interface: used inside the library, not installed or
// exported. Tests force the answer of SIMD() through sibling/SimdOverride.h.
#pragma once

class CQorSys {
public:
  // The processor's vector feature bits; bit 1 (value 2) lets the 128-bit vector
  // loops run. Cheap: read once, then cached.
  static unsigned int SIMD();
};

class CParallel {
public:
  static int GetMaxThreads();
  static int GetThreadNum();
};
