// CFilterMatrix: a square float kernel of odd side 2R+1 and the makers of the
// library's kernels (Gaussian, disc mean, Laplacian, sharpen, masks, the
// colour-filter-array masks and the guide-error canceller). The filters use a
// matrix through its middle row (separable filters) or as a whole (window
// filters).
#pragma once
#include "Export.h"

class QORIMG_API CFilterMatrix {
public:
  CFilterMatrix();
  // MakeMtx(nR, nSize, 0).
  CFilterMatrix(int nR, int nSize);
  // SetMtx(nR, p, n).
  CFilterMatrix(int nR, float *p, int n);
  CFilterMatrix(int nR, double *p, int n);
  CFilterMatrix(const CFilterMatrix &other);
  CFilterMatrix &operator=(const CFilterMatrix &other);
  virtual ~CFilterMatrix();

  // trunc(fStdDev * 2.8 + 1.0), at least 1.
  static int GetGaussian_nR(double fStdDev);

  // A cleared (2nR+1)^2 matrix; nR < 0 counts as 0. 0 when nNeed is non-zero
  // and above the cell count (the new matrix stays), else 1. A side whose
  // square exceeds INT_MAX throws std::bad_alloc. bClear is kept for the
  // interface: the cells are always zeroed.
  int MakeMtx(int nR, int nNeed, int bClear);
  // MakeMtx(nR, n, 0), then the first n values (all cells when n is 0). More
  // values than cells copy the cells' worth and return 0.
  int SetMtx(int nR, float *p, int n);
  int SetMtx(int nR, double *p, int n);

  int MakeGaussian(double fStdDev);
  // fStdDev -1.0 means nR; 0 gives a lone 1.0 at the centre.
  int MakeGaussian(int nR, double fStdDev);
  // fWeight inside the disc x^2 + y^2 <= fRadius^2, 1.0 at the centre, normalised.
  int MakeMean(int nR, double fRadius, double fWeight);
  // -1 inside x^2 + y^2 <= fRadius (not squared), the count at the centre.
  int MakeLaplacian(int nR, double fRadius);
  // -fStrength inside x^2 + y^2 <= fRadius (not squared), n * fStrength + 1 at
  // the centre, normalised.
  int MakeSharp(double fRadius, double fStrength);
  // 1.0 inside x^2 + y^2 <= fRadius^2; returns the number of such cells.
  int MakeMask(int nR, double fRadius);
  // Same-colour neighbours in a colour filter array; 4, or 0 for an unknown pair.
  int MakeCFAMask(int nPlane, int nKind);
  // A kernel that subtracts a line-shaped smear of fLength at fAngle degrees.
  int MakeGuideErrorCanceller(int nR, double fLength, double fAngle, double fCentre);
  // Divides every cell by the sum of all; a sum of exactly 0 leaves it.
  void Normalize();

  // The cell at linear index i, or at (x, y) in -R..R; 0 when the linear
  // index lies outside the array (x beyond a row's end reads the next row).
  float GetPrm(int i) const;
  float GetPrm(int x, int y) const;
  float *GetMtxPtr() { return mtx; }
  const float *GetMtxPtr() const { return mtx; }
  float *GetMtxPtr(int x, int y);
  int GetR() const { return nR; }
  int GetSize() const { return nSize; }

protected:
  // (2nR+1) * clamp(y+nR, 0, 2nR) + clamp(x+nR, 0, 2nR).
  static int GetIndex(int x, int y, int nR);
  // Bilinear blend: a at (0,0), b at (1,0), c at (0,1), d at (1,1).
  static float Hokan4(float a, float b, float c, float d, float fX, float fY);

  // Linear index of (x, y), or -1 outside the array.
  long long IndexOf(int x, int y) const;
  // Cleared matrix for a maker whose radius argument -1.0 stands for nR.
  double PrepareDisc(int radius, double fRadius);
  // `value` in every cell but the centre with x^2 + y^2 <= squaredLimit; the count.
  int MarkAround(double squaredLimit, float value);

  float *mtx = nullptr;
  int nR = 0;
  int nD = 0;
  int nSize = 0;
};
