// CLmrImage: the image of the library. It adds to the stored planes what an
// astrophotographer's processing needs: pixel accessors with the per-plane level
// mapping (raw value -> 0..255 display scale), sub-pixel and transformed sampling
// for composites and registration, the points a user marks on a frame, a direct
// copy of the planes for random access, progress by window message, and a few
// whole-image edits. Every operator class derives from it and is the target of
// its own Do. Whole-image edits have a block route (line loops through the store)
// and, on whole-plane images, a kernel-pipeline route.
#pragma once
#include <atomic>
#include <memory>
#include "Export.h"
#include "core/FPoint.h"
#include "filter/FilterProc.h"
#include "platform/Geometry.h"
#include "platform/String.h"
#include "platform/WinTypes.h"
#include "sibling/Image.h"
#include "sibling/Progress.h"
#include "sibling/VmManager.h"

class CBaseDIB;  // display/BaseDIB.h

// Window message of the progress protocol (WM_USER + 112), and its wParam codes.
constexpr UINT QORIMG_PROGRESS_MESSAGE = 1136;
constexpr WPARAM PROGRESS_OPEN = 0;
constexpr WPARAM PROGRESS_UPDATE = 1;
constexpr WPARAM PROGRESS_CLOSE = 2;
constexpr WPARAM PROGRESS_TEXT = 4;
constexpr WPARAM PROGRESS_SET_HEADER = 12;
constexpr WPARAM PROGRESS_CLEAR_HEADER = 13;

class QORIMG_API CLmrImage : public CImage {
public:
  // Life and copying.
  CLmrImage();
  CLmrImage(const std::shared_ptr<CVmManager> &manager, CImage::DataType type, int width, int height, int planes,
            double bscale, double bzero, int isSigned, const std::shared_ptr<lumora::Progress> &progress);
  CLmrImage(const std::shared_ptr<CVmManager> &manager, CImage::DataType type, int width, int height, int planes,
            double bscale, double bzero, int isSigned, HWND hwnd, const wchar_t *caption);
  CLmrImage(const CLmrImage &source, const std::shared_ptr<lumora::Progress> &progress);
  CLmrImage(const CLmrImage &source, HWND hwnd, const wchar_t *caption);
  CLmrImage(const CLmrImage &source);
  CLmrImage &operator=(const CLmrImage &source);
  ~CLmrImage() override;

  void Init();
  bool Create(const CLmrImage &source, const std::shared_ptr<lumora::Progress> &progress);
  int Create(const CLmrImage &source, HWND hwnd, const wchar_t *caption);
  int CopyImage(const CLmrImage &source, HWND hwnd = nullptr, const wchar_t *caption = nullptr);
  std::unique_ptr<CLmrImage> Clone(const std::shared_ptr<lumora::Progress> &progress = nullptr) const;
  std::unique_ptr<CLmrImage> CloneWithoutImage(const std::shared_ptr<lumora::Progress> &progress = nullptr) const;
  void Swap(CLmrImage *other);
  int AttachDIB(const std::shared_ptr<CVmManager> &manager, HDIB dib);

