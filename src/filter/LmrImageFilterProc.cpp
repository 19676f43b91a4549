// CLmrImage's filter sets: the image's own three plane filters and six more.
#include "core/LmrImage.h"

namespace {
bool ValidSet(int nEx) { return nEx >= 0 && nEx < 6; }
}  // namespace

int CLmrImage::MakeFilterProc(CLmrImage *src, CFilterMatrix *m, int nPlane, int bNormalize) {
  return FilterProc.Make(src, m, nPlane, bNormalize);
}

void CLmrImage::SetFilterProcPln(int nPlane) { FilterProc.SetPln(nPlane); }

float CLmrImage::CalcFilterProc(int x, int y) { return FilterProc.Calc(x, y); }

float CLmrImage::CalcFilterProc(int x, int y, int nPlane) { return FilterProc.Calc(x, y, nPlane); }

int CLmrImage::MakeFilterProcEx(int nEx, CLmrImage *src, CFilterMatrix *m, int nPlane, int bNormalize) {
  return ValidSet(nEx) ? FilterProcEx[nEx].Make(src, m, nPlane, bNormalize) : 0;
}

void CLmrImage::SetFilterProcPlnEx(int nEx, int nPlane) {
  if (ValidSet(nEx)) FilterProcEx[nEx].SetPln(nPlane);
}

float CLmrImage::CalcFilterProcEx(int nEx, int x, int y) { return ValidSet(nEx) ? FilterProcEx[nEx].Calc(x, y) : 0.0f; }

float CLmrImage::CalcFilterProcEx(int nEx, int x, int y, int nPlane) {
  return ValidSet(nEx) ? FilterProcEx[nEx].Calc(x, y, nPlane) : 0.0f;
}

void CLmrImage::ClearFilterProc() {
  FilterProc.Clear();
  for (CFilterProcEx &set : FilterProcEx) set.Clear();
}
