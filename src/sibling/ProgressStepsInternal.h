// Reports the steps of one store operation to an optional progress sink as
// percentages: initialize on construction, update when the percentage
// changes, finalize on destruction. An empty sink costs nothing.
#pragma once
#include <memory>

#include "sibling/Progress.h"

namespace store_internal {

class ProgressSteps {
public:
  ProgressSteps(const std::shared_ptr<lumora::Progress> &sink, long long stepTotal)
      : Sink(sink.get()), StepTotal(stepTotal > 0 ? stepTotal : 1) {
    if (Sink) Sink->initialize();
  }
  ~ProgressSteps() {
    if (Sink) Sink->finalize();
  }
  ProgressSteps(const ProgressSteps &) = delete;
  ProgressSteps &operator=(const ProgressSteps &) = delete;

  // Step `i` (from 0) done.
  void Step(long long i) {
    if (!Sink) return;
    const int percent = static_cast<int>((i + 1) * 100 / StepTotal);
    if (percent != LastPercent) {
      LastPercent = percent;
      Sink->update(percent);
    }
  }

private:
  lumora::Progress *Sink;
  long long StepTotal;
  int LastPercent = -1;
};

}  // namespace store_internal
