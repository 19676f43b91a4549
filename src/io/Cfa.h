// The colour-filter phase of a mosaic frame read from FITS.
//
// BAYERPAT names the 2x2 pattern at the first stored pixel of the file, shifted
// by XBAYROFF/YBAYROFF: the pattern's origin lies at file pixel (-XBAYROFF,
// -YBAYROFF). Rows are stored bottom-up unless ROWORDER = 'TOP-DOWN'. After
// reading, the engine's row 0 is the top line, so the pattern at engine pixel
// (0, 0) depends on the row order and, for bottom-up files, on the height's
// parity.
#pragma once
#include <optional>
#include <string_view>
#include "Export.h"
#include "io/Fits.h"

namespace qorimg::io {

// The colours of the top-left 2x2 cell, row by row.
enum class CfaPattern { RGGB, GRBG, GBRG, BGGR };

// "RGGB" etc., case-insensitive, surrounding blanks ignored.
QORIMG_API std::optional<CfaPattern> ParseCfaPattern(std::string_view text);
QORIMG_API const char *CfaPatternName(CfaPattern pattern);
// The pattern at engine pixel (0, 0). overridePattern replaces BAYERPAT and
// overrideOrder the file's row order in the rule; none when the frame names no
// pattern (or a non-finite offset).
QORIMG_API std::optional<CfaPattern> EffectiveCfa(const FitsInfo &info,
                                                  std::optional<CfaPattern> overridePattern = {},
                                                  std::optional<RowOrder> overrideOrder = {});
// CImgBayerToRgb's nPattern for a pattern at engine pixel (0, 0).
QORIMG_API int BayerPatternNumber(CfaPattern pattern);

}  // namespace qorimg::io
