// Shared benchmark plumbing: realistic frames, and the ratio lines that compare
// our median time with a peer's median on the same input in the same run:
//   ratio <operation>.<route>.vs.<peer> <value>
// Lines are printed and appended to $QORIMG_BENCH_RESULTS (build/bench/results.txt).
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <benchmark/benchmark.h>
#include "core/LmrImage.h"

namespace bench {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;

// A float frame with a smooth pattern and some structure, levels 0..65535.
std::unique_ptr<CLmrImage> MakeFrame(const std::shared_ptr<CVmManager> &manager, int planes, int width = kWidth,
                                     int height = kHeight);
// A block store large enough to hold the benchmark frames, so that the loops and
// not the backing file are measured.
std::shared_ptr<CVmManager> RoomyBlockManager();

// Registers a benchmark with the settings every comparison uses (median of 5
// repetitions, real time, milliseconds).
benchmark::internal::Benchmark *Register(const std::string &name, std::function<void(benchmark::State &)> fn);
// ratio <name> = median(ours) / median(peer), both registered names.
void Compare(const std::string &ratioName, const std::string &ours, const std::string &peer);
// ratio <name> = ((median(ours) - median(oursBase)) / steps) / median(peer): the
// cost of one step of an iterative operation, its preparation taken out by
// timing it with `steps` more iterations than oursBase.
void CompareStep(const std::string &ratioName, const std::string &ours, const std::string &oursBase, int steps,
                 const std::string &peer);
// Runs all registered benchmarks and prints the ratio lines.
int Main(int argc, char **argv);

}  // namespace bench
