// How every engine call is made from Python: the GIL released around it,
// progress by the library's window message turned into a throttled Python
// callback, Ctrl-C turned into the library's ESC, and the library's exceptions
// turned into Python ones.
#pragma once
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <utility>

#include "qorimg.h"

namespace qorpy {
namespace py = pybind11;

using ImagePtr = std::shared_ptr<CLmrImage>;
using Rect = std::optional<std::array<int, 4>>;

// One engine call made for Python. The window that receives the operator's
// progress belongs to the calling thread; its updates reach the callback (at
// most ten a second, GIL held). A pending signal (Ctrl-C) or an exception of
// the callback posts ESC to the calling thread, so that operators that honour
// it stop early; the Python error is raised when the call is over.
class Call {
public:
  explicit Call(py::object progress = py::none());
  ~Call();
  Call(const Call &) = delete;
  Call &operator=(const Call &) = delete;

  // 1 when the operator should send progress: a callback was given, or the
  // call runs on the main thread, where Ctrl-C is delivered.
  int Reporting() const { return reporting_ ? 1 : 0; }
  // Points the image's progress at this call's window.
  void Attach(CLmrImage &image) const { image.SetProgressHandle(window_); }
  // The call's progress as a lumora::Progress sink (escape() reports a stop).
  std::shared_ptr<lumora::Progress> Sink() const { return sink_; }

  // Runs `f` without the GIL, then raises what the progress hook recorded:
  // that error comes first, since a stopped operator may fail or answer 0.
  template <class F>
  auto Run(F &&f) -> decltype(f()) {
    std::exception_ptr failure;
    if constexpr (std::is_void_v<decltype(f())>) {
      {
        py::gil_scoped_release release;
        try {
          f();
        } catch (...) {
          failure = std::current_exception();
        }
      }
      Finish();
      if (failure) std::rethrow_exception(failure);
    } else {
      std::optional<decltype(f())> result;
      {
        py::gil_scoped_release release;
        try {
          result.emplace(f());
        } catch (...) {
          failure = std::current_exception();
        }
      }
      Finish();
      if (failure) std::rethrow_exception(failure);
      return std::move(*result);
    }
  }

  // Called on the calling thread with a percentage; takes the GIL.
  void Update(int percent);
  // Takes the GIL; true once the call has been told to stop.
  bool Poll();
  bool Stopped() const { return stopped_; }

private:
  void Finish();
  void Stop(py::error_already_set error);

  py::object callback_;
  bool reporting_ = false;
  HWND window_ = nullptr;
  std::shared_ptr<lumora::Progress> sink_;
  std::chrono::steady_clock::time_point last_{};
  bool called_ = false;
  bool stopped_ = false;
  std::optional<py::error_already_set> error_;
};

// Helpers shared by the binding files.
// The store of new images: "whole-plane" (memory: a ceiling in bytes; default
// one shared store) or "block" (memory: the resident budget).
std::shared_ptr<CVmManager> MakeManager(const std::string &store, std::optional<std::size_t> memory);
// A str or os.PathLike as a path.
std::string PathOf(const py::object &path);
CRect ToRect(const std::array<int, 4> &r);
// Pointer to `storage` filled from `rect`, or null for None.
CRect *RectOrNull(const Rect &rect, CRect &storage);
void RequireImage(const ImagePtr &image, const char *name);
// Raises RuntimeError("<what> failed") for an engine status of 0.
void CheckStatus(int status, const char *what);
// A per-plane float or double list of three from a scalar or a sequence.
std::array<double, 3> PerPlane(const py::object &value, const char *name);

// The operator object `Op` holding a copy of `source` (pixels, levels, points).
template <class Op>
std::unique_ptr<Op> CopyOf(const CLmrImage &source) {
  auto op = std::make_unique<Op>();
  if (!op->CopyImage(source)) throw std::bad_alloc();
  return op;
}

// The operator object `Op` of the source's geometry and levels, samples zero.
template <class Op>
std::unique_ptr<Op> ShapeOf(const CLmrImage &source) {
  auto op = std::make_unique<Op>();
  if (!op->Create(source, nullptr)) throw std::bad_alloc();
  return op;
}

// The common shape of an operator call: a copy of `source` as the target, the
// operator run on it with the GIL released, the target returned as a new image.
template <class Op, class F>
ImagePtr Apply(const ImagePtr &source, const py::object &progress, F &&body) {
  RequireImage(source, "image");
  Call call(progress);
  return call.Run([&]() -> ImagePtr {
    auto op = CopyOf<Op>(*source);
    call.Attach(*op);
    body(*op, call.Reporting());
    return ImagePtr(std::move(op));
  });
}

// The same with an operator that builds its own target (geometry changes).
template <class Op, class F>
ImagePtr Build(const ImagePtr &source, const py::object &progress, F &&body) {
  RequireImage(source, "image");
  Call call(progress);
  return call.Run([&]() -> ImagePtr {
    auto op = std::make_unique<Op>();
    call.Attach(*op);
    body(*op, call.Reporting());
    return ImagePtr(std::move(op));
  });
}

void RegisterExceptions(py::module_ &m);
void BindImage(py::module_ &m);
void BindTone(py::module_ &m);
void BindGeometry(py::module_ &m);
void BindFilter(py::module_ &m);
void BindCalibrate(py::module_ &m);
void BindDevelop(py::module_ &m);
void BindComposite(py::module_ &m);
void BindRestore(py::module_ &m);
void BindIo(py::module_ &m);
void BindWorkflow(py::module_ &m);

}  // namespace qorpy
