// CImgFilterBlur: the smoothing filters, Gaussian, mean (box or disc), mean
// that spares edges, and median, each for one value or a value per plane, and
// each plain or through the tonal gate that fades the filter out in shadows
// and highlights (levels on the 0..255 scale). The operator object is the
// destination, `src` the unfiltered pixels, `rect` (null: all) the pixels
// written. Routes: the Gaussian runs as a kernel pipeline on whole-plane images
// (reflection about the edge pixel on all sides) and through the filter rings
// on block-stored ones (other rim rule); all other forms run line loops on
// both stores.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgFilterBlur : public CLmrImage {
public:
  static const int FAST_MEAN_R_MIN = 1;
  static const int FAST_MEAN_R_MAX = 50;
  static const int FAST_MEDIAN_R_MIN = 1;
  static const int FAST_MEDIAN_R_MAX = 7;

  CImgFilterBlur() = default;
  CImgFilterBlur(const CImgFilterBlur &) = default;
  ~CImgFilterBlur() override;

  // Gaussian of standard deviation fStdDev (radius GetGaussian_nR).
  void GaussianFilter(double fStdDev, CLmrImage *src, CRect *rect, int bProgress);
  void GaussianFilter(double *const fStdDev, CLmrImage *src, CRect *rect, int bProgress);
  void GaussianFilter(double fStdDev, int bDark, double fDark, double fDarkWidth, int bHighlight, double fHighlight,
                      double fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress);
  void GaussianFilter(double *const fStdDev, int *const bDark, double *const fDark, double *const fDarkWidth,
                      int *const bHighlight, double *const fHighlight, double *const fHighlightWidth, CLmrImage *src,
                      CRect *rect, int bProgress);

  // Plain: the box row of MakeMean (fWeight inside fRadius, 1 at the centre)
  // along x then y. Gated: the true disc of MakeMean.
  void MeanFilter(double fRadius, double fWeight, CLmrImage *src, CRect *rect, int bProgress);
  void MeanFilter(double *const fRadius, double *const fWeight, CLmrImage *src, CRect *rect, int bProgress);
  void MeanFilter(double fRadius, double fWeight, int bDark, double fDark, double fDarkWidth, int bHighlight,
                  double fHighlight, double fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress);
  void MeanFilter(double *const fRadius, double *const fWeight, int *const bDark, double *const fDark,
                  double *const fDarkWidth, int *const bHighlight, double *const fHighlight,
                  double *const fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress);

  // The mean blended back to the source where a Laplacian finds an edge.
  void MeanWithoutEdgeFilter(double fRadius, double fWeight, CLmrImage *src, CRect *rect, int bProgress);
  void MeanWithoutEdgeFilter(double *const fRadius, double *const fWeight, CLmrImage *src, CRect *rect,
                             int bProgress);
  void MeanWithoutEdgeFilter(double fRadius, double fWeight, int bDark, double fDark, double fDarkWidth,
                             int bHighlight, double fHighlight, double fHighlightWidth, CLmrImage *src, CRect *rect,
                             int bProgress);
  void MeanWithoutEdgeFilter(double *const fRadius, double *const fWeight, int *const bDark, double *const fDark,
                             double *const fDarkWidth, int *const bHighlight, double *const fHighlight,
                             double *const fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress);

  // Upper median of the disc dx^2 + dy^2 <= fRadius^2; the disc shrinks at the rim.
  void MedianFilter(double fRadius, CLmrImage *src, CRect *rect, int bProgress);
  void MedianFilter(double *const fRadius, CLmrImage *src, CRect *rect, int bProgress);
  void MedianFilter(double fRadius, int bDark, double fDark, double fDarkWidth, int bHighlight, double fHighlight,
                    double fHighlightWidth, CLmrImage *src, CRect *rect, int bProgress);
  void MedianFilter(double *const fRadius, int *const bDark, double *const fDark, double *const fDarkWidth,
                    int *const bHighlight, double *const fHighlight, double *const fHighlightWidth, CLmrImage *src,
                    CRect *rect, int bProgress);

private:
  struct Gate;
  void Gaussian(const double *fStdDev, const Gate *gate, CLmrImage *src, CRect *rect, int bProgress);
  void Mean(const double *fRadius, const double *fWeight, const Gate *gate, CLmrImage *src, CRect *rect,
            int bProgress);
  void MeanWithoutEdge(const double *fRadius, const double *fWeight, const Gate *gate, CLmrImage *src, CRect *rect,
                       int bProgress);
  void Median(const double *fRadius, const Gate *gate, CLmrImage *src, CRect *rect, int bProgress);
};
