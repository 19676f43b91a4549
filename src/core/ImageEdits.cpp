// Whole-image edits that move lines: Crop, Paste, PixelBlt, LiftUp, and the
// rectangle and level helpers they rest on.
#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include "core/LmrImage.h"
#include "core/LineLoops.h"
#include "core/OperatorFrame.h"
#include "core/ImageEditPipelines.h"
#include "platform/Exceptions.h"

void CLmrImage::NormalizeRect(const CRect *rect, int &left, int &top, int &right, int &bottom) const {
  const int width = GetWidth(), height = GetHeight();
  if (!rect) {
    left = 0, top = 0, right = width, bottom = height;
    return;
  }
  left = std::clamp(rect->left, 0, width);
  right = std::clamp(rect->right, 0, width);
  top = std::clamp(rect->top, 0, height);
  bottom = std::clamp(rect->bottom, 0, height);
}

// A colour image with plane -1 moves its three levels together: plane 0 takes
// (min, max) and planes 1 and 2, those of them that the image has, move by the
// same fractions of their own ranges.
bool CLmrImage::SetLevel(int plane, double min, double max) {
  if (plane == -1 && IsColor()) {
    const int levels = std::min({GetPlanes(), static_cast<int>(LevelMin.size()), static_cast<int>(LevelMax.size()),
                                 static_cast<int>(LevelRange.size())});
    if (levels < 1) return false;
    const double dMin = (min - LevelMin[0]) / LevelRange[0];
    const double dMax = (max - LevelMax[0]) / LevelRange[0];
    bool ok = CImage::SetLevel(0, min, max);
    for (int p = 1; p <= 2 && p < levels; ++p)
      ok = CImage::SetLevel(p, LevelRange[p] * dMin + LevelMin[p], LevelRange[p] * dMax + LevelMax[p]) && ok;
    return ok;
  }
  if (plane == -1) plane = 0;
  return CImage::SetLevel(plane, min, max);
}

