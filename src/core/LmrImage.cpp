// Life, copying and point records of CLmrImage.
#include "core/LmrImage.h"

#include <new>
#include <utility>
#include "platform/Exceptions.h"

namespace {
std::shared_ptr<lumora::Progress> SinkFor(HWND hwnd, const wchar_t *caption) {
  return lumora::ProgressWin::Create(hwnd, caption, false);
}
}  // namespace

CLmrImage::CLmrImage() { Init(); }

CLmrImage::CLmrImage(const std::shared_ptr<CVmManager> &manager, CImage::DataType type, int width, int height,
                     int planes, double bscale, double bzero, int isSigned,
                     const std::shared_ptr<lumora::Progress> &progress)
    : CImage(manager, type, width, height, planes, bscale, bzero, isSigned != 0, progress) {
  Init();
}

CLmrImage::CLmrImage(const std::shared_ptr<CVmManager> &manager, CImage::DataType type, int width, int height,
                     int planes, double bscale, double bzero, int isSigned, HWND hwnd, const wchar_t *caption)
    : CLmrImage(manager, type, width, height, planes, bscale, bzero, isSigned, SinkFor(hwnd, caption)) {}

// The copying constructors carry over the progress handle, the standard points,
// the centre and the statistics; every other record starts at zero.
CLmrImage::CLmrImage(const CLmrImage &source, const std::shared_ptr<lumora::Progress> &progress)
    : CImage(source, progress) {
  CopyCarriedMembers(source);
}

CLmrImage::CLmrImage(const CLmrImage &source, HWND hwnd, const wchar_t *caption)
    : CLmrImage(source, hwnd ? SinkFor(hwnd, caption) : std::shared_ptr<lumora::Progress>()) {}

CLmrImage::CLmrImage(const CLmrImage &source) : CLmrImage(source, std::shared_ptr<lumora::Progress>()) {}

CLmrImage &CLmrImage::operator=(const CLmrImage &source) {
  if (this == &source) return *this;
  Empty();
  CopyCarriedMembers(source);
  if (!CImage::CopyImage(source, SinkFor(nullptr, nullptr))) AfxThrowMemoryException();
  return *this;
}

CLmrImage::~CLmrImage() { DeleteDirectImage(); }

void CLmrImage::Init() {
  BufLine[0] = BufLine[1] = nullptr;
  BufLineNo[0] = BufLineNo[1] = -1;
  for (int p = 0; p < 3; ++p) MinPixel[p] = MaxPixel[p] = AvrPixel[p] = 0.0f;
  InitStdPtCtr();
  for (CRect &r : BkgRect) r.SetRectEmpty();
  StarPt = CPoint(-100, -100);
  SkyPt = CPoint(-100, -100);
  SkyRadius = 0;
  PickupPt = CPoint(-100, -100);
  CenterPt = CPoint(-100, -100);
  CrossGaugePt = CfPoint(-100, -100);
  CrossGaugeShown = 0;
  CrossGaugeCircleR = 100.0;
  CrossGaugeCircleShown = 0;
  ColorScrollGaugePA = 0.0;
  for (CfPoint &p : ColorScrollGaugePt) p = CfPoint(0.0, 0.0);
  ColorScrollGaugeShown = 0;
  ProgressHandle = nullptr;
  ProgressActive = ProgressDirect = ProgressTotal = 0;
  ProgressStep = 1;
  ProgressCount = 0;
  ProgressNext = 0;
  DirectImage[0] = DirectImage[1] = DirectImage[2] = nullptr;
}

void CLmrImage::CopyCarriedMembers(const CLmrImage &source) {
  ProgressHandle = source.ProgressHandle;
  StdPt[0] = source.StdPt[0];
  StdPt[1] = source.StdPt[1];
  StdCtr = source.StdCtr;
  for (int p = 0; p < 3; ++p) {
    MinPixel[p] = source.MinPixel[p];
    MaxPixel[p] = source.MaxPixel[p];
    AvrPixel[p] = source.AvrPixel[p];
  }
}

bool CLmrImage::Create(const CLmrImage &source, const std::shared_ptr<lumora::Progress> &progress) {
  CopyCarriedMembers(source);
  if (!CImage::Create(source, progress)) return false;
  for (int p = 0; p < GetPlanes(); ++p)
    if (!Fill(p, 0.0)) return false;
  return true;
}

int CLmrImage::Create(const CLmrImage &source, HWND hwnd, const wchar_t *caption) {
  return Create(source, SinkFor(hwnd, caption)) ? 1 : 0;
}

int CLmrImage::CopyImage(const CLmrImage &source, HWND hwnd, const wchar_t *caption) {
  try {
    Empty();
    CopyCarriedMembers(source);
    if (!CImage::CopyImage(source, SinkFor(hwnd, caption))) AfxThrowMemoryException();
  } catch (CMemoryException *e) {
    e->Delete();
    return 0;
  } catch (const std::bad_alloc &) {
    return 0;
  }
  return 1;
}

std::unique_ptr<CLmrImage> CLmrImage::Clone(const std::shared_ptr<lumora::Progress> &progress) const {
  return std::make_unique<CLmrImage>(*this, progress);
}

std::unique_ptr<CLmrImage> CLmrImage::CloneWithoutImage(const std::shared_ptr<lumora::Progress> &progress) const {
  auto target = std::make_unique<CLmrImage>();
  if (!target->Create(*this, progress)) return nullptr;
  return target;
}

void CLmrImage::Swap(CLmrImage *other) {
  std::swap(ProgressHandle, other->ProgressHandle);
  std::swap(StdPt, other->StdPt);
  std::swap(StdCtr, other->StdCtr);
  std::swap(MinPixel, other->MinPixel);
  std::swap(MaxPixel, other->MaxPixel);
  std::swap(AvrPixel, other->AvrPixel);
  CImage::Swap(*other);
}

void CLmrImage::SetStdPt(int i, const CfPoint &p) {
  StdPt[i & 1] = p;
  if (i == 0) StdCtr = p;
}

void CLmrImage::InitStdPtCtr() {
  StdPt[0] = StdPt[1] = StdCtr = CfPoint(-1, -1);
}

void CLmrImage::CopyStdPtCtr(const CLmrImage &source) {
  StdPt[0] = source.StdPt[0];
  StdPt[1] = source.StdPt[1];
  StdCtr = source.StdCtr;
}

void CLmrImage::SetDefaultCenter() { StdCtr.Set(GetWidth() / 2, GetHeight() / 2); }

void CLmrImage::SetColorScrollGauge(double pa, double *const x, double *const y) {
  ColorScrollGaugePA = pa;
  for (int i = 0; i < 3; ++i) ColorScrollGaugePt[i] = CfPoint(x[i], y[i]);
}
