#include "Call.h"

#include <new>
#include <stdexcept>

namespace qorpy {

namespace {

constexpr auto kMinInterval = std::chrono::milliseconds(100);

// The lumora::Progress side of a call: the window procedure hands it the
// operator's percentages; escape() tells whether the call was told to stop.
class CallSink : public lumora::Progress {
public:
  explicit CallSink(Call &call) : call_(call) {}
  void initialize() override {}
  void update(int percent) override { call_.Update(percent); }
  void finalize() override {}
  void message(const std::wstring &) override {}
  bool escape() override { return call_.Poll(); }

private:
  Call &call_;
};

bool OnMainThread() {
  static const unsigned long mainThread = [] {
    py::gil_scoped_acquire gil;
    return py::module_::import("threading").attr("main_thread")().attr("ident").cast<unsigned long>();
  }();
  return PyThread_get_thread_ident() == mainThread;
}

}  // namespace

Call::Call(py::object progress) : callback_(std::move(progress)) {
  if (!callback_.is_none() && !PyCallable_Check(callback_.ptr()))
    throw py::type_error("progress must be callable or None");
  reporting_ = !callback_.is_none() || OnMainThread();
  sink_ = std::make_shared<CallSink>(*this);
  if (reporting_) {
    lumora::Progress *sink = sink_.get();
    window_ = CreateMessageWindow([sink](HWND, UINT message, WPARAM code, LPARAM value) -> LRESULT {
      if (message == QORIMG_PROGRESS_MESSAGE && code == PROGRESS_UPDATE) sink->update(static_cast<int>(value));
      return 0;
    });
  }
}

// A call left by an exception still takes its ESC off the queue.
Call::~Call() {
  if (!window_) return;
  DestroyWindow(window_);
  MSG msg;
  while (PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE)) {
  }
}

void Call::Stop(py::error_already_set error) {
  if (!stopped_) {
    stopped_ = true;
    error_.emplace(std::move(error));
    // ESC to this thread's queue: the operator's next progress step sees it.
    PostMessageW(nullptr, WM_KEYDOWN, VK_ESCAPE, 0);
  }
}

void Call::Update(int percent) {
  py::gil_scoped_acquire gil;
  if (stopped_) return;
  const auto now = std::chrono::steady_clock::now();
  if (!callback_.is_none() && (!called_ || now - last_ >= kMinInterval)) {
    called_ = true;
    last_ = now;
    try {
      callback_(percent);
    } catch (py::error_already_set &e) {
      Stop(std::move(e));
      return;
    }
  }
  if (PyErr_CheckSignals() != 0) Stop(py::error_already_set());
}

bool Call::Poll() {
  py::gil_scoped_acquire gil;
  if (!stopped_ && PyErr_CheckSignals() != 0) Stop(py::error_already_set());
  return stopped_;
}

void Call::Finish() {
  // An ESC the operator did not take must not reach the next call.
  MSG msg;
  while (PeekMessageW(&msg, nullptr, WM_KEYDOWN, WM_KEYDOWN, PM_REMOVE)) {
  }
  if (window_) {
    DestroyWindow(window_);
    window_ = nullptr;
  }
  if (error_) {
    py::error_already_set error = std::move(*error_);
    error_.reset();
    throw error;
  }
  // A signal that came with no progress step in between is raised now.
  if (reporting_ && PyErr_CheckSignals() != 0) throw py::error_already_set();
}

constexpr std::size_t kDefaultBlockBudget = std::size_t(256) << 20;
constexpr int kLinesPerBlock = 64;

std::shared_ptr<CVmManager> MakeManager(const std::string &store, std::optional<std::size_t> memory) {
  if (store == "whole-plane") {
    if (memory) return CreateWholePlaneManager(*memory);
    static const std::shared_ptr<CVmManager> shared = CreateWholePlaneManager();
    return shared;
  }
  if (store == "block") return CreateBlockManager(memory.value_or(kDefaultBlockBudget), kLinesPerBlock);
  throw py::value_error("store must be \"whole-plane\" or \"block\", not \"" + store + "\"");
}

std::string PathOf(const py::object &path) { return py::str(py::module_::import("os").attr("fspath")(path)); }

CRect ToRect(const std::array<int, 4> &r) { return CRect(r[0], r[1], r[2], r[3]); }

CRect *RectOrNull(const Rect &rect, CRect &storage) {
  if (!rect) return nullptr;
  storage = ToRect(*rect);
  return &storage;
}

void RequireImage(const ImagePtr &image, const char *name) {
  if (!image) throw py::value_error(std::string(name) + " must be an Image, not None");
}

void CheckStatus(int status, const char *what) {
  if (status == 0) throw std::runtime_error(std::string(what) + " failed (the engine refused the arguments or ran out of memory)");
}

std::array<double, 3> PerPlane(const py::object &value, const char *name) {
  std::array<double, 3> out{};
  if (py::isinstance<py::float_>(value) || py::isinstance<py::int_>(value)) {
    out.fill(value.cast<double>());
    return out;
  }
  const auto list = value.cast<std::vector<double>>();
  if (list.empty() || list.size() > 3)
    throw py::value_error(std::string(name) + " must be a number or a sequence of 1 to 3 numbers");
  for (std::size_t i = 0; i < 3; ++i) out[i] = list[std::min(i, list.size() - 1)];
  return out;
}

void RegisterExceptions(py::module_ &) {
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (CInvalidArgException *) {
      PyErr_SetString(PyExc_ValueError,
                      "invalid argument: an image missing or too small, a plane it does not have, or samples the "
                      "operator cannot read");
    } catch (CMemoryException *) {
      PyErr_SetString(PyExc_MemoryError, "out of memory");
    } catch (CException *) {
      PyErr_SetString(PyExc_RuntimeError, "library error");
    } catch (const lumora::CVmMemoryAllocationError &e) {
      PyErr_SetString(PyExc_MemoryError, e.what());
    }
  });
}

}  // namespace qorpy
