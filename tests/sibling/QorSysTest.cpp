#include <omp.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "sibling/QorSys.h"
#include "sibling/SimdOverride.h"

namespace {

// Independent reference: the kernel's list of processor flags.
std::set<std::string> CpuFlags() {
  std::ifstream cpuinfo("/proc/cpuinfo");
  std::set<std::string> flags;
  for (std::string line; std::getline(cpuinfo, line) && flags.empty();)
    if (line.rfind("flags", 0) == 0) {
      std::istringstream words(line.substr(line.find(':') + 1));
      for (std::string word; words >> word;) flags.insert(word);
    }
  return flags;
}

TEST(CQorSys, SimdBitsMatchTheProcessorAndCanBeOverridden) {
  const auto flags = CpuFlags();
  if (flags.empty()) GTEST_SKIP() << "no processor flags in /proc/cpuinfo";
  const unsigned int bits = CQorSys::SIMD();
  EXPECT_EQ((bits & 1) != 0, flags.count("sse2") == 1);
  EXPECT_EQ((bits & 2) != 0, flags.count("sse4_1") == 1);
  EXPECT_EQ((bits & 4) != 0, flags.count("avx") == 1);
  EXPECT_EQ((bits & 8) != 0, flags.count("avx2") == 1 && flags.count("fma") == 1);
  qorimg::testing::OverrideSIMD(0);
  EXPECT_EQ(CQorSys::SIMD(), 0u);
  qorimg::testing::ClearSIMDOverride();
  EXPECT_EQ(CQorSys::SIMD(), bits);
}

TEST(CParallel, ThreadNumbersCoverTheTeamAndAreZeroOutside) {
  EXPECT_EQ(CParallel::GetThreadNum(), 0);
  std::set<int> seen;
  int teamSize = 0;
#pragma omp parallel
#pragma omp critical
  {
    seen.insert(CParallel::GetThreadNum());
    teamSize = omp_get_num_threads();
  }
  EXPECT_LE(teamSize, CParallel::GetMaxThreads());
  EXPECT_EQ(static_cast<int>(seen.size()), teamSize);
  EXPECT_EQ(*seen.rbegin(), teamSize - 1);
}

}  // namespace
