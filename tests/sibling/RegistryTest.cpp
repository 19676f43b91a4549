#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "sibling/Registry.h"

namespace {

namespace fs = std::filesystem;

// Points QORIMG_SETTINGS at a temporary file; restores the variables afterwards.
class RegistryTest : public testing::Test {
protected:
  void SetUp() override {
    for (const char *name : {"QORIMG_SETTINGS", "XDG_CONFIG_HOME", "HOME"})
      if (const char *value = std::getenv(name)) saved_.emplace_back(name, value);
    fs::create_directories(dir_);
    setenv("QORIMG_SETTINGS", file_.c_str(), 1);
  }
  void TearDown() override {
    unsetenv("QORIMG_SETTINGS");
    unsetenv("XDG_CONFIG_HOME");
    for (const auto &[name, value] : saved_) setenv(name.c_str(), value.c_str(), 1);
    fs::remove_all(dir_);
  }
  static void Write(const fs::path &path, const std::string &text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << text;
  }
  static int Int(const wchar_t *section, const wchar_t *name, int *value, int fallback = -3) {
    return CRegistry::Read(CString(section), CString(name), fallback, value);
  }
  static int Double(const wchar_t *section, const wchar_t *name, double *value) {
    return CRegistry::Read(CString(section), CString(name), 4.5, value);
  }
  std::vector<std::pair<std::string, std::string>> saved_;
  fs::path dir_ = fs::temp_directory_path() / ("qorimg-registry-" + std::to_string(getpid()));
  fs::path file_ = dir_ / "settings.ini";
};

TEST_F(RegistryTest, ReadsSectionsKeysAndNumbers) {
  int i = 0;
  double d = 0;
  EXPECT_EQ(Int(L"Psf", L"Max", &i), 0);  // no file yet
  EXPECT_EQ(i, -3);
  Write(file_,
        "\xEF\xBB\xBF; settings\r\n"
        "Max = 1\n"  // before any section: belongs to none
        "[Psf]\n  max  =  250 \r\n# comment = 3\n"
        "[Dialog\\AutoStretch]\nLevel=-17\nLevel=18\nGain = 25e-2\n"
        "[ eval ]\nMin=2.5\n");
  EXPECT_EQ(Int(L"PSF", L"Max", &i), 1);
  EXPECT_EQ(i, 250);
  EXPECT_EQ(Int(L"Dialog\\AutoStretch", L"Level", &i), 1);
  EXPECT_EQ(i, 18);  // the last one counts
  EXPECT_EQ(Double(L"Dialog\\AutoStretch", L"Gain", &d), 1);
  EXPECT_EQ(d, 0.25);
  EXPECT_EQ(Double(L"Eval", L"Min", &d), 1);
  EXPECT_EQ(d, 2.5);
  // Missing key, another section's key, missing section, a commented-out key.
  for (auto [section, key] : {std::pair{L"Psf", L"Min"}, {L"Eval", L"Level"}, {L"Dialog", L"Level"}, {L"Psf", L"# comment"}}) {
    EXPECT_EQ(Int(section, key, &i, 7), 0);
    EXPECT_EQ(i, 7);
  }
}

TEST_F(RegistryTest, UnparsableValuesLeaveTheDefault) {
  Write(file_, "[S]\nEmpty=\nTrailing=12abc\nFraction=1.5\nHuge=99999999999\nSpaced=1 2\nHex=0x10\nNaN=nan\nInf=inf\n");
  int i = 0;
  double d = 0;
  for (const wchar_t *key : {L"Empty", L"Trailing", L"Fraction", L"Huge", L"Spaced", L"Hex"}) {
    EXPECT_EQ(Int(L"S", key, &i), 0) << CString(key).ToUtf8();
    EXPECT_EQ(i, -3);
  }
  for (const wchar_t *key : {L"Empty", L"Trailing", L"Spaced", L"NaN", L"Inf"}) {
    EXPECT_EQ(Double(L"S", key, &d), 0) << CString(key).ToUtf8();
    EXPECT_EQ(d, 4.5);
  }
}

// Found through XDG_CONFIG_HOME, then HOME; read afresh at each call.
TEST_F(RegistryTest, FallbackLocationsAndRereading) {
  unsetenv("QORIMG_SETTINGS");
  setenv("XDG_CONFIG_HOME", (dir_ / "xdg").c_str(), 1);
  setenv("HOME", (dir_ / "home").c_str(), 1);
  Write(dir_ / "xdg/qorimg/settings.ini", "[A]\nK=1\n");
  Write(dir_ / "home/.config/qorimg/settings.ini", "[A]\nK=2\n");
  int i = 0;
  EXPECT_EQ(Int(L"A", L"K", &i), 1);
  EXPECT_EQ(i, 1);
  unsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(Int(L"A", L"K", &i), 1);
  EXPECT_EQ(i, 2);
  Write(dir_ / "home/.config/qorimg/settings.ini", "[A]\nK=3\n");
  EXPECT_EQ(Int(L"A", L"K", &i), 1);
  EXPECT_EQ(i, 3);
}

}  // namespace
