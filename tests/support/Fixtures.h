// Shared fixtures: run an operator test on every route with one line of set-up.
//
//   class MyOpTest : public qorimg::test::RouteTest {};
//   QORIMG_ALL_ROUTES(MyOpTest);
//   TEST_P(MyOpTest, Something) { auto img = MakeImage(37, 5, 3); ... }
//
// The routes: whole-plane store (kernel pipelines), block store with the vector
// loops, block store with the plain loops, and a whole-plane store forced onto
// the line loops (so that the line loops also run over contiguous planes).
#pragma once
#include <functional>
#include <ostream>
#include <memory>
#include <string>
#include <vector>
#include <gtest/gtest.h>
#include "core/LmrImage.h"
#include "core/OperatorFrame.h"
#include "core/TestHooks.h"

namespace qorimg::test {

enum class StoreKind { WholePlane, Block };

struct RouteCase {
  std::string name;
  StoreKind store;
  bool vector;      // CQorSys::SIMD() reports the 128-bit vector bit
  bool forceBlock;  // line loops even on whole-plane images
  Route Expected(bool operatorHasVector) const;
  // The route an operator run should have chosen on this case.
  Route Expected(const testing::RouteRecord &run) const;
};

std::vector<RouteCase> AllRoutes();
inline void PrintTo(const RouteCase &c, std::ostream *os) { *os << c.name; }
std::string RouteName(const ::testing::TestParamInfo<RouteCase> &info);

std::shared_ptr<CVmManager> MakeManager(StoreKind kind);

using PixelFunction = std::function<float(int x, int y, int plane)>;

// A float image of the given size on `manager`, levels 0..1000 per plane, filled
// by `fill` (a deterministic pattern when none is given).
std::unique_ptr<CLmrImage> MakeImage(const std::shared_ptr<CVmManager> &manager, int width, int height,
                                     int planes, const PixelFunction &fill = nullptr);
void FillImage(CLmrImage &image, const PixelFunction &fill);
float Pattern(int x, int y, int plane);
// All samples of one plane, line after line.
std::vector<float> ReadPlane(const CLmrImage &image, int plane);
// Bitwise comparison of every sample (NaN equals NaN); reports the first difference.
::testing::AssertionResult SamePixels(const CLmrImage &a, const CLmrImage &b);

using SampleFunction = std::function<double(int x, int y, int plane)>;
using SampleFilter = std::function<bool(int x, int y, int plane)>;
// Every sample of `image` that `where` admits (all when none is given) lies
// within absolute + relative * |want| of `want`, where a NaN wanted must be
// NaN; reports the first miss.
::testing::AssertionResult SamplesNear(const CLmrImage &image, const SampleFunction &want, double absolute,
                                       double relative = 0, const SampleFilter &where = nullptr);

// An operator object (any CLmrImage subclass) holding a copy of `source`.
template <class Op>
std::unique_ptr<Op> CopyAs(const CLmrImage &source) {
  auto op = std::make_unique<Op>();
  EXPECT_EQ(op->CopyImage(source), 1);
  return op;
}

// An operator object of the source's geometry and levels, all zero.
template <class Op>
std::unique_ptr<Op> TargetFor(const CLmrImage &source) {
  auto op = std::make_unique<Op>();
  EXPECT_TRUE(op->Create(source, nullptr));
  return op;
}

// The operator under test, with a source and the target it writes.
using BinaryOperator = std::function<void(CLmrImage *src, CLmrImage &target)>;
// Runs `op` with a source that is null, narrower, shorter, of fewer planes, or of
// 16-bit samples than a `width` x `height` x `planes` target on `manager`: each
// must raise the invalid-argument exception before the target is written or
// progress is opened.
void ExpectRejectsBadSources(const std::shared_ptr<CVmManager> &manager, int width, int height, int planes,
                             const BinaryOperator &op);

// Applies the route's vector and block settings for the test's length, and at
// the end checks that every operator run chose the case's route (a test that
// mixes stores on purpose takes its runs with TakeRuns) and that no pipeline
// reported an error.
class RouteTest : public ::testing::TestWithParam<RouteCase> {
protected:
  void SetUp() override;
  void TearDown() override;
  const RouteCase &Case() const { return GetParam(); }
  std::shared_ptr<CVmManager> Manager() const { return manager_; }
  std::unique_ptr<CLmrImage> MakeImage(int width, int height, int planes, const PixelFunction &fill = nullptr) const {
    return test::MakeImage(manager_, width, height, planes, fill);
  }
  // The operator runs so far, taken out of the check at the end.
  std::vector<testing::RouteRecord> TakeRuns() const;
  // Pipeline errors so far were expected by the test.
  void AcceptPipelineErrors();

private:
  std::shared_ptr<CVmManager> manager_;
  int pipelineErrors_ = 0;
};

// Records every message sent or posted to a window, for the progress protocol.
class MessageRecorder {
public:
  MessageRecorder();
  ~MessageRecorder();
  HWND Window() const { return hwnd_; }
  struct Entry {
    unsigned message;
    unsigned long long wParam;
    long long lParam;
    std::wstring text;
  };
  // Dispatches what was posted to this thread's queue for the window.
  void Pump();
  // Progress messages of code `wParam` (0 open, 1 position, 2 close) so far.
  int Count(unsigned long long wParam) const;
  // The titles of the progress opened, in order.
  std::vector<std::wstring> Titles() const;
  // The positions posted after the progress `title` opened, up to its close.
  std::vector<long long> Ticks(const std::wstring &title) const;
  std::vector<Entry> entries;
  // When a progress of this title opens, ESC is posted to the thread.
  std::wstring escapeOn;

private:
  HWND hwnd_;
};

}  // namespace qorimg::test

#define QORIMG_ALL_ROUTES(Suite) \
  INSTANTIATE_TEST_SUITE_P(Routes, Suite, ::testing::ValuesIn(::qorimg::test::AllRoutes()), ::qorimg::test::RouteName)
