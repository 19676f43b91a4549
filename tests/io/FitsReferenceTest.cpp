// Files astropy wrote for every BITPIX, with BZERO/BSCALE, a colour cube,
// ROWORDER, an extension after an empty primary, BLANK and tile compression:
// read whole and by rows, against astropy's pixels. Then frames of ours for
// fits_reference.py --check and fitsverify to read back.
#include <cmath>
#include <fstream>
#include <filesystem>
#include "io/Fits.h"
#include "support/Fixtures.h"
#include "support/ReferenceData.h"

namespace qorimg::test {
namespace {

struct Case {
  std::string name, file;
  int planes = 0, bitpix = 0;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  std::ifstream in(ReferenceDir() + "/cases.txt");
  for (Case c; in >> c.name >> c.file >> c.planes >> c.bitpix;) cases.push_back(c);
  return cases;
}

TEST(FitsReference, AstropyFilesReadAsAstropyReadsThem) {
  const auto manager = MakeManager(StoreKind::Block);
  const std::vector<Case> cases = Cases();
  ASSERT_EQ(cases.size(), 10u) << "no reference data in '" << ReferenceDir() << "'";
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    io::FitsInfo info;
    const auto image = io::ReadFits(ReferenceDir() + "/" + c.file, manager, &info);
    const std::vector<float> expected = ReadReference("expected_" + c.name);
    EXPECT_EQ(info.bitpix, c.bitpix);
    ASSERT_EQ(image->GetPlanes(), c.planes);
    const int w = image->GetWidth(), h = image->GetHeight();
    ASSERT_EQ(expected.size(), static_cast<std::size_t>(w) * h * c.planes);
    const auto same = [&](float got, int x, int y, int p) {
      const float want = expected[(static_cast<std::size_t>(p) * h + y) * w + x];
      return ::testing::AssertionResult(got == want || (std::isnan(got) && std::isnan(want)))
             << x << "," << y << "," << p << ": " << got << " not " << want;
    };
    for (int p = 0; p < c.planes; ++p)
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) ASSERT_TRUE(same(image->GetPixelGrayRaw(x, y, p), x, y, p));
    // Bands read alone: the top line, the middle, the bottom line.
    for (auto [top, rows] : {std::pair{0, 1}, {9, 5}, {h - 1, 1}}) {
      std::vector<float> band(static_cast<std::size_t>(w) * rows * c.planes);
      io::ReadFitsRows(info, top, rows, band.data());
      for (int p = 0; p < c.planes; ++p)
        for (int r = 0; r < rows; ++r)
          for (int x = 0; x < w; ++x)
            ASSERT_TRUE(same(band[(static_cast<std::size_t>(p) * rows + r) * w + x], x, top + r, p)) << "band " << top;
    }
    float none = 0;
    EXPECT_THROW(io::ReadFitsRows(info, h - 1, 2, &none), std::out_of_range);
  }
}

// The frames fits_reference.py --check and fitsverify read: the unsigned
// 16-bit frame as float32 and as unsigned 16-bit with its cards, and the cube.
TEST(FitsReference, WriteFramesForTheReadBack) {
  const auto manager = MakeManager(StoreKind::WholePlane);
  io::FitsInfo mono, colour;
  const auto u16 = io::ReadFits(ReferenceDir() + "/b16u.fits", manager, &mono);
  const auto rgb = io::ReadFits(ReferenceDir() + "/rgb.fits", manager, &colour);
  io::FitsHeader cards = mono.header;
  cards.Set("NCOMBINE", 7LL, "frames combined");
  cards.Set("IMAGETYP", std::string("Master Bias"));
  cards.AddHistory("qorimg test: written back");
  colour.header = cards;
  io::WriteFits(ReferenceDir() + "/ours_mono.fits", *u16, cards, {io::SampleFormat::Float32, true});
  io::WriteFits(ReferenceDir() + "/ours_u16.fits", *u16, cards, {io::SampleFormat::UInt16, true});
  io::WriteFits(ReferenceDir() + "/ours_rgb.fits", *rgb, colour.header, {io::SampleFormat::Float32, true});
  for (const char *file : {"ours_mono.fits", "ours_u16.fits", "ours_rgb.fits"})
    EXPECT_TRUE(std::filesystem::exists(ReferenceDir() + "/" + file)) << file;
}

}  // namespace
}  // namespace qorimg::test
