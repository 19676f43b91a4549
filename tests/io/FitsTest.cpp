// Frames written and read back on both store kinds, and
// the errors a bad file or output gives.
#include <cmath>
#include <fstream>
#include <limits>
#include "IoTestSupport.h"
#include "io/Png.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

using io::IoError;

class FitsStoreTest : public ::testing::TestWithParam<StoreKind> {
protected:
  std::shared_ptr<CVmManager> manager_ = MakeManager(GetParam());
  ScratchDir dir_;
};
INSTANTIATE_TEST_SUITE_P(Stores, FitsStoreTest, ::testing::Values(StoreKind::WholePlane, StoreKind::Block),
                         [](const auto &info) { return info.param == StoreKind::Block ? "Block" : "WholePlane"; });

const float kNaN = std::numeric_limits<float>::quiet_NaN();

bool Same(float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// What a sample becomes in an unsigned 16-bit file.
float AsUInt16(float v) { return std::isnan(v) || v <= 0 ? 0.0f : v >= 65535 ? 65535.0f : std::floor(v + 0.5f); }

TEST_P(FitsStoreTest, WrittenFramesReadBackWithTheirCards) {
  for (int planes : {1, 3})
    for (io::SampleFormat format : {io::SampleFormat::Float32, io::SampleFormat::UInt16}) {
      const bool u16 = format == io::SampleFormat::UInt16;
      auto image = MakeImage(manager_, 29, 17, planes, [](int x, int y, int p) {
        if (x == 3 && y == 4) return kNaN;
        if (x == 0) return y * 10000.0f - 20000.0f;  // below 0 and above 65535 on the integer file
        return x * 13.25f + y * 101.0f - p * 7.5f;
      });
      io::FitsHeader cards;
      cards.Set("OBJECT", std::string("NGC 7000 'west'"), "target");
      cards.Set("EXPTIME", 120.5);
      cards.Set("NCOMBINE", 7LL);
      cards.AddRecord("BITPIX  =                    8");  // structural cards are rewritten, not copied
      cards.AddRecord("BZERO   =                  3.0");
      cards.AddHistory(std::string(100, 'h'));
      const std::string path = dir_ / ("frame" + std::to_string(planes) + (u16 ? "u" : "f") + ".fits");
      io::WriteFits(path, *image, cards, {format, false});

      io::FitsInfo info;
      auto back = io::ReadFits(path, manager_, &info);
      SCOPED_TRACE(path);
      EXPECT_EQ(info.bitpix, u16 ? 16 : -32);
      EXPECT_EQ(info.bzero, u16 ? 32768.0 : 0.0);
      EXPECT_EQ(info.planes, planes);
      ASSERT_EQ(back->GetWidth(), 29);
      ASSERT_EQ(back->GetPlanes(), planes);
      for (int p = 0; p < planes; ++p)
        for (int y = 0; y < 17; ++y)
          for (int x = 0; x < 29; ++x) {
            const float v = image->GetPixelGrayRaw(x, y, p);
            ASSERT_TRUE(Same(back->GetPixelGrayRaw(x, y, p), u16 ? AsUInt16(v) : v)) << x << "," << y << "," << p;
          }
      EXPECT_EQ(info.header.Text("OBJECT"), "NGC 7000 'west'");
      EXPECT_EQ(info.header.Number("EXPTIME"), 120.5);
      EXPECT_EQ(info.header.Number("NCOMBINE"), 7.0);
      EXPECT_TRUE(info.header.Text("DATE"));
      for (const char *gone : {"BITPIX", "BZERO", "CHECKSUM", "DATASUM", "COMMENT"})
        EXPECT_FALSE(info.header.Text(gone)) << gone;

      // Through a second writing the cards neither pile up nor change order.
      io::FitsInfo again;
      io::WriteFits(path, *back, info.header, {format, true});
      io::ReadFits(path, manager_, &again);
      EXPECT_EQ(again.header.Records().size(), info.header.Records().size());
      EXPECT_EQ(again.header.Records()[4], info.header.Records()[4]);  // the second HISTORY card
    }
  EXPECT_EQ(dir_.Files().size(), 4u) << "temporaries left behind";
}

// Each bad input or output: the kind, a message naming the file (and cfitsio's
// text where cfitsio failed), and nothing written or left behind.
TEST(FitsErrors, NameTheFileAndLeaveNothingBehind) {
  ScratchDir dir;
  const auto manager = MakeManager(StoreKind::Block);
  const std::string good = dir / "good.fits";
  WriteRaw(good, {SHORT_IMG, 40, 30, 1, {}}, [](int x, int row, int) { return x + row; });
  std::ofstream(dir / "notes.fit") << "SIMPLE? no, a shopping list\n";
  std::filesystem::copy_file(good, dir / "short.fits");
  std::filesystem::resize_file(dir / "short.fits", 2880 + 1000);
  std::filesystem::copy_file(good, dir / "header.fits");
  std::filesystem::resize_file(dir / "header.fits", 1000);
  WriteRaw(dir / "cube.fits", {FLOAT_IMG, 8, 6, 2, {}}, [](int, int, int) { return 1.0; });
  std::ofstream(dir / "taken.fits") << "keep me";
  const auto image = MakeImage(manager, 8, 6, 1);

  struct Case {
    std::string what, path;
    IoError::Kind kind;
    std::string text;  // in the message after "<path>: "
    std::function<void(const std::string &)> run;
  };
  const auto read = [&](const std::string &p) { io::ReadFits(p, manager); };
  const auto write = [&](const std::string &p) { io::WriteFits(p, *image, {}); };
  const auto png = [&](const std::string &p) { io::WritePng(p, *image, 8, 0, 1000, false); };
  const Case cases[] = {
      {"missing file", dir / "lights/l_007.fit", IoError::NotFound, "no such file (", read},
      {"not FITS", dir / "notes.fit", IoError::NotFits, "not a FITS file (", read},
      {"data cut short", dir / "short.fits", IoError::Truncated, "truncated FITS file (", read},
      {"header cut short", dir / "header.fits", IoError::Truncated, "truncated FITS file (", read},
      {"third axis of 2", dir / "cube.fits", IoError::Unsupported, "NAXIS3 = 2 is not supported", read},
      {"missing directory", dir / "out/master.fits", IoError::WriteFailed, "cannot be written (", write},
      {"existing output", dir / "taken.fits", IoError::Exists, "exists (not overwritten)", write},
      {"existing preview", dir / "taken.fits", IoError::Exists, "exists (not overwritten)", png},
      {"missing preview directory", dir / "out/p.png", IoError::WriteFailed, "cannot be written (", png},
  };
  const std::vector<std::string> before = dir.Files();
  for (const Case &c : cases) {
    try {
      c.run(c.path);
      ADD_FAILURE() << c.what << ": no error";
    } catch (const IoError &e) {
      EXPECT_EQ(e.kind(), c.kind) << c.what << ": " << e.what();
      EXPECT_EQ(e.path(), c.path) << c.what;
      EXPECT_EQ(std::string(e.what()).rfind(c.path + ": " + c.text, 0), 0u) << c.what << ": " << e.what();
    }
  }
  EXPECT_EQ(dir.Files(), before);
  std::ifstream taken(dir / "taken.fits");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(taken), {}), "keep me");
}

}  // namespace
}  // namespace qorimg::test
