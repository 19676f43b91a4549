// The composite pipelines' table, the kind of a move and direct plane access.
#include "composite/CompositeInternal.h"

#include <cmath>
#include "kernels/Composite.h"

namespace qorimg::composite {

Kind KindOf(double dx, double dy, double rotation) {
  if (rotation != 0.0) return Rotation;
  if (dx != std::trunc(dx) || dy != std::trunc(dy)) return FloatShift;
  return IntShift;
}

PlaneAccess::PlaneAccess(const CLmrImage &image, int plane)
    : image_(image), plane_(plane), width_(image.GetWidth()) {
  if (image.GetAllocationPolicy() != 0 && image.HasArea()) base_ = image.GetImageAdr(0, 0, plane);
}

#define QORIMG_COMPOSIT_ROW(variant)                                                                     \
  {                                                                                                      \
    composit_##variant##_average_float_argv, composit_##variant##_add_float_argv,                        \
        composit_##variant##_weight_float_argv, composit_##variant##_sub_float_argv,                     \
        composit_##variant##_sub_cutminus_float_argv, composit_##variant##_mult_float_argv,              \
        composit_##variant##_div_float_argv, composit_##variant##_diff_float_argv,                       \
        composit_##variant##_brighter_float_argv, composit_##variant##_darker_float_argv,                \
        composit_##variant##_default_float_argv                                                          \
  }

ArgvPipeline CompositPipeline(Kind kind, bool level, ModeWord word) {
  static const ArgvPipeline table[6][ModeWords] = {
      QORIMG_COMPOSIT_ROW(intshift),           QORIMG_COMPOSIT_ROW(intshift_level),
      QORIMG_COMPOSIT_ROW(floatshift_bicubic), QORIMG_COMPOSIT_ROW(floatshift_level_bicubic),
      QORIMG_COMPOSIT_ROW(rotate_bicubic),     QORIMG_COMPOSIT_ROW(rotate_level_bicubic)};
  return table[static_cast<int>(kind) * 2 + (level ? 1 : 0)][word];
}

#undef QORIMG_COMPOSIT_ROW

}  // namespace qorimg::composite
