// The split-radix line transform of CFftd, written after Takuya Ooura's
// published split-radix FFT package, whose function names it keeps for the
// corresponding steps. Everything here is a template over the lane type T: T =
// float transforms one line, a vector of floats (GCC vector extension) several
// lines at once, one line per lane. Each lane runs exactly the operations of
// the float version (no fused multiply-add: the sources that include this are
// built with -ffp-contract=off), so every line comes out bit-identical whether
// it was transformed alone or in a group.
//
// Deliberately free of library and standard headers and of non-template
// functions: one source file instantiates it for AVX, and no inline function
// may exist in two builds.
//
// Layout: a line of n complex values is 2n lanes, a[2j] the real part and
// a[2j + 1] the imaginary part of element j. The transform below is the
// forward one, X[k] = sum_j x[j] e^(+2 pi i jk / n), left in bit-reversed
// order; the inverse is the conjugate of the forward transform of the
// conjugate, divided by n, which the first stage and the reversal apply.
//
// Twiddles: for each block size m = n, n/2, ..., 8, in that order, m/4 groups
// of four floats (cos, sin of 2 pi k/m, cos, sin of 6 pi k/m) for k < m/4, so
// the table of block size m/2 starts m floats after that of m. TwiddleFloats(n)
// floats in all.
#pragma once

