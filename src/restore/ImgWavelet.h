// CImgWavelet: the multi-resolution filter's engine. An image region is
// copied into a buffer image sized for the number of levels, decomposed in
// place into Daubechies sub-bands (the classic pyramid: at each level the
// low-low band top left, then top right, bottom left, bottom right), each
// band of each level weighted, composed again and copied back. A weight above
// 1 sharpens the details of that scale, below 1 smooths them. Decomposition
// and composition honour ESC (with progress on, on the caller's thread):
// they return 0 with the buffer half transformed.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"
#include "platform/Array.h"

class QORIMG_API CImgWavelet : public CLmrImage {
public:
  CImgWavelet();

  // The filters of order 1 to 10 (2 nOrder taps); any other order keeps the
  // coefficients and sets nCoef = 2 nOrder, held within 0..20.
  void SetDaubechyParams(int nOrder);
  // The buffer for a region: sides rounded up to multiples of 2^nLevels, at
  // least 4 << (nLevels - 1). nLevels <= 0 gives the region's size; sizes
  // beyond int an empty rectangle.
  void CalcBufferSize(CRect *pRect, int nLevels, CRect *pBuffer);
  // The region of pSrc (clipped) into the buffer's top left; each row's rest
  // repeats its last value, the rows below repeat the last row.
  void CopyToBuffer(CLmrImage *pBuffer, CLmrImage *pSrc, CRect *pRect);
  // The buffer's top left part back into the region of pDst.
  void CopyFromBuffer(CLmrImage *pDst, CRect *pRect, CLmrImage *pBuffer);
  // 1 on success, 0 when cancelled.
  int DoMultiResSubbandDecomposition(CLmrImage *pBuffer, int nLevels, int bProgress);
  // Weights per level (index 0 the finest): pHL the top-right band, pLH the
  // bottom-left, pHH the bottom-right; fLow scales the deepest low-low band
  // about the buffer's mid level. A level beyond an array (or a null array)
  // throws std::out_of_range.
  int DoMultiResSubbandComposition(CLmrImage *pBuffer, int nLevels, float fLow, CArray<float, float> *pHL,
                                   CArray<float, float> *pLH, CArray<float, float> *pHH, int bProgress);

  int nCoef = -1;
  float h[20] = {};   // synthesis low pass
  float g[20] = {};   // synthesis high pass
  float h2[20] = {};  // analysis low pass
  float g2[20] = {};  // analysis high pass

protected:
  int Wavelet2d(CLmrImage *pBuffer, CRect *pRect);
  int InvWavelet2d(CLmrImage *pBuffer, CRect *pRect, float fLow, float fHL, float fLH, float fHH);
  void Wavelet1d(CArray<float, float> *pLine);
  void InvWavelet1d(CArray<float, float> *pLine);

private:
  // One pass over the rows (or columns) of the w x h rectangle of every
  // plane's lines through `transform`; 0 when cancelled.
  int Pass(CLmrImage *pBuffer, int plane, int w, int h, bool columns, void (CImgWavelet::*transform)(CArray<float, float> *));
};
