// The machinery under the spatial filters: CFilterProc streams a separable
// filter over a plane through a ring of lines filtered along x (one ring for
// each thread, so a parallel loop over rows filters each line once per
// thread); CFilterProcEx holds one for each of three planes; CFilterBlock is
// the window of row pointers for one output row of a non-separable filter, on
// a block-stored or a contiguous plane.
#pragma once
#include <vector>
#include "Export.h"

class CLmrImage;
class CFilterMatrix;

class QORIMG_API CFilterProc {
public:
  CFilterProc();
  // MakeBuf(image, matrix, nPlane, 1).
  CFilterProc(CLmrImage *image, CFilterMatrix *matrix, int nPlane);
  // Copies start empty: rings belong to one filter run.
  CFilterProc(const CFilterProc &);
  CFilterProc &operator=(const CFilterProc &);
  virtual ~CFilterProc();

  // Prepares the rings (one for each thread of CParallel::GetMaxThreads) and
  // the 1-D kernel: the matrix's middle row, divided by its float sum with
  // bNormalize. Every thread's ring is refilled at its next Calc. Returns 1.
  int MakeBuf(CLmrImage *image, CFilterMatrix *matrix, int nPlane, int bNormalize);
  // One filtered pixel: the kernel along x, then along y. Lines above the plane
  // reflect without repeating the first row, lines below repeat the last row,
  // the edge pixel repeats along x. 0.0 when empty. A thread should move
  // downwards; any backward move refills its ring.
  float Calc(int x, int y);
  // Calc(x0 + i, y) for i in [0, count) into out, with the same sums.
  void CalcRow(int x0, int y, int count, float *out);
  void Empty();
  int IsEmpty() const { return rings.empty() ? 1 : 0; }
  void Init();

  int GetR() const { return nR; }
  int GetD() const { return nD; }
  float *GetFilter() { return filter.empty() ? nullptr : filter.data(); }
  int GetThreads() const { return nThreads; }
  int GetPlane() const { return nPlane; }
  CLmrImage *GetImage() const { return image; }

protected:
  // Brings the calling thread's ring to row y; returns 1.
  int ProcHorizontal(int x, int y);
  // The vertical sum at column x of the calling thread's ring.
  float ProcVertical(int x);

private:
  int Thread() const;
  void FilterLine(int ringRow, float *slot) const;
  float *Slot(int thread, int virtualRow);

  int nR = 0;
  int nD = 0;
  CLmrImage *image = nullptr;
  CFilterMatrix *matrix = nullptr;
  int nBufSize = 0;
  int nPlane = 0;
  int nWidth = 50;
  int nHeight = 0;
  int nThreads = 0;
  std::vector<float> filter;
  std::vector<std::vector<float>> rings;
  // For each thread: the row its ring stands at, once `ready`.
  std::vector<int> lastY;
  std::vector<char> ready;
};

// Three CFilterProc, one for each plane, and the current one.
class QORIMG_API CFilterProcEx {
public:
  CFilterProcEx() = default;
  virtual ~CFilterProcEx() = default;

  // MakeBuf on that plane's filter, unless it already has rings (then 1). 0 for
  // a plane outside 0..2.
  int Make(CLmrImage *image, CFilterMatrix *matrix, int nPlane, int bNormalize);
  // Selects the current plane; outside 0..2 selects plane 0.
  void SetPln(int nPlane) { current = Valid(nPlane); }
  void Clear();
  float Calc(int x, int y) { return procs[current].Calc(x, y); }
  float Calc(int x, int y, int nPlane) { return procs[Valid(nPlane)].Calc(x, y); }
  int GetD() const { return procs[current].GetD(); }
  int GetD(int nPlane) const { return procs[Valid(nPlane)].GetD(); }
  int GetR() const { return procs[current].GetR(); }
  int GetR(int nPlane) const { return procs[Valid(nPlane)].GetR(); }
  float *GetFilter() { return procs[current].GetFilter(); }
  float *GetFilter(int nPlane) { return procs[Valid(nPlane)].GetFilter(); }
  CFilterProc &Proc(int nPlane) { return procs[Valid(nPlane)]; }

private:
  static int Valid(int nPlane) { return nPlane >= 0 && nPlane < 3 ? nPlane : 0; }
  CFilterProc procs[3];
  int current = 0;
};

// The rows around one output row: 2R+1 line pointers at column nX, rows
// reflected about the first and the last row with neither repeated.
class QORIMG_API CFilterBlock {
public:
  CFilterBlock();
  CFilterBlock(CLmrImage *image, int nR, int nX, int nY, int nPlane, int nMode);
  CFilterBlock(float *plane, int nWidth, int nHeight, int nR, int nX, int nY);
  CFilterBlock(const CFilterBlock &) = delete;
  CFilterBlock &operator=(const CFilterBlock &) = delete;
  virtual ~CFilterBlock();

  // nMode bit 1 (value 2) keeps the lines locked until the window goes. 0 when
  // nPlane is not a plane of the image.
  int SetBlock(CLmrImage *image, int nR, int nX, int nY, int nPlane, int nMode);
  int SetBlock(float *plane, int nWidth, int nHeight, int nR, int nX, int nY);

  // The sample at (x, y); 0.0 when y is more than R from the centre row or x
  // lies outside the line.
  float GetPixel(int x, int y) const;
  // Weighted sum of the matrix around (x, centre row); the edge pixel repeats
  // along x and a matrix larger than the window is cut to it.
  float Calc(const CFilterMatrix *m, int x) const;
  // Calc(m, x0 + i) for i in [0, count) into out, with the same sums.
  void CalcRow(const CFilterMatrix *m, int x0, int count, float *out) const;
  // The same with every sample clamped into fLow..fHigh first.
  float CalcClip(const CFilterMatrix *m, int x, float fLow, float fHigh) const;
  // The samples under cells equal to 1.0, ascending (NaN last).
  float *GetSorted(const CFilterMatrix *m, int x);
  // Element n of GetSorted; 0.0 when n is negative or not below the count.
  float GetSortedAt(const CFilterMatrix *m, int x, int n);
  int GetCount() const { return nCount; }

private:
  // Row of the plane that window line k stands for.
  int WindowRow(int k) const;
  void Release();
  // Sample of window line k (0..2R) at column x, x clamped into the line.
  float At(int k, int x) const;

  std::vector<float *> rows;
  std::vector<long long> handles;
  int nR = 0;
  int nX = 0;
  int nY = 0;
  CLmrImage *image = nullptr;
  float *plane = nullptr;
  int nWidth = 0;
  int nHeight = 0;
  std::vector<float> sorted;
  int nCount = 0;
};
