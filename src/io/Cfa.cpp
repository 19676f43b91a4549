#include "io/Cfa.h"

#include <cctype>
#include <cmath>
#include <string>

namespace qorimg::io {
namespace {

constexpr CfaPattern kAll[] = {CfaPattern::RGGB, CfaPattern::GRBG, CfaPattern::GBRG, CfaPattern::BGGR};

// One pixel along a row: the columns of the 2x2 cell swap.
CfaPattern NextColumn(CfaPattern p) {
  switch (p) {
    case CfaPattern::RGGB: return CfaPattern::GRBG;
    case CfaPattern::GRBG: return CfaPattern::RGGB;
    case CfaPattern::GBRG: return CfaPattern::BGGR;
    case CfaPattern::BGGR: return CfaPattern::GBRG;
  }
  return p;
}

// One row further: the rows of the cell swap.
CfaPattern NextRow(CfaPattern p) {
  switch (p) {
    case CfaPattern::RGGB: return CfaPattern::GBRG;
    case CfaPattern::GBRG: return CfaPattern::RGGB;
    case CfaPattern::GRBG: return CfaPattern::BGGR;
    case CfaPattern::BGGR: return CfaPattern::GRBG;
  }
  return p;
}

// Parity of a keyword's offset; none for a non-finite one. fmod keeps the
// conversion defined for any finite size.
std::optional<bool> Odd(const FitsInfo &info, const char *key) {
  const double v = info.header.Number(key).value_or(0.0);
  if (!std::isfinite(v)) return std::nullopt;
  return std::fabs(std::fmod(std::round(v), 2.0)) == 1.0;
}

}  // namespace

const char *CfaPatternName(CfaPattern pattern) {
  switch (pattern) {
    case CfaPattern::RGGB: return "RGGB";
    case CfaPattern::GRBG: return "GRBG";
    case CfaPattern::GBRG: return "GBRG";
    case CfaPattern::BGGR: return "BGGR";
  }
  return "";
}

std::optional<CfaPattern> ParseCfaPattern(std::string_view text) {
  std::string word;
  for (char c : text)
    if (c != ' ') word += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (CfaPattern p : kAll)
    if (word == CfaPatternName(p)) return p;
  return std::nullopt;
}

std::optional<CfaPattern> EffectiveCfa(const FitsInfo &info, std::optional<CfaPattern> overridePattern,
                                       std::optional<RowOrder> overrideOrder) {
  std::optional<CfaPattern> pattern = overridePattern;
  if (!pattern) {
    std::optional<std::string> named = info.header.Text("BAYERPAT");
    if (named) pattern = ParseCfaPattern(*named);
  }
  const std::optional<bool> oddX = Odd(info, "XBAYROFF"), oddY = Odd(info, "YBAYROFF");
  if (!pattern || !oddX || !oddY) return std::nullopt;
  // The stored pixel that becomes engine (0, 0): the first one for top-down
  // files, the first of the last stored row for bottom-up ones.
  const bool bottomUp = overrideOrder.value_or(info.rowOrder) == RowOrder::BottomUp;
  const bool rowOdd = *oddY != (bottomUp && info.height % 2 == 0);
  CfaPattern p = *pattern;
  if (*oddX) p = NextColumn(p);
  if (rowOdd) p = NextRow(p);
  return p;
}

int BayerPatternNumber(CfaPattern pattern) {
  switch (pattern) {
    case CfaPattern::RGGB: return 1;
    case CfaPattern::GRBG: return 2;
    case CfaPattern::BGGR: return 3;
    case CfaPattern::GBRG: return 4;
  }
  return 0;
}

}  // namespace qorimg::io
