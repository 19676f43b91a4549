#include "support/Fixtures.h"

#include <cmath>
#include <cstring>
#include "platform/Messages.h"
#include "sibling/SimdOverride.h"

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

void RouteTest::SetUp() {
  qorimg::testing::OverrideSIMD(Case().vector ? 2u : 0u);
  testing::ForceBlockRoute(Case().forceBlock);
  manager_ = MakeManager(Case().store);
}

void RouteTest::TearDown() {
  qorimg::testing::ClearSIMDOverride();
  testing::ForceBlockRoute(false);
}

MessageRecorder::MessageRecorder() {
  hwnd_ = CreateMessageWindow([this](HWND, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
    Entry e{message, wParam, static_cast<long long>(lParam), {}};
    // Codes 0, 2, 4 and 12 carry a text pointer that is only valid during the call.
    if (message == 1136 && wParam != 1 && wParam != 13 && lParam)
      e.text = reinterpret_cast<const wchar_t *>(lParam);
    entries.push_back(e);
    return 0;
  });
}

MessageRecorder::~MessageRecorder() { DestroyWindow(hwnd_); }

void MessageRecorder::Pump() {
  MSG msg;
  while (PeekMessageW(&msg, hwnd_, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
}

}  // namespace qorimg::test
