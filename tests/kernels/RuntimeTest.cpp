// The shared Halide runtime set-up: variant selection (forced or detected),
// first calls from two threads, error reports instead of aborts, and the
// temporary-plane allocator with its failure hook.
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include "KernelTestSupport.h"
#include "kernels/Arithmetic.h"
#include "kernels/FrameEdits.h"
#include "kernels/Runtime.h"
#include "core/TestHooks.h"
#include "sibling/Exceptions.h"

namespace qorimg::kernels::test {
namespace {

unsigned Bit(Variant variant) { return 1u << static_cast<unsigned>(variant); }

bool ProcessorHas(Variant variant) {
  __builtin_cpu_init();
  switch (variant) {
    case Variant::Sse41: return __builtin_cpu_supports("sse4.1");
    case Variant::Avx: return __builtin_cpu_supports("avx");
    case Variant::Avx2:
      return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("f16c");
  }
  return false;
}

Variant BestOfProcessor() {
  if (ProcessorHas(Variant::Avx2)) return Variant::Avx2;
  if (ProcessorHas(Variant::Avx)) return Variant::Avx;
  return Variant::Sse41;
}

// A wrapper asks about each variant above the SSE4.1 last resort and takes the
// strongest one granted, so the answers recorded after a call show which
// variant ran.
TEST(KernelRuntime, WrapperTakesTheForcedOrTheBestVariant) {
  Variant expected = BestOfProcessor();
  if (const std::optional<Variant> forced = ForcedVariant()) {
    if (!ProcessorHas(*forced)) GTEST_SKIP() << "the processor lacks the forced variant";
    expected = *forced;
  }
  Plane input = SamplePlane(9, 3, 1);
  Plane output(9, 3);
  ASSERT_EQ(copy_float(input.input(), output.buffer()), 0);

  unsigned grantable = 0, deniable = 0;
  for (Variant asked : {Variant::Avx, Variant::Avx2}) (asked <= expected ? grantable : deniable) |= Bit(asked);
  const testing::VariantQueries queries = testing::RecordedVariantQueries();
  EXPECT_EQ(queries.granted, grantable);
  EXPECT_EQ(queries.denied, deniable);
}

// Two threads making the first call of a pipeline at once both get a working
// variant, and the same one.
TEST(KernelRuntime, FirstCallsFromTwoThreadsBothWork) {
  const Plane input = SamplePlane(37, 5, 2);
  Plane outputs[2] = {Plane(37, 5), Plane(37, 5)};
  int results[2] = {-1, -1};
  std::atomic<int> ready{0};
  auto call = [&](int i) {
    ready.fetch_add(1);
    while (ready.load() < 2) {
    }
    results[i] = threshold_gt_float(input.input(), 100.0f, 0.0f, outputs[i].buffer());
  };
  std::thread first(call, 0), second(call, 1);
  first.join();
  second.join();

  Plane expected(37, 5);
  for (std::size_t i = 0; i < input.samples.size(); ++i) expected.samples[i] = input.samples[i] > 100.0f ? 0.0f : input.samples[i];
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(results[i], 0);
    EXPECT_TRUE(SameSamples(outputs[i], expected)) << "thread " << i;
  }
  // No variant was granted to one call and denied to another, so both threads
  // took the same one.
  const testing::VariantQueries queries = testing::RecordedVariantQueries();
  EXPECT_EQ(queries.granted & queries.denied, 0u);
}

TEST(KernelRuntime, PipelineErrorIsReturnedThenRaisedWithItsMessage) {
  const Plane small(5, 5);
  Plane large(10, 10);
  const int errorsBefore = testing::PipelineErrorCount();
  // The output reaches beyond the input: the bounds check fails.
  const int result = crop_float(small.input(), 1, 1, large.buffer());
  EXPECT_NE(result, 0);
  EXPECT_EQ(testing::PipelineErrorCount(), errorsBefore + 1);
  try {
    CheckPipeline(result);
    ADD_FAILURE() << "no exception";
  } catch (const lumora::CLumoraImageException &e) {
    EXPECT_NE(std::string(e.what()).find("beyond the max"), std::string::npos) << e.what();
  }
  EXPECT_NO_THROW(CheckPipeline(0));
}

TEST(KernelRuntime, TemporaryPlaneAllocationFailsOnDemand) {
  TemporaryPlane plane = AllocateTemporaryPlane(37, 5);
  ASSERT_NE(plane, nullptr);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(plane.get()) % 64, 0u);
  plane[37 * 5 - 1] = 1.0f;  // the whole plane is there (checked under the sanitizers)

  testing::FailTemporaryAllocationsFrom(0);
  EXPECT_THROW(AllocateTemporaryPlane(37, 5), std::bad_alloc);
  testing::FailTemporaryAllocationsFrom(-1);
  EXPECT_NE(AllocateTemporaryPlane(1, 1), nullptr);
  EXPECT_THROW(AllocateTemporaryPlane(-1, 5), std::bad_alloc);
}

}  // namespace
}  // namespace qorimg::kernels::test
