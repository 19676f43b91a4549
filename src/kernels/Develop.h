// Bayer development pipelines (C functions, return 0 on success). The mosaic
// is read by reflection about its edge pixels; outputs may be bound with their
// mins at the cut corner, so that the cut falls out of the addressing.
//   bayer_to_rgb_<P>_float(input, output_red, output_green, output_blue)
//   bayer_to_rgb_level_cut_<P>_float(input, fMin, fMax, output_red, output_green, output_blue)
//   bayer_to_gray_<P>_float(input, output)
//   bayer_to_gray_level_cut_<P>_float(input, fMin, fMax, output)
//       P the phase at the top left: RGGB, GRBG, BGGR, GBRG
//   tone_curve_correct[_curve_power][_levelcut][_maker]_float(input, fMin, fMax, fGain0..3, fPointX0..3,
//       fPointY0..3, fRatio0..3, [fCurvePower,] output)   per phase 2 (y & 1) + (x & 1); may run in place
//   gamma_correct_float(fLevelMin, fLevelRange, fGamma, output)   in place; fGamma is the exponent
#pragma once
#include "bayer_to_gray_BGGR_float.h"
#include "bayer_to_gray_GBRG_float.h"
#include "bayer_to_gray_GRBG_float.h"
#include "bayer_to_gray_RGGB_float.h"
#include "bayer_to_gray_level_cut_BGGR_float.h"
#include "bayer_to_gray_level_cut_GBRG_float.h"
#include "bayer_to_gray_level_cut_GRBG_float.h"
#include "bayer_to_gray_level_cut_RGGB_float.h"
#include "bayer_to_rgb_BGGR_float.h"
#include "bayer_to_rgb_GBRG_float.h"
#include "bayer_to_rgb_GRBG_float.h"
#include "bayer_to_rgb_RGGB_float.h"
#include "bayer_to_rgb_level_cut_BGGR_float.h"
#include "bayer_to_rgb_level_cut_GBRG_float.h"
#include "bayer_to_rgb_level_cut_GRBG_float.h"
#include "bayer_to_rgb_level_cut_RGGB_float.h"
#include "gamma_correct_float.h"
#include "tone_curve_correct_curve_power_float.h"
#include "tone_curve_correct_curve_power_levelcut_float.h"
#include "tone_curve_correct_curve_power_levelcut_maker_float.h"
#include "tone_curve_correct_curve_power_maker_float.h"
#include "tone_curve_correct_float.h"
#include "tone_curve_correct_levelcut_float.h"
#include "tone_curve_correct_levelcut_maker_float.h"
#include "tone_curve_correct_maker_float.h"
