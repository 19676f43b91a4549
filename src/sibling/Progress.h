// Progress sinks: the second progress channel beside the window message of
// CLmrImage::ShowProgress. ProgressWin::Create(nullptr, nullptr, false) gives a
// sink that does nothing, the form used when progress is off.
#pragma once
#include <memory>
#include <string>
#include "Export.h"
#include "platform/WinTypes.h"

namespace lumora {

class QORIMG_API Progress {
public:
  virtual ~Progress();
  virtual void initialize() = 0;
  virtual void update(int percent) = 0;
  virtual void finalize() = 0;
  virtual void message(const std::wstring &text) = 0;
  virtual bool escape() = 0;
};

// A sink that reports to a window as message 1136: open with the caption, update
// with the percentage, close. Without a window it does nothing.
class QORIMG_API ProgressWin : public Progress {
public:
  static std::shared_ptr<Progress> Create(HWND hwnd, const wchar_t *caption, bool showCancel);

  ProgressWin(HWND hwnd, const wchar_t *caption, bool showCancel);
  void initialize() override;
  void update(int percent) override;
  void finalize() override;
  void message(const std::wstring &text) override;
  bool escape() override;

  HWND GetWindow() const { return Window; }

private:
  HWND Window;
  long long LastUpdate = -1;
  int ShowCancel;
  int Active = 0;
  std::wstring Caption;
};

// Owns a sink for the length of one operation and turns steps into percentages.
class QORIMG_API ScopedProgress {
public:
  ScopedProgress(std::shared_ptr<Progress> sink, int stepTotal);
  ~ScopedProgress();
  ScopedProgress(const ScopedProgress &) = delete;
  ScopedProgress &operator=(const ScopedProgress &) = delete;
  // Reports step `i` (from 0): (i + 1) * 100 / total, only when the percentage changes.
  void Step(int i);

private:
  std::shared_ptr<Progress> Sink;
  int StepTotal;
  int LastPercent = -1;
};

}  // namespace lumora
