// Groups of lines through the split-radix transform, one line per vector lane,
// on the widest vectors the processor has (AVX: 8 lanes, else 4). Every line
// comes out bit-identical to CFftd::LineFFT_SR on it alone.
#pragma once
#include <cstddef>

namespace qorimg::fft {

constexpr int kMaxLanes = 8;

// Lanes of the variant chosen for this processor.
int LaneCount();

// Floats of lane buffer that a group of lines of n elements needs (for any
// variant), and its alignment in bytes.
constexpr std::size_t LaneBufferFloats(int n) { return static_cast<std::size_t>(n) * 2 * kMaxLanes; }
constexpr std::size_t kLaneBufferAlignment = 64;

// Transforms `lanes` (1..LaneCount()) lines in place: line l holds n complex
// values as float pairs starting at lines[l], element j at lines[l] + j *
// stride floats. Forward, or inverse divided by n. w and ip are the tables of
// MakeTableSR(n); buffer is a lane buffer of LaneBufferFloats(n) floats.
void TransformGroup(float *const *lines, long stride, int lanes, int n, bool bInverse, const float *w, const int *ip,
                    void *buffer);

// The AVX variant (FftLinesAvx.cpp), 8 lanes.
void TransformGroupAvx(float *const *lines, long stride, int lanes, int n, bool bInverse, const float *w,
                       const int *ip, void *buffer);

}  // namespace qorimg::fft
