// The filter family's shared helpers (filter/FilterInternal.h).
#include "filter/FilterInternal.h"

#include "sibling/QorSys.h"

namespace qorimg::filter {

ThreadLines::ThreadLines(int width)
    : lines_(static_cast<size_t>(std::max(CParallel::GetMaxThreads(), 1)),
             std::vector<float>(static_cast<size_t>(std::max(width, 1)))) {}

float *ThreadLines::Get() const {
  const int t = CParallel::GetThreadNum();
  if (t < 0 || static_cast<size_t>(t) >= lines_.size()) AfxThrowInvalidArgException();
  return lines_[static_cast<size_t>(t)].data();
}

SourceCopy::SourceCopy(CLmrImage *src, const CLmrImage &target) : src_(src) {
  if (src == &target) {
    copy_ = src->Clone();
    src_ = copy_.get();
  }
}

ToneGate ToneGate::Make(const CLmrImage &src, int plane, int bDark, double fDark, double fDarkWidth, int bHighlight,
                        double fHighlight, double fHighlightWidth) {
  const double range = src.GetLevelRange(plane), low = src.GetLevelMin(plane);
  auto raw = [&](double level) { return static_cast<float>(level / 255.0 * range + low); };
  ToneGate gate;
  if (bDark) {
    gate.dark = raw(fDark);
    gate.darkMin = raw(fDark - fDarkWidth);
  }
  if (bHighlight) {
    gate.highlight = raw(fHighlight);
    gate.highlightMax = raw(fHighlight + fHighlightWidth);
  }
  gate.darkWidth = gate.dark - gate.darkMin;
  gate.highlightWidth = gate.highlightMax - gate.highlight;
  return gate;
}

}  // namespace qorimg::filter
