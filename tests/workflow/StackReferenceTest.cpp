// The stacker against numpy and astropy on one aligned cube written by
// tests/reference/stack_reference.py (frames unmoved, no normalisation).
#include <gtest/gtest.h>

#include <fstream>
#include "Scenes.h"
#include "Stack.h"
#include "support/ReferenceData.h"

namespace qorimg::test {
namespace {

using workflow::Combine;

TEST(StackReference, CombinesMatchNumpyAndAstropy) {
  int frames = 0, w = 0, h = 0;
  std::ifstream(ReferenceDir() + "/shape.txt") >> frames >> w >> h;
  ASSERT_GT(frames, 0) << "no reference data in '" << ReferenceDir() << "'";
  const std::vector<float> cube = ReadReference("cube");
  ASSERT_EQ(cube.size(), std::size_t(frames) * w * h);
  const auto m = CreateWholePlaneManager();
  FrameSet set;
  for (int f = 0; f < frames; ++f)
    set.Add(MakeImage(m, w, h, 1, [&](int x, int y, int) { return cube[(std::size_t(f) * h + y) * w + x]; }));
  const std::tuple<const char*, Combine, bool> cases[] = {
      {"median", Combine::Median, false}, {"sigma_discard", Combine::Sigma, true},
      {"sigma_replace", Combine::Sigma, false}, {"mean", Combine::Mean, false},
      {"min", Combine::Min, false}, {"max", Combine::Max, false}};
  for (const auto& [name, combine, discard] : cases) {
    workflow::StackOptions o;
    o.combine = combine, o.discard = discard, o.norm = workflow::Normalization::None, o.bandRows = 7;
    const auto result = workflow::Stack(set.Pointers(), set.placements, o, m);
    const std::vector<float> want = ReadReference(name), got = ReadPlane(*result.image, 0);
    ASSERT_EQ(got.size(), want.size()) << name;
    // Float sums against double: 2e-6 of values near 1e4.
    for (std::size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], want[i], 0.02) << name << " at " << i;
    EXPECT_NEAR(result.rejectedPercent, combine == Combine::Sigma ? ReadReference("rejected").at(0) : 0.0, 1e-4) << name;
  }
}

}  // namespace
}  // namespace qorimg::test