namespace qorimg::fft {

template <class Int>
constexpr Int TwiddleFloats(Int n) {
  return n >= 8 ? 2 * n - 8 : 0;
}

// One split-radix butterfly over a block of m elements: the sums of the two
// halves stay in the first half (to become the even outputs), the differences
// become the quarter blocks of outputs 4k + 1 and 4k + 3, with their twiddles.
template <class T>
inline void cftmdl1(int m, T *a, const float *w) {
  const int q = m / 2;  // lanes in a quarter block
  T *a1 = a + q, *a2 = a + 2 * q, *a3 = a + 3 * q;
  for (int r = 0; r < q; r += 2) {
    const int i = r + 1;
    const T x0r = a[r] + a2[r], x0i = a[i] + a2[i];
    const T x1r = a[r] - a2[r], x1i = a[i] - a2[i];
    const T x2r = a1[r] + a3[r], x2i = a1[i] + a3[i];
    const T x3r = a1[r] - a3[r], x3i = a1[i] - a3[i];
    a[r] = x0r;
    a[i] = x0i;
    a1[r] = x2r;
    a1[i] = x2i;
    const T y1r = x1r - x3i, y1i = x1i + x3r;
    const T y3r = x1r + x3i, y3i = x1i - x3r;
    const float *t = w + 2 * r;
    a2[r] = y1r * t[0] - y1i * t[1];
    a2[i] = y1r * t[1] + y1i * t[0];
    a3[r] = y3r * t[2] - y3i * t[3];
    a3[i] = y3r * t[3] + y3i * t[2];
  }
}

// Two points.
template <class T>
inline void cftx020(T *a) {
  const T x0r = a[0] - a[2], x0i = a[1] - a[3];
  a[0] = a[0] + a[2];
  a[1] = a[1] + a[3];
  a[2] = x0r;
  a[3] = x0i;
}

// Four points (the first butterfly has unit twiddles and needs no table).
template <class T>
inline void cftf040(T *a) {
  const T x0r = a[0] + a[4], x0i = a[1] + a[5];
  const T x1r = a[0] - a[4], x1i = a[1] - a[5];
  const T x2r = a[2] + a[6], x2i = a[3] + a[7];
  const T x3r = a[2] - a[6], x3i = a[3] - a[7];
  a[0] = x0r + x2r;
  a[1] = x0i + x2i;
  a[2] = x0r - x2r;
  a[3] = x0i - x2i;
  a[4] = x1r - x3i;
  a[5] = x1i + x3r;
  a[6] = x1r + x3i;
  a[7] = x1i - x3r;
}

// The four points of the inverse: the forward butterflies on the conjugate.
template <class T>
inline void cftb040(T *a) {
  for (int j = 1; j < 8; j += 2) a[j] = -a[j];
  cftf040(a);
}

// Blocks of a size known at compile time, unrolled down to four points.
template <int M, class T>
inline void cftblock(T *a, const float *w) {
  if constexpr (M == 1) {
  } else if constexpr (M == 2) {
    cftx020(a);
  } else if constexpr (M == 4) {
    cftf040(a);
  } else {
    cftmdl1(M, a, w);
    cftblock<M / 2>(a, w + M);
    cftblock<M / 4>(a + M, w + M + M / 2);
    cftblock<M / 4>(a + M + M / 2, w + M + M / 2);
  }
}

// Eight and sixteen points.
template <class T>
inline void cftf081(T *a, const float *w) {
  cftblock<8>(a, w);
}
template <class T>
inline void cftf161(T *a, const float *w) {
  cftblock<16>(a, w);
}

// Blocks of up to 32 elements (lines of fewer than 129 floats).
template <class T>
void cftfx41(int m, T *a, const float *w) {
  switch (m) {
    case 32: cftblock<32>(a, w); break;
    case 16: cftf161(a, w); break;
    case 8: cftf081(a, w); break;
    case 4: cftf040(a); break;
    case 2: cftx020(a); break;
    default: break;
  }
}

// One butterfly over a block of m elements, then `next` on its three
// sub-blocks, each finished before the next is touched.
template <class T, class Next>
inline void cftsplit(int m, T *a, const float *w, Next next) {
  cftmdl1(m, a, w);
  next(m / 2, a, w + m);
  next(m / 4, a + m, w + m + m / 2);
  next(m / 4, a + m + m / 2, w + m + m / 2);
}

// Blocks of up to 256 elements (512 floats): they fit the first-level cache
// even with eight lanes, so plain recursion down to the fixed kernels.
template <class T>
void cftleaf(int m, T *a, const float *w) {
  if (m <= 32)
    cftfx41(m, a, w);
  else
    cftsplit(m, a, w, cftleaf<T>);
}

// The depth-first recursion over long lines, down to leaf blocks.
template <class T>
void cfttree(int m, T *a, const float *w) {
  if (m <= 256)
    cftleaf(m, a, w);
  else
    cftsplit(m, a, w, cfttree<T>);
}

// After the first stage of a line of n elements: the three sub-blocks.
template <class T>
void cftrec4(int n, T *a, const float *w) {
  cfttree(n / 2, a, w + n);
  cfttree(n / 4, a + n, w + n + n / 2);
  cfttree(n / 4, a + n + n / 2, w + n + n / 2);
}

// First stage of a line, forward and inverse (the inverse conjugates its input).
template <class T>
inline void btfly_32(int n, T *a, const float *w) {
  cftmdl1(n, a, w);
}
template <class T>
inline void btfly_I32(int n, T *a, const float *w) {
  for (int j = 1; j < 2 * n; j += 2) a[j] = -a[j];
  cftmdl1(n, a, w);
}

// The forward transform in bit-reversed order of a line of n >= 1 elements
// (n a power of two). With bConjugateInput the input is conjugated first.
template <class T>
void cftfsub(int n, T *a, const float *w, bool bConjugateInput) {
  if (n > 16) {
    if (bConjugateInput)
      btfly_I32(n, a, w);
    else
      btfly_32(n, a, w);
    cftrec4(n, a, w);  // blocks of 256 elements and less go on in cftleaf, of 32 and less in cftfx41
    return;
  }
  if (n == 4) {
    if (bConjugateInput)
      cftb040(a);
    else
      cftf040(a);
    return;
  }
  if (bConjugateInput)
    for (int j = 1; j < 2 * n; j += 2) a[j] = -a[j];
  cftfx41(n, a, w);
}

// Bit reversal of an index below 2^bits.
template <class Int>
constexpr Int ReverseBits(Int index, int bits) {
  Int r = 0;
  for (int b = 0; b < bits; ++b) r = (r << 1) | ((index >> b) & 1);
  return r;
}

// The output of cftfsub into natural order: element ip[p] := a[p]; with
// bConjugate the imaginary parts change sign, and with scale > 0 everything
// is divided by it. `out` is the complex line (pairs of floats) at element
// stride `stride` floats; lanes beyond `lanes` are not written. For one lane
// (T = float) the line is out itself.
template <class T, int Lanes>
void ScatterReversed(const T *a, int n, const int *ip, bool bConjugate, float scale, float *const *out,
                     long stride, int lanes) {
  for (int p = 0; p < n; ++p) {
    T re = a[2 * p], im = a[2 * p + 1];
    if (bConjugate) im = -im;
    if (scale > 0) {
      re = re / scale;
      im = im / scale;
    }
    const long at = static_cast<long>(ip[p]) * stride;
    if constexpr (Lanes == 1) {
      out[0][at] = re;
      out[0][at + 1] = im;
    } else {
      for (int l = 0; l < lanes; ++l) {
        out[l][at] = re[l];
        out[l][at + 1] = im[l];
      }
    }
  }
}

// Gathers up to Lanes lines (pairs of floats at element stride `stride`
// floats) into lanes; missing lanes are zero.
template <class T, int Lanes>
void GatherLanes(T *a, int n, const float *const *in, long stride, int lanes) {
  for (int j = 0; j < n; ++j) {
    const long at = static_cast<long>(j) * stride;
    T re{}, im{};
    for (int l = 0; l < lanes; ++l) {
      re[l] = in[l][at];
      im[l] = in[l][at + 1];
    }
    a[2 * j] = re;
    a[2 * j + 1] = im;
  }
}

// A group of up to Lanes lines transformed in place through the lane buffer
// `a` (2n vectors, suitably aligned): forward, or inverse divided by n.
template <class T, int Lanes>
void TransformLanes(float *const *lines, long stride, int lanes, int n, bool bInverse, const float *w, const int *ip,
                    T *a) {
  GatherLanes<T, Lanes>(a, n, lines, stride, lanes);
  cftfsub(n, a, w, bInverse);
  ScatterReversed<T, Lanes>(a, n, ip, bInverse, bInverse ? static_cast<float>(n) : 0.0f, lines, stride, lanes);
}

}  // namespace qorimg::fft