  // Raw and level-mapped access. `plane` is 0, 1, 2 for R, G, B and 0 for mono.
  // Every accessor that takes a plane raises the invalid-argument exception for a
  // plane the image does not have.
  float *GetImageAdr(int x, int y, int plane, CImage::Mode mode = CImage::Write,
                     CVmImage::AddressHandle *handle = nullptr) const {
    if (plane < 0 || plane >= GetPlanes()) AfxThrowInvalidArgException();
    return reinterpret_cast<float *>(
        CImage::GetImageAdr(x, y, plane, (mode & 1) != 0, (mode & 2) != 0, handle));
  }
  float GetPixelGrayRaw(int x, int y, int plane) const { return *GetImageAdr(x, y, plane, CImage::ReadOnly); }
  static float GetPixelGrayRaw(const float *p) { return *p; }
  float GetPixelGrayRaw(double x, double y, int plane) const;
  float GetPixelGrayRawBuf(double x, double y, int plane);
  void GetPixelGrayRawBufInit();
  float GetPixelGray(int x, int y, int plane) const;
  float GetPixelGray(const float *p, int plane) const;
  float GetPixelGray(double x, double y, int plane) const;
  unsigned char GetPixelGray256(int x, int y, int plane) const;
  unsigned char GetPixelGray256(const float *p, int plane) const;
  static unsigned char GetPixelGray256(const float *p, float lo, float hi, float scale);
  float GetPixelGray256f(int x, int y, int plane) const;
  float GetPixelGray256f(const float *p, int plane) const;
  float GetPixelGray256f(double x, double y, int plane) const;
  static float GetPixelGray256f(const float *p, float lo, float scale) { return (*p - lo) * scale; }
  float GetPixelBright256f(int x, int y) const;
  float GetPixelBright256f(const float *r, const float *g, const float *b) const;
  float GetPixelBrightRaw(int x, int y) const;
  float GetPixelBrightRaw(const float *r, const float *g, const float *b) const;
  float GetPixelDirectRaw(int x, int y, int plane) const;
  float GetPixelDirectRaw(double x, double y, int plane) const;
  double To256(double v, int plane) const;
  float To256(float v, int plane) const;
  double ToRaw(double v, int plane) const;
  float ToRaw(float v, int plane) const;
  void SetPixelGrayRaw(int x, int y, float value, int plane) { *GetImageAdr(x, y, plane) = value; }
  static void SetPixelGrayRaw(float *p, float value) { *p = value; }
  void SetPixelGray(int x, int y, float value, int plane);
  void SetPixelGray(float *p, float value, int plane) const;
  void SetPixelGray256f(int x, int y, float value, int plane);
  void SetPixelGray256f(float *p, float value, int plane) const;
  static float CalcBright(float r, float g, float b);
  static double CalcBright(double r, double g, double b);
  static double CalcBrightL(double r, double g, double b);
  float GetMinPixel(int plane) const { return MinPixel[CheckedRecord(plane)]; }
  float GetMaxPixel(int plane) const { return MaxPixel[CheckedRecord(plane)]; }
  float GetAvrPixel(int plane) const { return AvrPixel[CheckedRecord(plane)]; }

  // Transformed sampling: the source pixel under target (x, y) for a shift
  // (dx, dy), rotation (cs, sn) and magnification `mag` about the pivot.
  float GetPixelGrayRaw(int x, int y, double dx, double dy, double cs, double sn, double mag, int plane,
                        double outside, int nearest, int *isOutside, double *srcX, double *srcY) const;
  float GetPixelGray256f(int x, int y, double dx, double dy, double cs, double sn, double mag, int plane,
                         double outside, int nearest, int *isOutside, double *srcX, double *srcY) const;
  float GetPixelGray256f(int x, int y, int dx, int dy, double cs, double sn, double mag, int plane,
                         double outside, int nearest, int *isOutside, double *srcX, double *srcY) const;
  void GetPixelRgbRaw(int x, int y, double dx, double dy, double cs, double sn, int useStdCtr, double mag,
                      double *r, double *g, double *b, double outside, int *isOutside, double *srcX,
                      double *srcY) const;
  void GetPixelRgbRaw(int x, int y, int dx, int dy, double cs, double sn, int useStdCtr, double mag, double *r,
                      double *g, double *b, double outside, int *isOutside, double *srcX, double *srcY) const;
  void GetPixelRgb256f(int x, int y, double dx, double dy, double cs, double sn, int useStdCtr, double mag,
                       double *r, double *g, double *b, double outside, int *isOutside, double *srcX,
                       double *srcY) const;
  void GetPixelRgb256f(int x, int y, int dx, int dy, double cs, double sn, int useStdCtr, double mag, double *r,
                       double *g, double *b, double outside, int *isOutside, double *srcX, double *srcY) const;
  float GetPixelL(int x, int y, double dx, double dy, double cs, double sn, double mag, double outside) const;
  void GetPixelAb(int x, int y, double dx, double dy, double cs, double sn, double mag, double *a, double *b,
                  double outside) const;

