// Two-dimensional Fourier transforms on pairs of complex arrays, for the
// frequency-domain operators (phase-only correlation, restoration).
//
// Both classes hold arrays A and B of W x H complex values, row-major, whose
// sides are the requested sizes rounded up to powers of two. The forward
// transform of a line is X[k] = sum_j x[j] e^(+2 pi i jk / n), unscaled; the
// inverse uses e^(-2 pi i jk / n) and divides by n, so forward then inverse
// returns the input. Note the positive sign of the forward kernel: the shift
// estimates depend on it.
//
// CFftd is the working class: a split-radix transform run by rows and columns
// over threads, log-polar mapping, and phase-only correlation. CFft is the
// older single-threaded radix-2 class with the convolution and Gaussian
// operations of the Wiener filter. Every operation taking `nArray` works on A
// (0) or B (1) and does nothing for any other value; after a failed or
// rejected Create every operation does nothing.
#pragma once
#include <cstddef>
#include <vector>
#include "Export.h"

class CLmrImage;

// A complex value of the transform arrays: real part, then imaginary part.
struct complex {
  float re;
  float im;
};
// The same pair of 32-bit floats, in spite of its name.
struct dcomplex {
  float re;
  float im;
};

class QORIMG_API CFftd {
public:
  CFftd();
  virtual ~CFftd();
  CFftd(const CFftd &) = delete;
  CFftd &operator=(const CFftd &) = delete;

  // 2 to the power ceil (floor) of log2 n. Powers of two come back unchanged;
  // 0 gives 0; a negative n, or a result above 2^30, gives INT_MIN.
  static int GetCeilPowerOf2(int n);
  static int GetFloorPowerOf2(int n);

  // Rounds both sizes up to powers of two, allocates A and B (64-byte
  // aligned) and zeroes them. 1, or 0 when a rounded side is below 1 or the
  // memory cannot be had (then nothing is allocated).
  int Create(int nWidth, int nHeight);
  void Init();
  int GetWidth() const { return m_nWidth; }
  int GetHeight() const { return m_nHeight; }
  dcomplex *GetImageAdr() { return m_pA; }
  dcomplex *GetImageAdrA() { return m_pA; }
  dcomplex *GetImageAdrB() { return m_pB; }

  // Transform in place, rows then columns in parallel, one progress tick per
  // line to the progress image. Returns 0 always; when the work areas cannot
  // be had the array is left as it was.
  int Do(int bInverse, int nArray);
  // Each row alone (radix-2): element i of row y's result lands at linear
  // index y + i (H + 1) of a W x (H + 1) buffer whose first W H values then
  // become the array. Slots that no row writes keep the array's old values.
  int Do1D(int bInverse, int nArray);

  // Real and imaginary parts to amplitude (real slot) and phase in radians
  // (imaginary slot), then the quadrants swapped so that the zero frequency
  // stands at (W/2, H/2); ToReIm undoes both.
  void ToAmpPhase(int nArray);
  void ToReIm(int nArray);
  // Exchanges left and right halves of every row, then top and bottom halves.
  void Swap(int nArray);
  // Left and right halves only.
  void SwapX(int nArray);
  // Radial Hann window about (W/2, H/2), zero beyond min(W, H)/2.
  void Windowing(int nArray);
  // Replaces the real parts by their log-polar map (theta along rows, log rho
  // down the columns; imaginary components zero), optionally after a log tone.
  void ToLogPolar(int nRhoMin, int bInscribed, int nThetaStart, int nThetaEnd, int bLogTone, int nArray);
  void SetProgressImg(CLmrImage *pImage) { m_pProgressImg = pImage; }
  void DebugOut(int) {}

  // Phase-only correlation: A := the normalised cross spectrum B conj(A),
  // keeping the lower half of the frequencies on both axes (CalcPOC1D: on x
  // only). After the inverse transform and Swap, A's real part is the
  // correlation surface with zero shift at (W/2, H/2).
  void CalcPOC();
  void CalcPOC1D();
  // The peak of A's real part: at (*pX, *pY) when both are given (clamped
  // into the array), else the first largest value above 0 in row order; with
  // the sub-pixel estimate, as a shift from the centre.
  void PeakOfPOC(const int *pX, const int *pY, double &dx, double &dy, double &peak);
  // The rows' one-dimensional peak: needs H > 40; row 0 is zeroed before its
  // search, so the result comes from the estimator at clamped positions.
  void PeakOfPOC1D(double &dx);
  void PeakOfPOC1D(int nRow, double &dx);

protected:
  int NewWorkArea();
  void DeleteWorkArea();
  // Twiddle and bit-reversal tables of the split-radix line transform.
  void MakeTableSR(int n);
  // One line of n complex values in place (n a power of two).
  void LineFFT_SR(dcomplex *a, int n, int bInverse);
  // Sine table of n + n/4 entries for the radix-2 LineFFT.
  void MakeTable(int n);
  void LineFFT(dcomplex *a, int n, int bInverse);

