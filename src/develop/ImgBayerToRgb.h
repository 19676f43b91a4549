// CImgBayerToRgb: develops the single-plane mosaic of a colour camera into RGB
// planes or one brightness plane: offset subtraction, scaling of 12- and 14-bit
// data to 16 bits, white balance and tone curve on the mosaic, demosaic, gamma.
// The demosaic keeps brightness at full resolution and smooths the colour
// differences over 3 x 3 pixels. The object is the mosaic and, after Do, the
// result. Whole-plane images take kernel pipelines, which compute every pixel
// (the mosaic is read by reflection about its edge pixels); block-stored
// images take a strip loop over eight rows at a time, which leaves the rows it
// never reaches at 0 (three at the top, four or five at the bottom), uses raw
// neighbours in the outermost columns and works on the width rounded down to
// even.
//
// Mosaic phase. nPattern names the colours of the top left 2 x 2 cell of the
// uncut mosaic as stored, row 0 being the top line: 1 RGGB, 2 GRBG, 3 BGGR,
// 4 GBRG (R at even x and even y for 1, odd x and even y for 2, odd x and odd y
// for 3, even x and odd y for 4). Cuts never change it. Files that store rows
// bottom-up (FITS) and their BAYERPAT, ROWORDER, XBAYROFF and YBAYROFF
// keywords are read differently by capture programs; to translate:
//   - a frame of even height flipped top to bottom maps patterns 1<->4 and
//     2<->3 (odd height: unchanged), and swaps nCutTop and nCutBottom;
//   - a frame of even width flipped left to right maps 1<->2 and 3<->4;
//   - an odd offset on an axis acts as that axis's flip.
// OpenCV names the phase by the second row's first two pixels: our 1 (RGGB)
// is cv::COLOR_BayerRGGB2BGR, an alias of COLOR_BayerBG2BGR; its ...2RGB codes
// swap R and B.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

// The development parameters, passed by value.
struct tagBayerStruct {
  int nPattern;       // mosaic phase, 1 to 4 (see above)
  int nSrcBits;       // 12, 14, or -32 for float data
  int nCutLeft;       // pixels cut off the result on each side
  int nCutTop;
  int nCutRight;
  int nCutBottom;
  int nDstBits;       // 16 for a source of 12 or 14 bits, else nSrcBits
  int bMono;          // one brightness plane instead of RGB
  int bDataRange;     // working range from the data's own minimum and maximum
  int bTone;          // gains and curves on the mosaic (pGain required)
  int bMaker;         // each gain through a two-segment curve that keeps highlights
  int bCurvePower;    // the power curve after the gains
  double fCurvePower; // its exponent
  double *pGain;      // four gains: even y even x, even y odd x, odd y even x, odd y odd x
  int bGamma;         // gamma on the result, exponent 1 / fGamma
  double fGamma;
  int bLevelCut;      // results clipped to the working range (NaN passes)
  int bOffset;        // fOffset subtracted from the source first
  float fOffset;
  int nRoundUp;       // 1: half-size development, one pixel per 2 x 2 cell
  int nRoundUpGreen;  // the half-size green: 0 first row's, 1 second row's, 2 or negative mean, 3 min, 4 max
};

class QORIMG_API CImgBayerToRgb : public CLmrImage {
public:
  // Develops this image: 1 on success, 0 on failure (refused parameters, a
  // store or memory failure). After a failure the image may have its new size.
  int Do(tagBayerStruct s, int bProgress);
  // CopyImage of pSrc into this image, then Do; 0 when the copy fails or
  // pSrc is null.
  int Do(tagBayerStruct s, CLmrImage *pSrc, int bProgress);
  // White-balance gains in the phase order of pGain from the medians of the
  // four mosaic phases (sampled): the two greens' mean over each of R and B,
  // 1 for the greens and for a median below 1. 0 for a pattern outside 1..4.
  int GetGain(int nPattern, double *pGain);
  // True when both images have contiguous planes and the pattern is below 5.
  static bool CanHalide(tagBayerStruct &s, CImage *pA, CImage *pB);

protected:
  int ArgCheck(tagBayerStruct *s);
  int DoRoundUp(tagBayerStruct s, int bProgress);
  int ChangeBitImage(CImage *pImage, int nSrcBits, int nDstBits, int bDataRange);
  int CopySrcToBayer(CImage *pBayer, int bTwoPlanes);
  int CopyOrgToDisp(CImage *pBayer, float *pStrip, int nPlane, unsigned long y, unsigned long w, unsigned long h,
                    unsigned long nRows);
  int MakeYImage(float *pStrip, float *pWork, tagBayerStruct *s, int nSlot, unsigned long w, unsigned long nRows);
  int MakeRGBImage(float *pStrip, float *pWork, tagBayerStruct *s, int nSlot, unsigned long w, unsigned long nRows);
  int SynthImage(float *pStrip, tagBayerStruct *s, int nMode, unsigned long y, unsigned long nRows, unsigned long w,
                 float fMin, float fMax);
  int GammaCorrect(CImage *pImage, tagBayerStruct *s);
  int ToneCurveCorrect(CImage *pImage, int nPlane, tagBayerStruct *s, float fMin, float fMax);
  // The gains of another image.
  int GetGain(CImage *pImage, int nPattern, double *pGain);

private:
  int Develop(tagBayerStruct &s);
  bool Reshape(int width, int height, int planes);
  void SubtractOffset(float fOffset);
  void DemosaicByPipeline(CImage &bayer, int plane, const tagBayerStruct &s, float fMin, float fMax);
  int DemosaicByStrips(CImage &bayer, int plane, tagBayerStruct &s, float fMin, float fMax);
};