  // Point records.
  void SetStdPt(int i, const CfPoint &p);
  CfPoint GetStdPt(int i) const { return StdPt[i & 1]; }
  void ClearStdPt(int i) { SetStdPt(i, CfPoint(-1, -1)); }
  void InitStdPtCtr();
  void CopyStdPtCtr(const CLmrImage &source);
  int GetStdPtNum() const { return (IsValidStdPt(0) ? 1 : 0) + (IsValidStdPt(1) ? 1 : 0); }
  bool IsValidStdPt(int i) const { return StdPt[i & 1].x != -1 && StdPt[i & 1].y != -1; }
  void SetDefaultCenter();
  CfPoint GetStdCtr() const { return StdCtr; }
  void SetStdCtr(int x, int y) { StdCtr.Set(x, y); }
  void SetStdCtr(double x, double y) { StdCtr.Set(x, y); }
  void SetStdCtr(const CfPoint &p) { StdCtr = p; }
  bool IsValidStdCtr() const { return StdCtr.x != -1 && StdCtr.y != -1; }
  void SetStarPt(CPoint p) { StarPt = p; }
  CPoint GetStarPt() const { return StarPt; }
  void ClearStarPt() { StarPt = CPoint(-1, -1); }
  bool IsValidStarPt() const { return StarPt.x >= 0 || StarPt.y >= 0; }
  void SetSkyPt(CPoint p, int radius) { SkyPt = p; SkyRadius = radius; }
  void GetSkyPt(CPoint &p, int &radius) const { p = SkyPt; radius = SkyRadius; }
  void ClearSkyPt() { SkyPt = CPoint(-1, -1); SkyRadius = 0; }
  bool IsValidSkyPt() const { return !(SkyPt.x < 0 && SkyPt.y < 0) && SkyRadius > 0; }
  void SetPickupPt(CPoint p) { PickupPt = p; }
  CPoint GetPickupPt() const { return PickupPt; }
  bool IsValidPickupPt() const { return PickupPt.x >= 0 && PickupPt.y >= 0; }
  void SetCenterPt(CPoint p) { CenterPt = p; }
  CPoint GetCenterPt() const { return CenterPt; }
  bool IsValidCenterPt() const { return CenterPt.x >= 0 && CenterPt.y >= 0; }
  void SetBkgRect(int i, CRect rect) { if (i >= 0 && i < 32) BkgRect[i] = rect; }
  CRect GetBkgRect(int i) const { return (i >= 0 && i < 32) ? BkgRect[i] : CRect(); }
  void ClearBkgRect(int i) { if (i >= 0 && i < 32) BkgRect[i].SetRectEmpty(); }
  bool IsValidBkgRect(int i) const {
    return i >= 0 && i < 32 && BkgRect[i].left != BkgRect[i].right && BkgRect[i].top != BkgRect[i].bottom;
  }
  // Counts only slots 0 and 1, although there are 32.
  int GetBkgRectNum() const { return (IsValidBkgRect(0) ? 1 : 0) + (IsValidBkgRect(1) ? 1 : 0); }
  void SetCrossGaugePt(double x, double y) { CrossGaugePt.Set(x, y); }
  CfPoint GetCrossGaugePt() const { return CrossGaugePt; }
  void SetCrossGaugeCircleR(double r) { CrossGaugeCircleR = r; }
  double GetCrossGaugeCircleR() const { return CrossGaugeCircleR; }
  void ShowCrossGauge(int show) { CrossGaugeShown = show; }
  int IsShowCrossGauge() const { return CrossGaugeShown; }
  void ShowCrossGaugeCircle(int show) { CrossGaugeCircleShown = show; }
  int IsShowCrossGaugeCircle() const { return CrossGaugeCircleShown; }
  void SetColorScrollGauge(double pa, double *const x, double *const y);
  double GetColorScrollGaugePA() const { return ColorScrollGaugePA; }
  CfPoint GetColorScrollGaugePt(int i) const { return (i >= 0 && i < 3) ? ColorScrollGaugePt[i] : CfPoint(); }
  void ShowColorScrollGauge(int show) { ColorScrollGaugeShown = show; }
  int IsShowColorScrollGauge() const { return ColorScrollGaugeShown; }
  void SetRegKey(const CString &key) { RegKey = key; }
  CString GetRegKey() const { return RegKey; }
  void SetProgressHandle(HWND hwnd) { ProgressHandle = hwnd; }
  HWND GetProgressHandle() const { return ProgressHandle; }

  // Whole-image edits.
  std::unique_ptr<CLmrImage> Crop(const CRect &rect, const std::shared_ptr<lumora::Progress> &progress = nullptr) const;
  void Paste(CLmrImage *src, CRect *rect);
  void PixelBlt(int dstX, int dstY, int width, int height, CLmrImage *src, int srcX, int srcY, int convert);
  void LiftUp(int lines);
  void CutOutOfLevel();
  void CutOutOfZeroLevel();
  bool SetLevel(int plane, double min, double max);
  void NormalizeRect(const CRect *rect, int &left, int &top, int &right, int &bottom) const;
  void ThresholdEqual(int plane, float threshold, float value);
  void ThresholdNotEqual(int plane, float threshold, float value);
  void ThresholdGreaterThan(int plane, float threshold, float value);
  void ThresholdLessThan(int plane, float threshold, float value);
  void ThresholdLessThanEqual(int plane, float threshold, float value);
  int MakeDirectImage();
  void DeleteDirectImage();
  // A width and a height above 0: the kernel pipelines are only called on such images.
  bool HasArea() const { return GetWidth() > 0 && GetHeight() > 0; }
  bool HasDirectImage(int plane) const { return plane >= 0 && plane < 3 && DirectImage[plane] != nullptr; }

