// The colour-filter phase of mosaic files: every pattern, both row orders, odd
// and even offsets and heights, checked by developing a known colour scene.
#include <array>
#include <tuple>
#include "IoTestSupport.h"
#include "develop/ImgBayerToRgb.h"
#include "io/Cfa.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

using io::CfaPattern;
using io::RowOrder;

constexpr int kWidth = 30;
// Three vertical patches, red, green and blue, each kPatch wide.
constexpr int kPatch = 10;
constexpr std::array<std::array<float, 3>, 3> kScene = {{{1000, 100, 50}, {100, 900, 80}, {60, 120, 1100}}};

// Colour index (0 R, 1 G, 2 B) at row r, column c of a 2x2 pattern cell.
int CellColour(CfaPattern p, int r, int c) {
  const char *name = io::CfaPatternName(p);
  const char site = name[r * 2 + c];
  return site == 'R' ? 0 : site == 'G' ? 1 : 2;
}

using CfaCase = std::tuple<CfaPattern, RowOrder, int, int, int>;  // pattern, order, XBAYROFF, YBAYROFF, height
class CfaMatrixTest : public ::testing::TestWithParam<CfaCase> {};

TEST_P(CfaMatrixTest, DevelopedSceneHasItsColours) {
  const auto [pattern, order, xOffset, yOffset, height] = GetParam();
  ScratchDir dir;
  RawFrame frame{FLOAT_IMG, kWidth, height, 1, {}};
  frame.cards.Set("BAYERPAT", std::string(io::CfaPatternName(pattern)));
  frame.cards.Set("XBAYROFF", static_cast<long long>(xOffset));
  frame.cards.Set("YBAYROFF", static_cast<long long>(yOffset));
  if (order == RowOrder::TopDown) frame.cards.Set("ROWORDER", std::string("TOP-DOWN"));
  // The sensor: the pattern's origin at stored pixel (-XBAYROFF, -YBAYROFF);
  // the scene is laid out on the picture, top line first.
  WriteRaw(dir / "mosaic.fits", frame, [&](int x, int row, int) {
    const int colour = CellColour(pattern, (row + yOffset) % 2, (x + xOffset) % 2);
    return kScene[x / kPatch][colour];
  });

  const auto manager = MakeManager(StoreKind::WholePlane);
  io::FitsInfo info;
  auto mosaic = io::ReadFits(dir / "mosaic.fits", manager, &info);
  const std::optional<CfaPattern> effective = io::EffectiveCfa(info);
  ASSERT_TRUE(effective);
  tagBayerStruct s{};
  s.nPattern = io::BayerPatternNumber(*effective);
  s.nSrcBits = s.nDstBits = -32;
  s.fGamma = 1.0;
  CImgBayerToRgb rgb;
  ASSERT_EQ(rgb.Do(s, mosaic.get(), 0), 1);
  ASSERT_EQ(rgb.GetPlanes(), 3);
  // Inside each patch, away from its edges, the scene's colour comes back.
  for (int patch = 0; patch < 3; ++patch)
    for (int y = 4; y < height - 4; ++y)
      for (int x = patch * kPatch + 4; x < (patch + 1) * kPatch - 4; ++x)
        for (int c = 0; c < 3; ++c)
          ASSERT_NEAR(rgb.GetPixelGrayRaw(x, y, c), kScene[patch][c], 1e-2)
              << "patch " << patch << " at " << x << "," << y << " plane " << c << ", effective "
              << io::CfaPatternName(*effective);
}

INSTANTIATE_TEST_SUITE_P(Matrix, CfaMatrixTest,
                         ::testing::Combine(::testing::Values(CfaPattern::RGGB, CfaPattern::GRBG, CfaPattern::GBRG,
                                                              CfaPattern::BGGR),
                                            ::testing::Values(RowOrder::BottomUp, RowOrder::TopDown),
                                            ::testing::Values(2, 1), ::testing::Values(0, 3),
                                            ::testing::Values(16, 17)));

// What is not in the matrix: names, missing keys, and the overrides.
TEST(Cfa, NamesOverridesAndMissingPattern) {
  EXPECT_EQ(io::ParseCfaPattern(" gbrg "), CfaPattern::GBRG);
  EXPECT_FALSE(io::ParseCfaPattern("RGB"));
  io::FitsInfo info;
  info.height = 10;
  EXPECT_FALSE(io::EffectiveCfa(info));
  // Bottom-up, even height: the top line is an odd stored row.
  EXPECT_EQ(io::EffectiveCfa(info, CfaPattern::RGGB), CfaPattern::GBRG);
  EXPECT_EQ(io::EffectiveCfa(info, CfaPattern::RGGB, RowOrder::TopDown), CfaPattern::RGGB);
  info.header.Set("BAYERPAT", std::string("grbg"));
  EXPECT_EQ(io::EffectiveCfa(info), CfaPattern::BGGR);
  EXPECT_EQ(io::EffectiveCfa(info, CfaPattern::BGGR), CfaPattern::GRBG);
  info.header.Set("XBAYROFF", -1LL);
  EXPECT_EQ(io::EffectiveCfa(info, std::nullopt, RowOrder::TopDown), CfaPattern::RGGB);
}

}  // namespace
}  // namespace qorimg::test
