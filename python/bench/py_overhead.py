"""Python call against the same C++ call, in one process on one 6000 x 4000 frame.

Prints `ratio py_overhead.<op>.vs.cpp <median(Python) / median(C++)>` for three
operators and appends the lines to $QORIMG_BENCH_RESULTS. Calls alternate
between the two sides so that the machine's load falls on both alike.
"""
import os
import statistics
import sys
import time

import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qorimg as Q  # noqa: E402
import _qorimg_bench  # noqa: E402

REPETITIONS = int(os.environ.get("QORIMG_PY_BENCH_REPS", "7"))
CALLS = {
    "calculate": lambda img: Q.calculate(img, 1.75, Q.CalcMode.MULTIPLY),
    "gaussian": lambda img: Q.gaussian(img, 2.0),
    "rotate": lambda img: Q.rotate(img, 17.0, method=Q.Interp.BICUBIC),
}


def main():
    y, x = np.mgrid[0:4000, 0:6000].astype(np.float32)
    frame = (30000 + 20000 * np.sin(x / 300.0) * np.cos(y / 200.0)).astype(np.float32)
    img = Q.Image.from_array(frame, levels=(0.0, 65535.0))
    lines = []
    for name, call in CALLS.items():
        call(img), _qorimg_bench.time_cpp(name, img, 1)  # warm-up
        py_times, cpp_times = [], []
        for _ in range(REPETITIONS):
            start = time.perf_counter()
            call(img)
            py_times.append(time.perf_counter() - start)
            cpp_times.append(_qorimg_bench.time_cpp(name, img, 1)[0])
        py_med, cpp_med = statistics.median(py_times), statistics.median(cpp_times)
        print(f"py_overhead.{name}: python {py_med * 1e3:.1f} ms, c++ {cpp_med * 1e3:.1f} ms "
              f"(ranges {min(py_times) * 1e3:.1f}-{max(py_times) * 1e3:.1f}, "
              f"{min(cpp_times) * 1e3:.1f}-{max(cpp_times) * 1e3:.1f})")
        lines.append(f"ratio py_overhead.{name}.vs.cpp {py_med / cpp_med:.3f}")
    for line in lines:
        print(line)
    results = os.environ.get("QORIMG_BENCH_RESULTS")
    if results:
        with open(results, "a") as f:
            f.write("".join(line + "\n" for line in lines))


if __name__ == "__main__":
    main()