  // The peak evaluation formula about column (row) x (y): dx := W/2 - e.
  void SubPixPeakPEF(int x, int y, int bBoth, double &dx, double &dy);
  // Its two sums along one line of n values read at base + i * step.
  double u(const dcomplex *base, std::ptrdiff_t step, int n, int c, int k) const;
  double v(const dcomplex *base, std::ptrdiff_t step, int n, int c, int k) const;
  // Bilinear reading of the real parts at (x, y), neighbours clamped.
  double Interp(dcomplex *pArray, int nWidth, int nHeight, double x, double y);

  dcomplex *Array(int nArray) const;
  void PeakOfRow(int nRow, double &dx);

  int m_nWidth = 0;
  int m_nLog2Width = 0;
  int m_nHeight = 0;
  int m_nLog2Height = 0;
  CLmrImage *m_pProgressImg = nullptr;
  dcomplex *m_pA = nullptr;
  dcomplex *m_pB = nullptr;
  // Per-thread lane buffers of the line transforms.
  float *m_pWork = nullptr;
  std::size_t m_nWorkPerThread = 0;
  int m_bAmpA = 0;
  int m_bAmpB = 0;
  int m_nTableSR = 0;
  std::vector<float> m_twiddle;
  std::vector<int> m_reversal;
  int m_nTable = 0;
  std::vector<float> m_sin;
};

class QORIMG_API CFft {
public:
  CFft();
  virtual ~CFft();
  CFft(const CFft &) = delete;
  CFft &operator=(const CFft &) = delete;

  static int GetCeilPowerOf2(int n) { return CFftd::GetCeilPowerOf2(n); }
  static int GetFloorPowerOf2(int n) { return CFftd::GetFloorPowerOf2(n); }

  // As CFftd::Create; the arrays come from new[], whose failure throws.
  int Create(int nWidth, int nHeight);
  void Init();
  int GetWidth() const { return m_nWidth; }
  int GetHeight() const { return m_nHeight; }
  complex *GetImageAdr() { return m_pA; }
  complex *GetImageAdrA() { return m_pA; }
  complex *GetImageAdrB() { return m_pB; }

  // Self-sorting radix-2 transform, single-threaded. Returns 0 always.
  int Do(int bInverse, int nArray);
  void ToAmpPhase(int nArray);
  void ToReIm(int nArray);
  // Like CFftd's but cos(d pi / (W/2)) 0.5 + 0.5 with no cut-off.
  void Windowing(int nArray);
  // Like CFftd's, in double: rho0 = log(nRhoMin + 0.5), outer radius W/2 - 0.5
  // (inscribed) or W/sqrt 2 - 0.5, tone log(v) + 1.
  void ToLogPolar(int nRhoMin, int bInscribed, int nThetaStart, int nThetaEnd, int bLogTone, int nArray);
  void DebugOut(int) {}

  // Smallest and largest re^2 + im^2 of A.
  void GetMinMax(double *pMin, double *pMax);
  // A := conj(G) A / (|G|^2 + fNoise) with G from pOther's A, in float.
  void Convolution(CFft *pOther, double fNoise);
  // A := a Gaussian of sigma fSigma in wrapped order, times 1000 / (2 pi).
  void SetGauss(double fSigma);
  // A := B conj(A) / |B conj(A)|, no band limit.
  void CalcPOC();

protected:
  int NewWorkArea();
  void DeleteWorkArea();
  void CalcW(int n);
  void LineFFT(int n, int nLog2, int bInverse);
  // Bilinear reading of A's or B's real parts, neighbours clamped, 0 outside.
  double Interp(const complex *pArray, double x, double y) const;

private:
  void Swap(int nArray);
  complex *Array(int nArray) const;

  int m_nWidth = 0;
  int m_nLog2Width = 0;
  int m_nHeight = 0;
  int m_nLog2Height = 0;
  complex *m_pA = nullptr;
  complex *m_pB = nullptr;
  complex *m_pWork[2] = {nullptr, nullptr};
  int m_bAmpA = 0;
  int m_bAmpB = 0;
  std::vector<double> m_w;
};
