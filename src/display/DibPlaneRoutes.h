// Whole-plane (kernel pipeline) routes of the display bitmaps. Each is called at
// one place, behind kDibPlaneRoutesBuilt: until the kernel layer defines the
// functions below and sets it to true, whole-plane images take the line loops.
// Both must write the bytes that the line loops write.
#pragma once
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

class CBaseDIB;

namespace qorimg {

inline constexpr bool kDibPlaneRoutesBuilt = false;

// GetDib(24) of a colour image on whole-plane storage: todib32_float over the
// three planes with the levels in double, 3 bytes a pixel (blue, green, red),
// image line y at `bits` + (Height - 1 - y) * `stride`. When `stride` equals
// Width * 3 the pipeline writes into `bits` directly; otherwise into a temporary
// of Width * 3 * Height bytes that paste_uint8 lays into the padded lines (the
// padding is zeroed by the caller). Throws std::bad_alloc when the temporary
// cannot be had.
void GetDib24ColorPlanes(const CLmrImage &image, unsigned char *bits, long long stride);

// ToDIB of a colour image on whole-plane storage into a 32-bit bitmap, over
// `rect` (inside both the image and the bitmap). For a CMemoryDIB:
// image_buffer_32bit_float with the float levels of each plane into the bitmap
// bits (4 bytes a pixel, the fourth left as it is), directly when `rect` is the
// whole bitmap, else through a temporary placed with paste3d_uint8. For a CVmDIB
// whose store is whole-plane (the caller checks): todib32_float the same with 3
// bytes a pixel into its top-down store. Throws std::bad_alloc when a temporary
// cannot be had; the caller then runs the line loops.
void ToDib32ColorPlanes(const CLmrImage &image, CBaseDIB &dib, const LineRect &rect);

}  // namespace qorimg
