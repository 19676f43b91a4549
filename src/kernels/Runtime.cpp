#include "kernels/Runtime.h"

#include <HalideRuntime.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include "sibling/Exceptions.h"

namespace qorimg::kernels {
namespace {

std::atomic<int> g_errorCount{0};
std::atomic<unsigned> g_denied{0};
std::atomic<unsigned> g_granted{0};
std::optional<Variant> g_forcedVariant;
std::mutex g_lastErrorMutex;
std::string g_lastError;

bool HasFeature(int count, const uint64_t *features, halide_target_feature_t feature) {
  const int word = feature / 64;
  return word < count && (features[word] >> (feature % 64)) & 1;
}

// The variant a feature set was compiled for: the strongest x86 level it names.
Variant VariantOf(int count, const uint64_t *features) {
  if (HasFeature(count, features, halide_target_feature_avx2)) return Variant::Avx2;
  if (HasFeature(count, features, halide_target_feature_avx)) return Variant::Avx;
  return Variant::Sse41;
}

constexpr unsigned Bit(Variant variant) { return 1u << static_cast<unsigned>(variant); }

// Pipelines report errors here instead of aborting the process; the call then
// returns non-zero and CheckPipeline raises the message.
extern "C" void ReportPipelineError(void * /*user_context*/, const char *message) {
  g_errorCount.fetch_add(1, std::memory_order_relaxed);
  std::lock_guard<std::mutex> lock(g_lastErrorMutex);
  g_lastError = message ? message : "";
}

// Every variant selection passes here: it is recorded, limited to the forced
// variant if there is one, and answered by the runtime's own processor test.
extern "C" int CanUseTargetFeatures(int count, const uint64_t *features) {
  const Variant variant = VariantOf(count, features);
  const bool allowed = !g_forcedVariant || variant <= *g_forcedVariant;
  const bool granted = allowed && halide_default_can_use_target_features(count, features) != 0;
  (granted ? g_granted : g_denied).fetch_or(Bit(variant), std::memory_order_relaxed);
  return granted ? 1 : 0;
}

void ReadForcedVariant() {
  const char *name = std::getenv("QORIMG_HALIDE_TARGET");
  if (name == nullptr || *name == '\0') return;
  if (std::strcmp(name, "sse41") == 0) {
    g_forcedVariant = Variant::Sse41;
  } else if (std::strcmp(name, "avx") == 0) {
    g_forcedVariant = Variant::Avx;
  } else if (std::strcmp(name, "avx2") == 0) {
    g_forcedVariant = Variant::Avx2;
  } else {
    std::fprintf(stderr, "qorimg: QORIMG_HALIDE_TARGET=%s is not sse41, avx or avx2; ignored\n", name);
  }
}

// Runs when the library (or a test program holding its objects) is loaded,
// before any pipeline can be called.
const bool g_runtimeReady = [] {
  ReadForcedVariant();
  halide_set_error_handler(&ReportPipelineError);
  halide_set_custom_can_use_target_features(&CanUseTargetFeatures);
  return true;
}();

}  // namespace

std::optional<Variant> ForcedVariant() { return g_forcedVariant; }

void CheckPipeline(int status) {
  if (status == 0) return;
  std::string message;
  {
    std::lock_guard<std::mutex> lock(g_lastErrorMutex);
    message.swap(g_lastError);
  }
  throw lumora::CLumoraImageException("kernel pipeline failed (" + std::to_string(status) + "): " + message);
}

namespace testing {

VariantQueries RecordedVariantQueries() {
  return {g_granted.load(std::memory_order_relaxed), g_denied.load(std::memory_order_relaxed)};
}

int PipelineErrorCount() { return g_errorCount.load(std::memory_order_relaxed); }

}  // namespace testing
}  // namespace qorimg::kernels
