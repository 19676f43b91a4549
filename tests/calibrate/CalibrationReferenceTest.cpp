// Calibration against the Python astronomy stack: the reference data are
// written by tests/reference/calibrate_reference.py into the directory named by
// QORIMG_REFERENCE_DIR (see tests/calibrate/CMakeLists.txt).
#include <fstream>
#include <string>
#include "support/Fixtures.h"
#include "support/ReferenceData.h"

namespace qorimg::test {
namespace {

class CalibrationReference : public RouteTest {
protected:
  static std::string Dir() { return ReferenceDir(); }
  static std::vector<float> Read(const std::string &name) { return ReadReference(name); }
  static std::pair<int, int> Shape(const std::string &name) {
    std::ifstream in(Dir() + "/shapes.txt");
    std::string n;
    int w = 0, h = 0;
    while (in >> n >> w >> h)
      if (n == name) return {w, h};
    return {0, 0};
  }
  std::unique_ptr<CLmrImage> Load(const std::string &name, int w) const {
    const std::vector<float> data = Read(name);
    return MakeImage(w, static_cast<int>(data.size()) / w, 1,
                     [&](int x, int y, int) { return data[static_cast<std::size_t>(y * w + x)]; });
  }
  bool PlaneRoute() const { return Case().Expected(false) == Route::Plane; }
};
QORIMG_ALL_ROUTES(CalibrationReference);

// ccdproc's subtract_dark followed by numpy.maximum: bit for bit.
TEST_P(CalibrationReference, DarkEqualsCcdprocSubtractDarkClippedAtZero) {
  const auto [w, h] = Shape("dark");
  ASSERT_GT(w, 0) << "no reference data in '" << Dir() << "'";
  auto light = Load("dark_light", w), dark = Load("dark_frame", w);
  light->DarkClbrtn(dark.get(), 0);
  EXPECT_EQ(ReadPlane(*light, 0), Read("dark_expected"));
}

// ccdproc's flat_correct divides by flat / mean(flat): 1e-6 relative on
// whole-plane images (float rounding of two different operation orders); a
// block-stored flat's mean is W H / ((W - 1)(H - 1)) larger.
TEST_P(CalibrationReference, FlatMatchesCcdprocFlatCorrect) {
  const auto [w, h] = Shape("flat");
  ASSERT_GT(w, 0) << "no reference data in '" << Dir() << "'";
  auto light = Load("flat_light", w), flat = Load("flat_frame", w);
  light->FlatClbrtn(flat.get(), nullptr, 0);
  const double scale = PlaneRoute() ? 1.0 : double(w) * h / (double(w - 1) * (h - 1));
  const std::vector<float> want = Read("flat_expected"), got = ReadPlane(*light, 0);
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i)
    ASSERT_NEAR(got[i], want[i] * scale, std::abs(want[i] * scale) * 1e-6 + 1e-30) << i;
}

}  // namespace
}  // namespace qorimg::test
