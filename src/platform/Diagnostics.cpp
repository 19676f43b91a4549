// Message boxes and debug output, routed to callbacks the application may set.
#include "platform/Diagnostics.h"

#include <cstdio>
#include <mutex>

#include "platform/String.h"

namespace {

struct Callbacks {
  std::mutex mutex;
  MessageBoxCallback messageBox;
  DebugOutputCallback debugOutput;
};

Callbacks &TheCallbacks() {
  static Callbacks callbacks;
  return callbacks;
}

int DefaultMessageBox(const wchar_t *text) {
  const std::string utf8 = CString(text).ToUtf8();
  std::fprintf(stderr, "%s\n", utf8.c_str());
  return IDOK;
}

}  // namespace

namespace qorimg {

void SetMessageBoxCallback(MessageBoxCallback callback) {
  std::lock_guard lock(TheCallbacks().mutex);
  TheCallbacks().messageBox = std::move(callback);
}

void SetDebugOutputCallback(DebugOutputCallback callback) {
  std::lock_guard lock(TheCallbacks().mutex);
  TheCallbacks().debugOutput = std::move(callback);
}

}  // namespace qorimg

// The callback is copied out of the lock, so it may itself set callbacks or show boxes.
int AfxMessageBox(const wchar_t *text, UINT type, UINT /*helpId*/) {
  MessageBoxCallback callback;
  {
    std::lock_guard lock(TheCallbacks().mutex);
    callback = TheCallbacks().messageBox;
  }
  if (!text) text = L"";
  return callback ? callback(text, type) : DefaultMessageBox(text);
}

// A missing resource shows an empty box, as the framework does.
int AfxMessageBox(UINT id, UINT type, UINT helpId) {
  CString text;
  text.LoadString(id);
  return AfxMessageBox(text.GetString(), type, helpId);
}

void OutputDebugStringW(const wchar_t *text) {
  DebugOutputCallback callback;
  {
    std::lock_guard lock(TheCallbacks().mutex);
    callback = TheCallbacks().debugOutput;
  }
  if (callback) callback(text ? text : L"");
}
