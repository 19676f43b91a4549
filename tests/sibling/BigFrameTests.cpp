// A block-stored frame far larger than the store's resident budget, written and
// read from parallel loops over lines in the way the operators do it, while the
// memory in use stays within the bound that the manager reports: the budget, or
// what the loop threads' windows pin when that is more.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "sibling/VmImage.h"
#include "support/ProcessStatus.h"

namespace {

using qorimg::test::StatusKiB;

constexpr std::size_t kMiB = 1024 * 1024;
constexpr std::size_t kBudget = 4 * kMiB;
constexpr int kWidth = 6000;
constexpr int kHeight = 1024;       // 23.4 MiB of floats per image, three images
constexpr int kLinesPerBlock = 16;  // 376 KiB blocks: 8 of them, one window, are 2.9 MiB
constexpr std::size_t kBlockBytes = 376 * 1024;

// Values are multiples of 0.5 below 2^14, so every sum below is exact in float.
float ValueA(int x, int y) { return static_cast<float>((x + 3 * y) % 4096); }
float ValueB(int x, int y) { return static_cast<float>((x * 7 + y) % 1000) * 0.5f; }
double ExpectedC(int x, int y) {
  return double{ValueA(x, y - 1)} + ValueA(x, y) + ValueA(x, y + 1) - ValueB(x, y - 1) + 2.0 * ValueB(x, y + 1);
}

// Resets VmHWM to the current RSS (Linux 4.0 on); false where not allowed.
bool ResetPeakRss() {
  std::ofstream clearRefs("/proc/self/clear_refs");
  clearRefs << "5";
  clearRefs.flush();
  return clearRefs.good();
}

float *Line(CVmImage &image, int y, bool readOnly) {
  return reinterpret_cast<float *>(image.GetImageAdr(0, y, 0, readOnly, false, nullptr));
}

// 1 thread: the budget holds; 2 and 4 (more than the cores, so that windows
// really interleave): the windows pin more than the budget.
class BlockStoreBigFrame : public testing::TestWithParam<int> {};

TEST_P(BlockStoreBigFrame, ParallelLinesOverFramesFarLargerThanTheBudget) {
  auto manager = CreateBlockManager(kBudget, kLinesPerBlock);
  const int threads = GetParam();
  int team = 0;
#pragma omp parallel num_threads(threads)
#pragma omp single
  team = omp_get_num_threads();  // starts the threads before the baseline
  const bool peakReset = ResetPeakRss();
  const long rssBefore = StatusKiB("VmRSS:");

  CVmImage a(manager, 32, kWidth, kHeight, 1, nullptr);
  CVmImage b(manager, 32, kWidth, kHeight, 1, nullptr);
  CVmImage c(manager, 32, kWidth, kHeight, 1, nullptr);
  for (CVmImage *image : {&a, &b, &c}) image->SetParallel(true);

  long long wrong = 0;
  // One team for all loops, so that exactly `team` threads have windows.
#pragma omp parallel num_threads(threads)
  {
#pragma omp for schedule(static)
    for (int y = 0; y < kHeight; ++y) {
      float *lineA = Line(a, y, false);
      float *lineB = Line(b, y, false);
      for (int x = 0; x < kWidth; ++x) {
        lineA[x] = ValueA(x, y);
        lineB[x] = ValueB(x, y);
      }
    }

    // Six line addresses on three images taken in a row, then used together;
    // the target line is locked with a handle and unlocked when done.
#pragma omp for schedule(static)
    for (int y = 1; y < kHeight - 1; ++y) {
      const float *aUp = Line(a, y - 1, true);
      const float *aMid = Line(a, y, true);
      const float *aDown = Line(a, y + 1, true);
      const float *bUp = Line(b, y - 1, true);
      const float *bDown = Line(b, y + 1, true);
      CVmImage::AddressHandle handle = -1;
      float *out = reinterpret_cast<float *>(c.GetImageAdr(0, y, 0, false, true, &handle));
      for (int x = 0; x < kWidth; ++x) out[x] = aUp[x] + aMid[x] + aDown[x] - bUp[x] + 2.0f * bDown[x];
      c.Unlock(handle);
    }
#pragma omp for schedule(static) reduction(+ : wrong)
    for (int y = 0; y < kHeight; ++y) {
      const float *lineA = Line(a, y, true);
      const float *lineB = Line(b, y, true);
      const float *lineC = Line(c, y, true);
      const bool rim = y == 0 || y == kHeight - 1;
      for (int x = 0; x < kWidth; ++x) {
        wrong += lineA[x] != ValueA(x, y);
        wrong += lineB[x] != ValueB(x, y);
        wrong += lineC[x] != (rim ? 0.0 : ExpectedC(x, y));  // the rims were never written
      }
    }
  }
  c.UnlockAll();
  EXPECT_EQ(wrong, 0);
  EXPECT_FALSE(a.IsOnMemory());

  const std::size_t peak = manager->GetPeakResidentBytes();
  const std::size_t bound = manager->GetResidentBound();
  const long rssAfter = StatusKiB("VmRSS:");
  const long hwm = StatusKiB("VmHWM:");
  std::cout << team << " threads, budget " << kBudget / 1024 << " KiB, bound " << bound / 1024
            << " KiB, frames 3 x " << kWidth * kHeight * 4 / 1024 << " KiB, manager peak " << peak / 1024
            << " KiB, RSS before " << rssBefore << " KiB, after " << rssAfter << " KiB, peak RSS " << hwm
            << " KiB (peak reset: " << peakReset << ")\n";
  EXPECT_LE(peak, bound);
  EXPECT_EQ(bound, std::max(kBudget, team * 8 * kBlockBytes)) << "the bound is what the windows need, no more";
  EXPECT_GE(peak, kBudget - kBlockBytes) << "the budget was used, blocks were not moved out early";

#if defined(__SANITIZE_ADDRESS__)
  std::cout << "RSS not checked: AddressSanitizer's allocator and shadow memory move it\n";
#else
  // Slack for what the process itself adds while the frame is processed: the
  // store's bookkeeping (tens of KiB), malloc arenas and stacks of the loop
  // threads, code and library pages touched for the first time. Measured: the
  // growth exceeded the budget by about 150 KiB; 1 MiB leaves room for noise.
  const long slackKiB = 1024;
  const long boundKiB = static_cast<long>(bound / 1024);
  EXPECT_LE(rssAfter - rssBefore, boundKiB + slackKiB);
  if (peakReset) {
    EXPECT_LE(hwm - rssBefore, boundKiB + slackKiB);
  }
#endif
}

INSTANTIATE_TEST_SUITE_P(Threads, BlockStoreBigFrame, testing::Values(1, 2, 4),
                         [](const testing::TestParamInfo<int> &info) { return std::to_string(info.param); });

}  // namespace
