#include <string>

#include <gtest/gtest.h>

#include "platform/Diagnostics.h"
#include "platform/StringResources.h"

namespace {

TEST(Diagnostics, MessageBoxesAndDebugOutputGoToTheCallbacks) {
  std::wstring shown, debug;
  qorimg::SetMessageBoxCallback([&](const wchar_t *text, UINT type) { shown = text; return static_cast<int>(type); });
  qorimg::SetDebugOutputCallback([&](const wchar_t *text) { debug += text; });
  EXPECT_EQ(AfxMessageBox(L"\u661f", MB_ICONSTOP), static_cast<int>(MB_ICONSTOP));
  EXPECT_EQ(shown, L"\u661f");
  AfxMessageBox(6109u);
  EXPECT_EQ(shown, FindStringResource(6109));
  AfxMessageBox(1u);  // no such resource: an empty box
  EXPECT_EQ(shown, L"");
  OutputDebugStringW(L"a");
  OutputDebugStringW(nullptr);
  EXPECT_EQ(debug, L"a");

  // The defaults: boxes to standard error as UTF-8, debug output dropped.
  qorimg::SetMessageBoxCallback(nullptr);
  qorimg::SetDebugOutputCallback(nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(AfxMessageBox(L"\u661f ok"), IDOK);
  OutputDebugStringW(L"dropped");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\xE6\x98\x9F ok\n");
  EXPECT_EQ(debug, L"a");
}

}  // namespace
