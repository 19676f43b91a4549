// The line functions of CImgCalculation: the plain line and the 128-bit vector
// line of each mode.
#pragma once
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

namespace qorimg {

// d[x] := s[x] op value for x in [0, count); mode 3 with value 0.0 and unknown
// modes copy.
void CalculationLine(float *d, const float *s, int count, float value, int mode, int clip);

// The vector line of mode 0 (add), 1 (subtract, with clip a maximum against
// zero) or 2 (multiply): unaligned loads, aligned non-temporal stores.
class VectorCalculation {
public:
  VectorCalculation(int mode, float value, int clip) : mode_(mode), value_(value), clip_(clip) {}
  void operator()(float *d, const float *s, int count) const;

private:
  int mode_;
  float value_;
  int clip_;
};

// The vector loop over `rect` of every plane of target, lines in parallel, then
// a store fence.
void RunVectorCalculation(CLmrImage &target, const VectorCalculation &vector, CLmrImage &src, const LineRect &rect);

}  // namespace qorimg