  // Progress by window message (message 1136 to the progress handle).
  void ShowProgressInit(int bProgress, int idMessage, int total);
  void ShowProgressInit(int bProgress, const wchar_t *text, int total);
  void ShowProgressInit(int idMessage);
  void ShowProgressInit(const wchar_t *text);
  int ShowProgress(int n);
  void ShowProgressEnd(int idMessage);
  void ShowProgressEnd(const wchar_t *text);
  void ShowProgressMsg(int idMessage);
  void ShowProgressMsg(const wchar_t *text);
  void ShowProgressSetHeader(const wchar_t *text);
  void ShowProgressClearHeader();
  // Removes key presses from the calling thread's queue (0 at once on ESC), then
  // dispatches paint and progress messages. 1 to go on.
  static int ShowProgressContinue();

  enum ThresholdTest { ThresholdEq, ThresholdNeq, ThresholdGt, ThresholdLt, ThresholdLeq };

  // Statistics: histograms with their dither, minimum, maximum, averages,
  // centroids and bright pixels. Whole-plane images take kernel pipelines, and
  // on several points the two routes answer differently (see each member).
  int GetHistogram(int *const pHist, int nBins, double fMin, double fMax, int nPlane, int bLog, int bHeight,
                   int bCull, CRect *rect, int bProgress, int idMessage);
  int GetHistogramRGB(int *const pRed, int *const pGreen, int *const pBlue, int nBins, double fMin, double fMax,
                      double *const, double *const, int bLog, int bHeight, int bCull, CRect *rect, int bProgress,
                      int idMessage);
  void CalcMinMax();
  void CalcMinMax(int nMargin);
  float GetAvrGrayRaw(int nPlane);
  float GetAvrGray(int nPlane);
  float GetAvrGray256f(int nPlane);
  void GetCentroid(double &fX, double &fY, CRect *rect);
  void GetCentroid(int &nX, int &nY, CRect *rect);
  void GetCentroidRaw(double &fX, double &fY, CRect *rect);
  void GetCentroidRaw(int &nX, int &nY, CRect *rect);
  float Get1stBrighterPixel(int nPlane, CRect *rect, double fThreshold, int &nX, int &nY);
  float GetMaxPixel(int nPlane, CRect *rect, int &nX, int &nY);

  // ---- Calibration (calibrate/Calibration.cpp) ----
  // A mono calibration frame serves every plane: the plane read is c when the
  // frame has colour planes, else 0. Frames larger than this image are read at
  // the same coordinates.
  // out = max(0, v - dark), whole image, in place; NaN gives 0.
  void DarkClbrtn(CLmrImage *pDark, int bProgress);
  // out = a * v / flat where flat > 0, a the mean of the flat's plane 0.
  void FlatClbrtn(CLmrImage *pFlat, CRect *rect, int bProgress);
  // The flat through the power curve of exponent fGamma (see FlatGamma), with a
  // pedestal of fOffset times the mean; fGamma not above 0 does nothing.
  void FlatClbrtn(CLmrImage *pFlat, float fOffset, double fGamma, int bProgress);
  // Dark and flat in one pass from pSrc into `rect` of this image, with the
  // flat's statistics given per flat plane. 1, -1 when a constant flat plane
  // dropped the flat, 0 for missing arguments.
  int DarkFlat(CLmrImage *pSrc, CLmrImage *pDark, CLmrImage *pFlat, float *pFlatMin, float *pFlatMax,
               float *pFlatAvr, float fOffset, double fGamma, CRect *rect, int bProgress);
  // ---- end Calibration ----
  // ---- Filter processing (filter/LmrImageFilterProc.cpp) ----
  // The image's own three plane filters (current one selected by
  // SetFilterProcPln) and six further sets, nEx 0..5, each built on a source
  // image with a kernel. Make keeps a filter that exists: call ClearFilterProc
  // before changing kernels. Copies of an image start with none.
  int MakeFilterProc(CLmrImage *src, CFilterMatrix *m, int nPlane, int bNormalize);
  void SetFilterProcPln(int nPlane);
  float CalcFilterProc(int x, int y);
  float CalcFilterProc(int x, int y, int nPlane);
  int MakeFilterProcEx(int nEx, CLmrImage *src, CFilterMatrix *m, int nPlane, int bNormalize);
  void SetFilterProcPlnEx(int nEx, int nPlane);
  float CalcFilterProcEx(int nEx, int x, int y);
  float CalcFilterProcEx(int nEx, int x, int y, int nPlane);
  void ClearFilterProc();
  // ---- end Filter processing ----

