// CImgFilter: filters over small fixed windows, the cross (5 samples), 3x3 and
// 5x5 without corners (21), chosen by nWindow 0, 1, 2 (any other code: the
// pixel itself): median, rank (minimum, maximum), Laplacian edge image and an
// unsharp mask that skips flat areas. Columns beyond the plane read the
// mirrored neighbour, rows above reflect without repeat, rows below repeat.
// Line loops on both stores. Also the mirrored work images a host filters on.
#pragma once
#include <functional>
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgFilter : public CLmrImage {
public:
  CImgFilter() = default;
  CImgFilter(const CImgFilter &) = default;
  ~CImgFilter() override;

  // Radius of a window code: 1, 1, 2, else 0.
  static int GetMeanR(int nWindow);
  static int GetMedianR(int nWindow) { return GetMeanR(nWindow); }
  static int GetMinMaxR(int nWindow) { return GetMeanR(nWindow); }

  // `rows` are 2R+1 line pointers standing at column x (SetFilterAdr).
  // (S * fWeight + c) / (fWeight * N + 1) of the centre c and the sum S of the N
  // others; *pPlain (if given) the plain mean.
  float GetMeanRaw(float **rows, int x, int nWindow, double fWeight, double *pPlain);
  float GetMeanRaw(int x, int y, int nWindow, double fWeight, int nPlane);
  float GetMedianRaw(float **rows, int x, int nWindow);
  float GetMedianRaw(int x, int y, int nWindow, int nPlane);
  // Element nRank (clamped into the window) of the sorted window.
  float GetMinMaxRaw(float **rows, int x, int nWindow, int nRank);
  // |Laplacian| on rows[0..2] + Lmin[nPlane]: a flat area reads the level minimum.
  float GetLaplacianRaw(float **rows, int x, int nWindow, int nPlane);
  // |8 centre - the 8 neighbours|, coordinates clamped into the image.
  float HighPassRaw(int x, int y, int nPlane);

  // The Raw values on the 0..255 scale of nPlane, and above its level minimum.
  float GetMean256f(float **rows, int x, int nWindow, double fWeight, double *pPlain, int nPlane);
  float GetMean256f(int x, int y, int nWindow, double fWeight, int nPlane);
  float GetMedian256f(float **rows, int x, int nWindow, int nPlane);
  float GetMedian256f(int x, int y, int nWindow, int nPlane);
  float GetLaplacian256f(float **rows, int x, int nWindow, int nPlane);
  float GetMeanGray(float **rows, int x, int nWindow, double fWeight, double *pPlain, int nPlane);
  float GetMeanGray(int x, int y, int nWindow, double fWeight, int nPlane);
  float GetMedianGray(float **rows, int x, int nWindow, int nPlane);
  float GetMedianGray(int x, int y, int nWindow, int nPlane);
  float GetLaplacianGray(float **rows, int x, int nWindow, int nPlane);

  void MedianFilter(int nWindow, CLmrImage *src, CRect *rect, int bProgress);
  void MinMaxFilter(int nWindow, int nRank, CLmrImage *src, CRect *rect, int bProgress);
  // Every plane offset by the level minimum of plane 0.
  void LaplacianFilter(int nWindow, CLmrImage *src, CRect *rect, int bProgress);
  // c + (c - weighted mean) * fAmount where |plain mean / c - 1| >= fThreshold.
  void UnSharpMask(double fAmount, int nWindow, double fWeight, double fThreshold, CLmrImage *src, CRect *rect,
                   int bProgress);
  void UnSharpMask(double fAmount, int nWindow, double fWeight, double fThreshold, CLmrImage *src, int nPlane,
                   CRect *rect, int bProgress);

  // A new image (width + 2nR) x (height + 2nR) (nR 0 means 2) on the same
  // manager with this image in the middle and mirrored margins; the caller owns
  // it; null when memory runs out.
  CLmrImage *MakeFilterWork(int nR, int bProgress);
  // The same with a fourth plane (colour images) holding the brightness mean of
  // the three planes on plane 0's levels.
  CLmrImage *MakeDDWork(int nR, int bProgress);

protected:
  void CalcRect(int &nLeft, int &nTop, int &nRight, int &nBottom, CRect *rect);
  void CalcShift(int &nX, int &nY, int n, CLmrImage *other);
  // rows[k] := address of (x, row y - nR + k) of this image, reflected as the
  // rings do; keep-locked when mode has bit 1 (released by UnlockAll).
  void SetFilterAdr(int x, int y, int nPlane, int nR, float **rows, CImage::Mode mode);

private:
  void WindowFilter(int id, int nWindow, int radius, CLmrImage *src, CRect *rect, int bProgress, int firstPlane,
                    int planeCount, const std::function<float(float **rows, int x)> &pixel, int rank);
  void UnSharpMaskPlanes(double fAmount, int nWindow, double fWeight, double fThreshold, CLmrImage *src,
                         int firstPlane, int planeCount, CRect *rect, int bProgress);
  CLmrImage *MakeWork(int nR, int bProgress, bool development);
};
