// The C++ side of the Python overhead benchmark: the same engine calls that
// the module makes for qorimg.calculate, qorimg.gaussian and qorimg.rotate
// (a target made the same way, then Do), timed in the same process on the
// same image, with the GIL released as the module releases it.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "qorimg.h"

namespace py = pybind11;

namespace {

template <class Op>
std::unique_ptr<Op> CopyOf(const CLmrImage &source) {
  auto op = std::make_unique<Op>();
  if (!op->CopyImage(source)) throw std::bad_alloc();
  return op;
}

void RunOnce(const std::string &op, CLmrImage &src) {
  if (op == "calculate") {
    auto t = CopyOf<CImgCalculation>(src);
    t->Do(1.75, CImgCalculation::Multiply, 0, &src, nullptr, 0);
  } else if (op == "gaussian") {
    auto t = CopyOf<CImgFilterBlur>(src);
    double sigma[3] = {2.0, 2.0, 2.0};
    t->GaussianFilter(sigma, &src, nullptr, 0);
  } else if (op == "rotate") {
    auto t = std::make_unique<CImgRotate>();
    if (!t->Do(17.0, 0, &src, 0, CInterp::BicubicMethod, 0)) throw std::runtime_error("rotate failed");
  } else {
    throw std::invalid_argument("unknown operation " + op);
  }
}

// Seconds of each of `repetitions` calls.
std::vector<double> Time(const std::string &op, const std::shared_ptr<CLmrImage> &src, int repetitions) {
  std::vector<double> seconds;
  py::gil_scoped_release release;
  for (int i = 0; i < repetitions; ++i) {
    const auto start = std::chrono::steady_clock::now();
    RunOnce(op, *src);
    seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return seconds;
}

}  // namespace

PYBIND11_MODULE(_qorimg_bench, m) {
  py::module_::import("qorimg");  // registers the Image type this module takes
  m.def("time_cpp", &Time, py::arg("op"), py::arg("image"), py::arg("repetitions"));
}