  // ---- Display (display/ImageGetDib.cpp, display/ImageToDib.cpp) ----
  // A device-independent bitmap in movable global memory, returned unlocked:
  // `bits` 8 (grey table for mono, a palette built from the colours for colour)
  // or 24. Null for any other depth, an empty image, or when the memory cannot
  // be had. Samples are mapped to bytes by the levels in double precision.
  HDIB GetDib(int bits) const;
  // Fills `rect` of `dib` (in the bitmap's coordinates; null: all of it) from
  // the same pixels of this image, mapped by the levels in single precision.
  // Pixels outside the image are not touched.
  void ToDIB(CBaseDIB *dib, const CRect *rect) const;
  // ---- end Display ----

protected:
  // Calibration: one flat value through the power curve whose zero lies one flat
  // span below the flat's minimum, fGm0 = fMax - 2 (fMax - fMin).
  float FlatGamma(float v, float fMax, float fGm0, double fGamma);

  // Display: the 8-bit colour bitmap with a palette built from the image.
  HDIB GetDib8Color() const;

  static int GetHeightOfHistogram(int *pHist, int nBins);
  static double HstAntialias(double fValue, double fBinsPerUnit);
  static void HstAntialias(double r, double g, double b, double &outR, double &outG, double &outB,
                           double fBinsPerUnit);

  // `plane` checked against the image and the three per-plane records.
  int CheckedRecord(int plane) const {
    CheckPlane(plane);
    if (plane >= 3) AfxThrowInvalidArgException();
    return plane;
  }
  void CopyCarriedMembers(const CLmrImage &source);
  void Threshold(ThresholdTest test, int plane, float threshold, float value);
  // Bilinear sample of `plane` at (x, y) in double, before rounding.
  double Bilinear(double x, double y, int plane) const;
  bool InsideForBilinear(double sx, double sy) const {
    return sx >= 0 && sx < GetWidth() && sy >= 0 && sy < GetHeight();
  }
  float ReadTransformed(double sx, double sy, int plane, int nearest, bool raw, bool &outside) const;
  void GetPixelRgbTransformed(int x, int y, double dx, double dy, double cs, double sn, int useStdCtr, double mag,
                              bool raw, double *r, double *g, double *b, double outside, int *isOutside,
                              double *srcX, double *srcY) const;

  // Cache of GetPixelGrayRawBuf: start of the upper and lower line and their numbers.
  const float *BufLine[2] = {nullptr, nullptr};
  int BufLineNo[2] = {-1, -1};
  float MinPixel[3] = {0, 0, 0};
  float MaxPixel[3] = {0, 0, 0};
  float AvrPixel[3] = {0, 0, 0};
  CfPoint StdPt[2];
  CfPoint StdCtr;
  CRect BkgRect[32];
  CPoint StarPt;
  CPoint SkyPt;
  int SkyRadius = 0;
  CPoint PickupPt;
  CPoint CenterPt;
  CfPoint CrossGaugePt;
  int CrossGaugeShown = 0;
  double CrossGaugeCircleR = 100.0;
  int CrossGaugeCircleShown = 0;
  double ColorScrollGaugePA = 0.0;
  CfPoint ColorScrollGaugePt[3];
  int ColorScrollGaugeShown = 0;
  HWND ProgressHandle = nullptr;
  int ProgressActive = 0;
  int ProgressDirect = 0;
  int ProgressTotal = 0;
  int ProgressStep = 1;
  // Added to from worker threads without a lock in spirit: relaxed atomics keep the
  // coarse, lossy counting of the protocol without a data race.
  std::atomic<int> ProgressCount{0};
  std::atomic<int> ProgressNext{0};
  CString RegKey;
  float *DirectImage[3] = {nullptr, nullptr, nullptr};
  CFilterProcEx FilterProc;
  CFilterProcEx FilterProcEx[6];
};
