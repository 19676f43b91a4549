#include "support/Fixtures.h"

#include <cmath>
#include <cstring>
#include "platform/Messages.h"
#include "core/TestHooks.h"
#include "kernels/Runtime.h"
#include "platform/Exceptions.h"

namespace qorimg::test {

Route RouteCase::Expected(bool operatorHasVector) const {
  if (store == StoreKind::WholePlane && !forceBlock) return Route::Plane;
  return vector && operatorHasVector ? Route::Vector : Route::Block;
}

std::vector<RouteCase> AllRoutes() {
  return {
      {"Plane", StoreKind::WholePlane, true, false},
      {"BlockVector", StoreKind::Block, true, false},
      {"BlockPlain", StoreKind::Block, false, false},
      {"PlaneStoreLineLoop", StoreKind::WholePlane, false, true},
  };
}

std::string RouteName(const ::testing::TestParamInfo<RouteCase> &info) { return info.param.name; }

// The block store gets a small budget and short blocks, so that even test-sized
// images cross block boundaries and larger ones are moved out to the file.
std::shared_ptr<CVmManager> MakeManager(StoreKind kind) {
  return kind == StoreKind::WholePlane ? CreateWholePlaneManager() : CreateBlockManager(1 << 20, 3);
}

float Pattern(int x, int y, int plane) {
  return static_cast<float>((x * 7 + y * 13 + plane * 101) % 251) * 3.25f - 40.0f;
}

void FillImage(CLmrImage &image, const PixelFunction &fill) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y) {
      float *line = image.GetImageAdr(0, y, p);
      for (int x = 0; x < image.GetWidth(); ++x) line[x] = fill ? fill(x, y, p) : Pattern(x, y, p);
    }
}

std::unique_ptr<CLmrImage> MakeImage(const std::shared_ptr<CVmManager> &manager, int width, int height,
                                     int planes, const PixelFunction &fill) {
  auto image = std::make_unique<CLmrImage>(manager, CImage::Float32, width, height, planes, 1.0, 0.0, 1,
                                           std::shared_ptr<lumora::Progress>());
  for (int p = 0; p < planes; ++p) image->CImage::SetLevel(p, 0.0, 1000.0);
  FillImage(*image, fill);
  return image;
}

std::vector<float> ReadPlane(const CLmrImage &image, int plane) {
  std::vector<float> out;
  out.reserve(static_cast<std::size_t>(image.GetWidth()) * image.GetHeight());
  for (int y = 0; y < image.GetHeight(); ++y) {
    const float *line = image.GetImageAdr(0, y, plane, CImage::ReadOnly);
    out.insert(out.end(), line, line + image.GetWidth());
  }
  return out;
}

::testing::AssertionResult SamePixels(const CLmrImage &a, const CLmrImage &b) {
  if (a.GetWidth() != b.GetWidth() || a.GetHeight() != b.GetHeight() || a.GetPlanes() != b.GetPlanes())
    return ::testing::AssertionFailure() << "geometry differs";
  for (int p = 0; p < a.GetPlanes(); ++p)
    for (int y = 0; y < a.GetHeight(); ++y) {
      const float *la = a.GetImageAdr(0, y, p, CImage::ReadOnly);
      const float *lb = b.GetImageAdr(0, y, p, CImage::ReadOnly);
      for (int x = 0; x < a.GetWidth(); ++x)
        if (std::memcmp(&la[x], &lb[x], sizeof(float)) != 0 && !(std::isnan(la[x]) && std::isnan(lb[x])))
          return ::testing::AssertionFailure()
                 << "plane " << p << " (" << x << ", " << y << "): " << la[x] << " vs " << lb[x];
    }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult SamplesNear(const CLmrImage &image, const SampleFunction &want, double absolute,
                                       double relative, const SampleFilter &where) {
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y)
      for (int x = 0; x < image.GetWidth(); ++x) {
        if (where && !where(x, y, p)) continue;
        const double got = image.GetPixelGrayRaw(x, y, p), w = want(x, y, p);
        const bool ok = got == w || (std::isnan(w) ? std::isnan(got) : std::abs(got - w) <= absolute + relative * std::abs(w));
        if (!ok)
          return ::testing::AssertionFailure()
                 << "plane " << p << " (" << x << ", " << y << "): " << got << " vs " << w;
      }
  return ::testing::AssertionSuccess();
}

