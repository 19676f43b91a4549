// Whole-plane (kernel pipeline) routes of the display bitmaps, each called at
// one place when the image is whole-plane. They write the bytes the line loops
// write, except that todib32_float maps in double where the ToDIB loops map in
// single precision (a value on a byte boundary may differ by one).
#pragma once
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"

class CBaseDIB;

namespace qorimg {

// GetDib(24) of a colour image on whole-plane storage: todib32_float over the
// three planes with the levels in double, 3 bytes a pixel (blue, green, red),
// image line y at `bits` + (Height - 1 - y) * `stride`. The bitmap is bound
// with its padded, negative line stride, so the pipeline writes it in place;
// the caller zeroes the padding.
void GetDib24ColorPlanes(const CLmrImage &image, unsigned char *bits, long long stride);

// ToDIB of a colour image on whole-plane storage into a 32-bit bitmap, over
// `rect` (inside both the image and the bitmap). For a CMemoryDIB:
// image_buffer_32bit_float with the line loops' float levels of each plane (the
// same bytes as the loops) into the bitmap bits (4 bytes a pixel, the fourth 0),
// the bitmap bound over `rect` with its mins at the rectangle's corner, so no
// temporary is needed. For
// a CVmDIB whose store is whole-plane (the caller checks): todib32_float the
// same with 3 bytes a pixel into its top-down store.
void ToDib32ColorPlanes(const CLmrImage &image, CBaseDIB &dib, const LineRect &rect);

}  // namespace qorimg
