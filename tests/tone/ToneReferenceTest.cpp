// Cross-checks against numpy, scipy and skimage on real frames. The values come
// from tests/reference/tone_reference.py, which runs these cases with
// QORIMG_TONE_REFERENCE naming its directory; without it they are skipped.
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include "tone/ImgAutoLevel.h"
#include "tone/Spline.h"
#include "tone/ToneTestSupport.h"

namespace qorimg::test {
namespace {

class ToneReference : public ::testing::TestWithParam<StoreKind> {
protected:
  void SetUp() override {
    const char *dir = std::getenv("QORIMG_TONE_REFERENCE");
    if (!dir) GTEST_SKIP() << "run by tests/reference/tone_reference.py";
    dir_ = dir;
    std::ifstream in(dir_ + "/expected.txt");
    std::string line;
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      std::string key;
      fields >> key;
      double v;
      while (fields >> v) values_[key].push_back(v);
    }
  }
  std::size_t Count(const std::string &key) { return values_[key].size(); }
  double At(const std::string &key, std::size_t i = 0) {
    EXPECT_GT(values_[key].size(), i) << key;
    return values_[key].size() > i ? values_[key][i] : NAN;
  }
  // A frame written by the script, levels 0..255 on every plane.
  template <class Op>
  std::unique_ptr<Op> Load(const std::string &name) {
    const int w = static_cast<int>(At("image_" + name, 0)), h = static_cast<int>(At("image_" + name, 1));
    const int planes = static_cast<int>(At("image_" + name, 2));
    std::ifstream in(dir_ + "/" + name + ".f32", std::ios::binary);
    std::vector<float> data(static_cast<std::size_t>(w) * h * planes);
    in.read(reinterpret_cast<char *>(data.data()), static_cast<std::streamsize>(data.size() * sizeof(float)));
    auto image = MakeImage(MakeManager(GetParam()), w, h, planes, [&](int x, int y, int p) {
      return data[(static_cast<std::size_t>(p) * h + y) * w + x];
    });
    for (int p = 0; p < planes; ++p) image->CImage::SetLevel(p, 0.0, 255.0);
    return CopyAs<Op>(*image);
  }

private:
  std::string dir_;
  std::map<std::string, std::vector<double>> values_;
};
INSTANTIATE_TEST_SUITE_P(Stores, ToneReference, ::testing::Values(StoreKind::WholePlane, StoreKind::Block),
                         [](const ::testing::TestParamInfo<StoreKind> &info) {
                           return info.param == StoreKind::WholePlane ? std::string("WholePlane") : std::string("Block");
                         });

// Sums in double over 132000 or 872000 samples in another order than numpy's:
// relative 1e-9 covers that rounding.
TEST_P(ToneReference, MeanLevelsAndTheirReadBack) {
  auto comp = Load<CImgAutoLevel>("comp");
  comp->DoByMean(1.5, 3.0, 0, nullptr);
  EXPECT_NEAR(comp->GetLevelMin(0), At("mean_comp", 0), 1e-9 * std::abs(At("mean_comp", 0)));
  EXPECT_NEAR(comp->GetLevelMax(0), At("mean_comp", 1), 1e-9 * At("mean_comp", 1));
  double low = 0, high = 0;
  comp->GetByMean(low, high, nullptr);
  EXPECT_NEAR(low, 1.5, 1e-9);
  EXPECT_NEAR(high, 3.0, 1e-9);

  auto hubble = Load<CImgAutoLevel>("hubble");
  hubble->DoByMean(1.5, 3.0, 0, nullptr);
  EXPECT_NEAR(hubble->GetLevelMin(0), At("mean_hubble_tied", 0), 1e-9 * 255);
  EXPECT_NEAR(hubble->GetLevelMax(0), At("mean_hubble_tied", 1), 1e-9 * 255);
  // Level brightness is the same under the tied move, up to float rounding.
  hubble->GetByMean(low, high, nullptr);
  EXPECT_NEAR(low, 1.5, 1e-5);
  EXPECT_NEAR(high, 3.0, 1e-5);
  hubble = Load<CImgAutoLevel>("hubble");
  hubble->DoByMean(1.5, 3.0, 1, nullptr);
  for (int c = 0; c < 3; ++c) {
    const std::string key = "mean_hubble_plane" + std::to_string(c);
    EXPECT_NEAR(hubble->GetLevelMin(c), At(key, 0), 1e-9 * 255) << c;
    EXPECT_NEAR(hubble->GetLevelMax(c), At(key, 1), 1e-9 * 255) << c;
  }
}

// Integer samples: cell sums of up to 16 values are exact in float and in
// double, so the medians agree exactly; comp's cells are single pixels.
TEST_P(ToneReference, SampledMedians) {
  auto comp = Load<CImgAutoLevel>("comp");
  auto hubble = Load<CImgAutoLevel>("hubble");
  float median = 0;
  comp->GetMedian(&median, 1, 0, 0, nullptr);
  EXPECT_EQ(median, static_cast<float>(At("median_comp")));
  hubble->GetMedian(&median, 1, 0, 1, nullptr);
  EXPECT_EQ(median, static_cast<float>(At("median_hubble_plane1")));
  // Raw brightness is fractional: float cell sums round.
  hubble->GetMedian(&median, 1, 1, 0, nullptr);
  EXPECT_NEAR(median, At("median_hubble_bright"), 1e-4);

  comp->DoByMedian(1.0, 4.0, 0, nullptr);
  double low = 0, high = 0;
  comp->GetByMedian(low, high, nullptr);
  EXPECT_NEAR(low, 1.0, 1e-9);
  EXPECT_NEAR(high, 4.0, 1e-9);
}

TEST_P(ToneReference, ModeSkyWidthAndNormalLevels) {
  auto comp = Load<CImgAutoLevel>("comp");
  float mode = 0, low = 0, high = 0;
  comp->GetMode(&mode, &low, &high, 0, 0, nullptr);
  EXPECT_EQ(mode, static_cast<float>(At("mode_comp", 0)));
  EXPECT_NEAR(low, At("mode_comp", 1), 1e-4);
  EXPECT_EQ(high, static_cast<float>(At("mode_comp", 2)));

  // The brightness of 0..255 planes in 5000 bins: one sample at a bin edge may
  // fall either side (the two brightness sums add in another order), which
  // moves the deviation slightly but not the peak.
  auto hubble = Load<CImgAutoLevel>("hubble");
  hubble->GetMode(&mode, &low, &high, 1, 0, nullptr);
  EXPECT_EQ(mode, static_cast<float>(At("mode_hubble_bright", 0)));
  EXPECT_NEAR(low, At("mode_hubble_bright", 1), 1e-3);
  EXPECT_EQ(high, static_cast<float>(At("mode_hubble_bright", 2)));

  comp->DoByNormal(0.02, 0.99, 0, nullptr);
  EXPECT_DOUBLE_EQ(comp->GetLevelMin(0), At("normal_comp", 0));
  EXPECT_DOUBLE_EQ(comp->GetLevelMax(0), At("normal_comp", 1));
  comp->CImage::SetLevel(0, 50.0, 600.0);
  double fLow = 0, fHigh = 0;
  comp->GetByNormal(fLow, fHigh, nullptr);
  EXPECT_DOUBLE_EQ(fLow, At("normal_readback_comp", 0));
  EXPECT_DOUBLE_EQ(fHigh, At("normal_readback_comp", 1));

  int count = 0;
  double std = 0, rms = 0;
  comp->GetLevelRangeNum(200, 300, &count, 0, nullptr);
  comp->GetLevelRangeStd(200, 300, &std, 0, nullptr);
  comp->GetLevelDoubleRangeStd(200, 300, &rms, 0, 0, nullptr);
  EXPECT_EQ(count, static_cast<int>(At("range_comp", 0)));
  EXPECT_NEAR(std, At("range_comp", 1), 1e-9);
  EXPECT_NEAR(rms, At("range_comp", 2), 1e-9);
}

// The static form against scipy's natural spline, the member form against the
// next piece of the same spline (numpy.polyval with a negative offset).
TEST_P(ToneReference, SplineAgainstScipy) {
  CSpline s;
  for (std::size_t i = 0; i + 1 < Count("spline_points"); i += 2)
    s.SetPoint(At("spline_points", i), At("spline_points", i + 1), 1);
  ASSERT_EQ(CSpline::CalcSpline(&s), 1);
  int status = 0;
  for (std::size_t i = 0; i + 1 < Count("spline_static"); i += 2) {
    EXPECT_NEAR(CSpline::GetValue(At("spline_static", i), &s, &status), At("spline_static", i + 1), 1e-12);
    EXPECT_EQ(status, 1);
  }
  ASSERT_GT(Count("spline_member"), 0u);
  for (std::size_t i = 0; i + 1 < Count("spline_member"); i += 2) {
    EXPECT_NEAR(s.GetValue(At("spline_member", i), &status), At("spline_member", i + 1), 1e-12);
    EXPECT_EQ(status, 1);
  }
}

}  // namespace
}  // namespace qorimg::test