// A new image of the rectangle's size (the rectangle is not clipped). Parts of
// the rectangle that lie outside this image come out as 0.0 rather than being
// read from beyond it. A rectangle wider or higher than an int can count, or an
// image without a store, makes no image.
std::unique_ptr<CLmrImage> CLmrImage::Crop(const CRect &rect,
                                           const std::shared_ptr<lumora::Progress> &progress) const {
  const long long width = static_cast<long long>(rect.right) - rect.left;
  const long long height = static_cast<long long>(rect.bottom) - rect.top;
  if (width <= 0 || height <= 0 || width > INT_MAX || height > INT_MAX) return nullptr;
  if (IsEmpty()) return nullptr;  // no store to make the new image in
  std::unique_ptr<CLmrImage> target;
  try {
    target = std::make_unique<CLmrImage>(VmManager(), GetDataType(), rect.Width(), rect.Height(), GetPlanes(),
                                         GetBscale(), GetBzero(), IsSigned() ? 1 : 0, progress);
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
  for (int p = 0; p < GetPlanes(); ++p) target->SetLevel(p, LevelMin[p], LevelMax[p]);

  CRect inside;
  const bool overlaps = inside.IntersectRect(rect, CRect(0, 0, GetWidth(), GetHeight()));
  if (!overlaps || !(inside == rect))
    for (int p = 0; p < GetPlanes(); ++p) target->Fill(p, 0.0);
  if (!overlaps) return target;

  if (qorimg::IsWholePlane(*this) && qorimg::IsWholePlane(*target) && inside == rect &&
      GetDataType() == CImage::Float32) {
    try {
      for (int p = 0; p < GetPlanes(); ++p) qorimg::CropPlane(*this, p, rect.left, rect.top, *target);
      return target;
    } catch (const std::bad_alloc &) {
      // On to the line copy.
    }
  }
  const std::size_t bytes = static_cast<std::size_t>(inside.Width()) * GetBytesPixel();
  for (int p = 0; p < GetPlanes(); ++p)
    for (int y = inside.top; y < inside.bottom; ++y)
      std::memcpy(target->CImage::GetImageAdr(inside.left - rect.left, y - rect.top, p, false, false, nullptr),
                  CImage::GetImageAdr(inside.left, y, p, true, false, nullptr), bytes);
  return target;
}

// The rectangle of `src` lands on the same rectangle of this image. The
// rectangle is clipped against both images, so a smaller source is never read
// beyond its edges.
void CLmrImage::Paste(CLmrImage *src, CRect *rect) {
  if (!src) AfxThrowInvalidArgException();
  int left, top, right, bottom;
  NormalizeRect(rect, left, top, right, bottom);
  right = std::min(right, src->GetWidth());
  bottom = std::min(bottom, src->GetHeight());
  if (right <= left || bottom <= top) return;
  const int planes = std::min(GetPlanes(), src->GetPlanes());
  if (qorimg::IsWholePlane(*this) && qorimg::IsWholePlane(*src)) {
    for (int p = 0; p < planes; ++p) qorimg::PastePlane(*src, p, left, right, top, bottom, *this);
    return;
  }
  const std::size_t bytes = static_cast<std::size_t>(right - left) * sizeof(float);
  for (int p = 0; p < planes; ++p)
    for (int y = top; y < bottom; ++y)
      std::memcpy(GetImageAdr(left, y, p), src->GetImageAdr(left, y, p, CImage::ReadOnly), bytes);
}

void CLmrImage::PixelBlt(int dstX, int dstY, int width, int height, CLmrImage *src, int srcX, int srcY,
                         int convert) {
  if (!src) AfxThrowInvalidArgException();
  if (GetPlanes() != src->GetPlanes()) return;
  dstX = std::clamp(dstX, 0, GetWidth());
  dstY = std::clamp(dstY, 0, GetHeight());
  srcX = std::clamp(srcX, 0, src->GetWidth());
  srcY = std::clamp(srcY, 0, src->GetHeight());
  width = std::max(0, std::min({width, GetWidth() - dstX, src->GetWidth() - srcX}));
  height = std::max(0, std::min({height, GetHeight() - dstY, src->GetHeight() - srcY}));
  if (width == 0 || height == 0) return;

  for (int p = 0; p < GetPlanes(); ++p) {
    const double srcMin = src->LevelMin[p], srcRange = src->LevelRange[p];
    const double dstMin = LevelMin[p], dstRange = LevelRange[p];
    if (qorimg::IsWholePlane(*this) && qorimg::IsWholePlane(*src)) {
      // Contiguous planes: lines in parallel. With `convert` the value is stored on
      // the 0..255 scale of the source, with no return to raw.
      const float *srcPlane = src->GetImageAdr(0, 0, p, CImage::ReadOnly);
      float *dstPlane = GetImageAdr(0, 0, p);
      const long long srcStride = src->GetWidth(), dstStride = GetWidth();
      qorimg::ParallelLines(0, height, [&](int y) {
        const float *s = srcPlane + (srcY + y) * srcStride + srcX;
        float *d = dstPlane + (dstY + y) * dstStride + dstX;
        if (convert)
          for (int x = 0; x < width; ++x) d[x] = static_cast<float>((s[x] - srcMin) / srcRange * 255.0);
        else
          std::memcpy(d, s, static_cast<std::size_t>(width) * sizeof(float));
      });
    } else {
      // Through the store: with `convert` the value goes to the 0..255 scale and
      // back to raw with this image's levels.
      for (int y = 0; y < height; ++y) {
        const float *s = src->GetImageAdr(srcX, srcY + y, p, CImage::ReadOnly);
        float *d = GetImageAdr(dstX, dstY + y, p);
        if (convert)
          for (int x = 0; x < width; ++x)
            d[x] = static_cast<float>((s[x] - srcMin) / srcRange * 255.0 / 255.0 * dstRange + dstMin);
        else
          std::memcpy(d, s, static_cast<std::size_t>(width) * sizeof(float));
      }
    }
  }
}

// Shifts every plane up by `lines`. Through the store the last `lines` lines keep
// their content (and a negative count smears the first lines downward); on
// contiguous planes they become copies of the last line.
void CLmrImage::LiftUp(int lines) {
  if (lines == 0) return;
  int done = 0;  // planes finished on the pipeline route
  if (qorimg::IsWholePlane(*this) && GetDataType() == CImage::Float32 && HasArea()) {
    try {
      for (; done < GetPlanes(); ++done) qorimg::LiftUpPlane(*this, done, lines);
      return;
    } catch (const std::bad_alloc &) {
      // The temporary could not be had: the remaining planes take the line loop.
    }
  }
  const long long height = GetHeight();
  const std::size_t bytes = static_cast<std::size_t>(GetWidth()) * GetBytesPixel();
  for (int p = done; p < GetPlanes(); ++p)
    for (long long y = 0; y < height; ++y) {
      const long long to = y - lines;
      if (to < 0 || to >= height) continue;
      std::memcpy(CImage::GetImageAdr(0, to, p, false, false, nullptr),
                  CImage::GetImageAdr(0, y, p, true, false, nullptr), bytes);
    }
}

int CLmrImage::MakeDirectImage() {
  DeleteDirectImage();
  const int planes = std::min(GetPlanes(), 3);
  const std::size_t count = static_cast<std::size_t>(GetWidth()) * GetHeight();
  for (int p = 0; p < planes; ++p) {
    DirectImage[p] = new (std::nothrow) float[count];
    if (!DirectImage[p]) {
      DeleteDirectImage();
      AfxThrowMemoryException();
    }
  }
  const std::size_t bytes = static_cast<std::size_t>(GetWidth()) * sizeof(float);
  for (int p = 0; p < planes; ++p)
    for (int y = 0; y < GetHeight(); ++y) {
      std::memcpy(DirectImage[p] + static_cast<std::size_t>(y) * GetWidth(),
                  GetImageAdr(0, y, p, CImage::ReadOnlyLock), bytes);
      UnlockAll();
    }
  return 1;
}

void CLmrImage::DeleteDirectImage() {
  for (float *&plane : DirectImage) {
    delete[] plane;
    plane = nullptr;
  }
}
