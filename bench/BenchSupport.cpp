#include "BenchSupport.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <vector>
#include "sibling/VmManager.h"

namespace bench {
namespace {

struct Comparison {
  std::string ratioName, ours, peer;
  std::string oursBase;  // empty: ours is compared whole
  int steps = 1;
};
std::vector<Comparison> &Comparisons() {
  static std::vector<Comparison> list;
  return list;
}

// Console output as usual, and the median time of each benchmark kept by name.
class MedianCollector : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs)
      if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")
        medians[run.run_name.function_name] = run.GetAdjustedRealTime();
  }
  std::map<std::string, double> medians;
};

}  // namespace

std::unique_ptr<CLmrImage> MakeFrame(const std::shared_ptr<CVmManager> &manager, int planes, int width, int height) {
  auto frame = std::make_unique<CLmrImage>(manager, CImage::Float32, width, height, planes, 1.0, 0.0, 1,
                                           std::shared_ptr<lumora::Progress>());
  for (int p = 0; p < planes; ++p) {
    frame->CImage::SetLevel(p, 0.0, 65535.0);
    for (int y = 0; y < height; ++y) {
      float *line = frame->GetImageAdr(0, y, p);
      for (int x = 0; x < width; ++x)
        line[x] = 1000.0f + 500.0f * std::sin(x * 0.01f + p) * std::cos(y * 0.013f) +
                  static_cast<float>((x * 31 + y * 17) % 97);
    }
  }
  return frame;
}

std::shared_ptr<CVmManager> RoomyBlockManager() { return CreateBlockManager(std::size_t{2} << 30, 16); }

benchmark::internal::Benchmark *Register(const std::string &name, std::function<void(benchmark::State &)> fn) {
  return benchmark::RegisterBenchmark(name.c_str(), std::move(fn))
      ->Repetitions(5)
      ->ReportAggregatesOnly(true)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

void Compare(const std::string &ratioName, const std::string &ours, const std::string &peer) {
  Comparisons().push_back({ratioName, ours, peer, std::string(), 1});
}

void CompareStep(const std::string &ratioName, const std::string &ours, const std::string &oursBase, int steps,
                 const std::string &peer) {
  Comparisons().push_back({ratioName, ours, peer, oursBase, steps});
}

int Main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  MedianCollector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  const char *path = std::getenv("QORIMG_BENCH_RESULTS");
  std::ofstream results;
  if (path) results.open(path, std::ios::app);
  for (const Comparison &c : Comparisons()) {
    auto ours = collector.medians.find(c.ours), peer = collector.medians.find(c.peer);
    auto base = collector.medians.find(c.oursBase);
    if (ours == collector.medians.end() || peer == collector.medians.end() || peer->second <= 0) continue;
    if (!c.oursBase.empty() && base == collector.medians.end()) continue;
    const double time = c.oursBase.empty() ? ours->second : (ours->second - base->second) / c.steps;
    char line[256];
    std::snprintf(line, sizeof line, "ratio %s %.3f", c.ratioName.c_str(), time / peer->second);
    std::puts(line);
    if (results) results << line << '\n';
  }
  benchmark::Shutdown();
  return 0;
}

}  // namespace bench
