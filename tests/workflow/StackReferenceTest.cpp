// The stacker against numpy and astropy on one aligned cube written by
// tests/reference/stack_reference.py (frames unmoved, no normalisation).
#include <gtest/gtest.h>

#include <fstream>
#include "Stack.h"
#include "support/Fixtures.h"
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
  std::vector<std::unique_ptr<CLmrImage>> images;
  std::vector<std::unique_ptr<workflow::ImageSource>> sources;
  std::vector<workflow::FrameSource*> pointers;
  for (int f = 0; f < frames; ++f) {
    images.push_back(MakeImage(m, w, h, 1, [&](int x, int y, int) { return cube[(std::size_t(f) * h + y) * w + x]; }));
    sources.push_back(std::make_unique<workflow::ImageSource>(*images.back()));
    pointers.push_back(sources.back().get());
  }
  const std::vector<workflow::Placement> placements(static_cast<std::size_t>(frames));
  struct Case {
    const char* name;
    Combine combine;
    bool discard;
  };
  for (const Case c : {Case{"median", Combine::Median, false}, Case{"sigma_discard", Combine::Sigma, true},
                       Case{"sigma_replace", Combine::Sigma, false}, Case{"mean", Combine::Mean, false},
                       Case{"min", Combine::Min, false}, Case{"max", Combine::Max, false}}) {
    workflow::StackOptions o;
    o.combine = c.combine, o.discard = c.discard, o.norm = workflow::Normalization::None, o.bandRows = 7;
    const auto result = workflow::Stack(pointers, placements, o, m);
    const std::vector<float> want = ReadReference(c.name), got = ReadPlane(*result.image, 0);
    ASSERT_EQ(got.size(), want.size()) << c.name;
    // Float sums against double: 1e-6 of the values (about 1e4).
    for (std::size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], want[i], 0.02) << c.name << " at " << i;
    if (c.combine == Combine::Sigma) {
      EXPECT_NEAR(result.rejectedPercent, ReadReference("rejected").at(0), 1e-4) << c.name;
    }
  }
}

}  // namespace
}  // namespace qorimg::test
