// The thread-safety contract that the README promises: one image read by
// several caller threads at once, one manager shared by images in use on
// several threads, and results that do not depend on the OpenMP thread count.
#include <omp.h>
#include <cstring>
#include <thread>
#include "core/ImgCalculation.h"
#include "display/UniqueDib.h"
#include "support/Fixtures.h"

namespace qorimg::test {
namespace {

class ThreadContractTest : public RouteTest {};
QORIMG_ALL_ROUTES(ThreadContractTest);

bool SameBytes(HDIB a, HDIB b) {
  const std::size_t size = GlobalSize(a);
  const bool same = size == GlobalSize(b) && std::memcmp(GlobalLock(a), GlobalLock(b), size) == 0;
  GlobalUnlock(a);
  GlobalUnlock(b);
  return same;
}

TEST_P(ThreadContractTest, OneSourceAndOneManagerServeSeveralCallerThreads) {
  constexpr int kCallers = 4;
  // Five 200 x 150 colour frames: 1.8 MB on a block store of 1 MiB, so blocks
  // move to the file and back while the callers run.
  auto src = MakeImage(200, 150, 3);
  auto run = [&](CImgCalculation &target, int caller) {
    target.Create(*src, nullptr);
    target.Do(caller + 0.5, CImgCalculation::Add, 0, src.get(), nullptr, 0);
    return UniqueDib(src->GetDib(24));
  };
  CImgCalculation alone[kCallers], together[kCallers];
  UniqueDib aloneDib[kCallers], togetherDib[kCallers];
  for (int c = 0; c < kCallers; ++c) aloneDib[c] = run(alone[c], c);
  {
    std::vector<std::jthread> callers;
    for (int c = 0; c < kCallers; ++c) callers.emplace_back([&, c] { togetherDib[c] = run(together[c], c); });
  }
  for (int c = 0; c < kCallers; ++c) {
    EXPECT_TRUE(SamePixels(together[c], alone[c])) << "caller " << c;
    EXPECT_TRUE(SameBytes(togetherDib[c].get(), aloneDib[c].get())) << "caller " << c;
  }
}

TEST_P(ThreadContractTest, ResultsDoNotDependOnTheOpenMPThreadCount) {
  auto src = MakeImage(301, 97, 3);
  const int threads = omp_get_max_threads();
  CImgCalculation result[2];
  for (int run = 0; run < 2; ++run) {
    omp_set_num_threads(run == 0 ? 1 : 3);
    result[run].Create(*src, nullptr);
    result[run].Do(2.5, CImgCalculation::Multiply, 0, src.get(), nullptr, 0);
    result[run].CalcMinMax();
  }
  omp_set_num_threads(threads);
  EXPECT_TRUE(SamePixels(result[0], result[1]));
  for (int p = 0; p < 3; ++p) {
    EXPECT_EQ(result[0].GetMinPixel(p), result[1].GetMinPixel(p)) << p;
    EXPECT_EQ(result[0].GetMaxPixel(p), result[1].GetMaxPixel(p)) << p;
  }
}

}  // namespace
}  // namespace qorimg::test
