// CImgMedianComposit: stacks registered frames pixel by pixel into a target
// image, band by band so that the frames never need to fit memory: median,
// sigma-clipped mean (with or without normalisation of each frame), maximum
// and minimum. The caller stores one band of every frame (Store), computes
// that band of the result, and goes on with the next band.
//
// A band of a frame is held in target geometry, row after row, each row the
// target's planes one after the other: element (y - top) * W * P + p * W + x,
// with a validity flag (1 where the moved frame has a sample). NaN samples are
// never valid in a calculation; infinities are values.
#pragma once
#include <memory>
#include <vector>
#include "Export.h"
#include "core/LmrImage.h"

// Per-plane location and spread of a frame's brightness, given by the caller.
struct NormalizeItem {
  double offset[3];
  double scale[3];
};

// One band of one frame: `count` values and validity flags. Owns its arrays;
// movable, not copyable.
class QORIMG_API CLineData {
public:
  explicit CLineData(int count);
  virtual ~CLineData();
  CLineData(const CLineData &) = delete;
  CLineData &operator=(const CLineData &) = delete;
  CLineData(CLineData &&other) noexcept;
  CLineData &operator=(CLineData &&other) noexcept;

  float *m_value = nullptr;
  int *m_valid = nullptr;
  int m_count = 0;
};

class QORIMG_API CImgMedianComposit : public CLmrImage {
public:
  // nType 1, 2, 3 and any other show messages 6186, 6188, 6189 and 6141; the
  // target's progress opens here (direct mode) and closes in the destructor.
  CImgMedianComposit(CLmrImage *pTarget, int nType);
  ~CImgMedianComposit() override;

  // Grows the store to nFrames entries of (nLastRow + 1) rows of pImage's
  // width and planes; entries already there are kept. 0 when memory runs out
  // or a count is negative.
  int AllocateStoreBuffer(CLmrImage *pImage, int nFrames, int nLastRow);
  void DeallocateStoreBuffer();
  // One item per frame in frame order, three offsets and three scales.
  void AddNormalizeParam(double *pOffset, double *pScale);
  void SetRefNormalizeParam(double *pOffset, double *pScale);

  // Rows nTop .. nBottom of frame nFrame moved by (dx, dy) and turned by
  // `rotation` degrees about its standard-point centre (bUseStdPtCtr) or its
  // middle. On a whole-plane frame: the translate and rotate pipelines (a
  // fractional shift always bicubic, a rotation by nInterp); else CInterp with
  // nInterp. bAddOffset adds pOffset[i mod P] to every element i of the band.
  // 1 when stored; 0, with nothing written, for a frame index out of range, a
  // null frame or target, a band larger than the entry, or a non-finite move.
  int Store(int nFrame, CLmrImage *pImage, int nTop, int nBottom, double dx, double dy, double rotation,
            int bUseStdPtCtr, int bAddOffset, float *const pOffset, int nInterp);

  // Median of the valid values; in parallel on a whole-plane target.
  void MedianCalc(int nTop, int nBottom);
  // The same median on the caller's thread.
  void Calc(int nTop, int nBottom);
  // Sigma clip about the median without normalisation: values outside
  // median +- fSigma * deviation are replaced by the median (bDiscard 0) or
  // left out (bDiscard non-zero).
  void Calc(double fSigma, int nTop, int nBottom, int bDiscard);
  // Sigma clip with each frame's values normalised to the reference first;
  // two values give their mean for fSigma >= 1, else 0. In parallel on a
  // whole-plane target. A frame without a normalisation item raises the
  // invalid-argument exception.
  void SigmaCalc(double fSigma, int nTop, int nBottom);
  void CalcMax(int nTop, int nBottom);
  void CalcMin(int nTop, int nBottom);
  // Of the last calculation: the values it combined and how many of them the
  // sigma clip rejected (0 for the median, maximum and minimum). A stack
  // reports its rejected share from these.
  void GetRejection(long long *pSamples, long long *pRejected) const;

protected:
  CLmrImage *m_pTarget;
  std::vector<std::unique_ptr<CLineData>> m_lineData;
  int m_nMessage;
  std::vector<NormalizeItem> m_normalize;
  double m_refOffset[3] = {0, 0, 0};
  double m_refScale[3] = {0, 0, 0};
  long long m_samples = 0;
  long long m_rejected = 0;

private:
  enum class Reduction { Median, Sigma, SigmaNormalized, Max, Min };
  void Reduce(Reduction kind, double fSigma, int nTop, int nBottom, int bDiscard, bool parallel);
  void StoreOnPlanes(CLineData &entry, CLmrImage &frame, int kind, int top, int rows, double dx, double dy, double c,
                     double s, int bUseStdPtCtr, int nInterp);
  void StoreThroughInterp(CLineData &entry, CLmrImage &frame, int kind, int top, int rows, double dx, double dy,
                          double c, double s, int bUseStdPtCtr, int nInterp);
};