Route RouteCase::Expected(const testing::RouteRecord &run) const {
  if (run.hadPipeline) return Expected(run.hadVector);
  return vector && run.hadVector ? Route::Vector : Route::Block;
}

void RouteTest::SetUp() {
  qorimg::testing::OverrideSIMD(Case().vector ? 2u : 0u);
  testing::ForceBlockRoute(Case().forceBlock);
  manager_ = MakeManager(Case().store);
  testing::TakeRouteLog();
  pipelineErrors_ = kernels::testing::PipelineErrorCount();
}

// Every operator run of the test took the route of the test's case, and no
// pipeline reported an error.
void RouteTest::TearDown() {
  qorimg::testing::ClearSIMDOverride();
  testing::ForceBlockRoute(false);
  for (const testing::RouteRecord &run : testing::TakeRouteLog())
    EXPECT_EQ(run.chosen, Case().Expected(run)) << "an operator took another route than the case's";
  EXPECT_EQ(kernels::testing::PipelineErrorCount(), pipelineErrors_) << "a pipeline reported an error";
}

std::vector<testing::RouteRecord> RouteTest::TakeRuns() const { return testing::TakeRouteLog(); }

void RouteTest::AcceptPipelineErrors() { pipelineErrors_ = kernels::testing::PipelineErrorCount(); }

void ExpectRejectsBadSources(const std::shared_ptr<CVmManager> &manager, int width, int height, int planes,
                             const BinaryOperator &op) {
  struct Bad {
    const char *what;
    std::unique_ptr<CLmrImage> src;
  };
  std::vector<Bad> cases;
  cases.push_back({"null", nullptr});
  cases.push_back({"narrower", MakeImage(manager, width - 1, height, planes)});
  cases.push_back({"shorter", MakeImage(manager, width, height - 1, planes)});
  if (planes > 1) cases.push_back({"fewer planes", MakeImage(manager, width, height, planes - 1)});
  cases.push_back({"16-bit samples", std::make_unique<CLmrImage>(manager, CImage::Int16, width, height, planes, 1.0,
                                                                 0.0, 1, std::shared_ptr<lumora::Progress>())});
  for (Bad &bad : cases) {
    auto target = MakeImage(manager, width, height, planes);
    MessageRecorder recorder;
    target->SetProgressHandle(recorder.Window());
    EXPECT_THROW(op(bad.src.get(), *target), CInvalidArgException *) << bad.what;
    EXPECT_TRUE(recorder.entries.empty()) << bad.what << ": progress was opened";
    auto untouched = MakeImage(manager, width, height, planes);
    EXPECT_TRUE(SamePixels(*target, *untouched)) << bad.what;
  }
}

MessageRecorder::MessageRecorder() {
  hwnd_ = CreateMessageWindow([this](HWND, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
    Entry e{message, wParam, static_cast<long long>(lParam), {}};
    // Codes 0, 2, 4 and 12 carry a text pointer that is only valid during the call.
    if (message == 1136 && wParam != 1 && wParam != 13 && lParam)
      e.text = reinterpret_cast<const wchar_t *>(lParam);
    if (message == 1136 && wParam == 0 && !escapeOn.empty() && e.text == escapeOn)
      PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
    entries.push_back(e);
    return 0;
  });
}

MessageRecorder::~MessageRecorder() { DestroyWindow(hwnd_); }

void MessageRecorder::Pump() {
  MSG msg;
  while (PeekMessageW(&msg, hwnd_, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
}

int MessageRecorder::Count(unsigned long long wParam) const {
  int n = 0;
  for (const Entry &e : entries) n += e.message == 1136 && e.wParam == wParam;
  return n;
}

std::vector<std::wstring> MessageRecorder::Titles() const {
  std::vector<std::wstring> titles;
  for (const Entry &e : entries)
    if (e.message == 1136 && e.wParam == 0) titles.push_back(e.text);
  return titles;
}

std::vector<long long> MessageRecorder::Ticks(const std::wstring &title) const {
  std::vector<long long> ticks;
  bool in = false;
  for (const Entry &e : entries) {
    if (e.message != 1136) continue;
    if (e.wParam == 0) in = e.text == title;
    else if (e.wParam == 2) in = false;
    else if (e.wParam == 1 && in) ticks.push_back(e.lParam);
  }
  return ticks;
}

}  // namespace qorimg::test
