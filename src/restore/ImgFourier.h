// CImgFourier: the Fourier transform as an image operation, and registration
// by phase-only correlation: the translation between two frames to a fraction
// of a pixel, and their rotation from log-polar maps of the amplitude spectra.
// Reads plane 0 of both images for the comparisons, all planes for Do and
// DoLogPolar. The transform size is the image's size rounded up to powers of
// two (zero padding, the image at the top left), or with a rectangle its
// sides rounded down (the rectangle's rows cropped to that size).
//
// All return 1, or 0 when the transform cannot be allocated (then nWidth and
// nHeight, where present, tell the size that failed; they are written only
// then), the clipped rectangle is empty (sizes 0), or a bound image is null,
// of another sample type, lacks plane 0 (the planes read) or does not cover
// the rectangle; nothing is written and no progress is opened in the last
// cases. Output images take their own size: beyond the array they get 0.
#pragma once
#include <vector>

#include "Export.h"
#include "core/LmrImage.h"
#include "restore/Fft.h"

class QORIMG_API CImgFourier : public CLmrImage {
public:
  // dx, dy: the shift of pOther's content against this image's (content
  // moved by (+3, -2) gives about (3, -2)); peak: the correlation peak. With
  // fSigma > 0 the surface is blurred with it before the peak and its
  // estimate; otherwise a blurred copy (sigma 1) only finds the peak. pOutPoc
  // (may be null) gets the correlation surface.
  int CalcShiftByPOC(CLmrImage *pOther, CLmrImage *pOutPoc, double fSigma, CRect *rect, double &dx, double &dy,
                     double &peak, int &nWidth, int &nHeight, int bShowProgress);
  // Rotation of pOther against this image in degrees, within +-90. pOutA and
  // pOutB (may be null) get the two log-polar maps.
  int CalcRotByRIPOC(CLmrImage *pOther, CLmrImage *pOutA, CLmrImage *pOutB, CRect *rect, double &rotation,
                     int &nWidth, int &nHeight, int bShowProgress);
  // The row-wise variant. Its peak search runs on a row it has zeroed, so the
  // rotation comes out 0; kept as the variant behaves.
  int CalcRotByRIPOC_1D(CLmrImage *pOther, CLmrImage *pOutA, CLmrImage *pOutB, CRect *rect, double &rotation,
                        int &nWidth, int &nHeight, int bShowProgress);
  // Per plane: this image (and pInIm, may be null) as real and imaginary
  // parts, or with bReIm 0 and bInverse as amplitude and phase; optionally
  // windowed; transformed; written to pOutRe (and pOutIm, may be null) as
  // real and imaginary parts, or amplitude and centred phase for a forward
  // transform with bReIm 0.
  int Do(int bInverse, int bReIm, int bWindow, CLmrImage *pInIm, CLmrImage *pOutRe, CLmrImage *pOutIm, CRect *rect,
         int bShowProgress);
  // Per plane: the log-polar map (inner radius H/16, half circle), optionally
  // on the log tone, into pOut.
  int DoLogPolar(CLmrImage *pOut, CRect *rect, int bLogTone, int bShowProgress);

protected:
  // Plane `plane` of pRe (and pIm) into array nArray: the whole image at the
  // top left (pipeline on whole-plane stores without pIm), or the rectangle's
  // rows cropped to the array. Row loops tick progress once a row.
  void PutImage(CFftd &fft, int nArray, const CLmrImage &re, const CLmrImage *pIm, int plane, const CRect *rect);
  // The real (component 0) or imaginary (1) slots of array nArray into plane
  // `plane` of pOut, which keeps its own size.
  void GetImage(CFftd &fft, int nArray, CLmrImage &out, int part, int plane);

public:
  // The clipped rectangle and the transform size it gives.
  struct Region;

private:
  // The bindings of a comparison fit and its region is not empty (else the
  // sizes become 0).
  bool CanCompare(const Region &region, CLmrImage *pOther, CLmrImage *pOut1, CLmrImage *pOut2, int &nWidth,
                  int &nHeight);
  // Creates the transform (else writes the sizes) and loads plane 0 of this
  // image into A and of `other` into B.
  bool LoadComparison(CFftd &fft, const Region &region, const CLmrImage &other, const CRect *rect, int &nWidth,
                      int &nHeight);
  // The real part of array A blurred on rows [rowFirst, rowEnd) by the blur
  // filters' Gaussian of fSigma, through two temporary images of this image's
  // store, so that the rim follows that store's route of the filter (mirror
  // about the edge pixel on whole-plane stores, the rings' rule on block
  // ones); rows outside the band are 0.
  std::vector<float> BlurredSurface(CFftd &fft, double fSigma, int rowFirst, int rowEnd);
};
