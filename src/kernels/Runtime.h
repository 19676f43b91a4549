// Set-up of the Halide runtime that all kernel pipelines share. At library load
// a Halide error handler is installed that keeps the message for the exception instead
// of aborting (a failing pipeline then returns non-zero), and the processor
// variant may be forced for tests with QORIMG_HALIDE_TARGET=sse41|avx|avx2.
#pragma once
#include <optional>

namespace qorimg::kernels {

// The compiled variants of a pipeline, weakest first.
enum class Variant { Sse41, Avx, Avx2 };

// The variant that QORIMG_HALIDE_TARGET forced when the library loaded, if
// any. Forcing only withholds the stronger variants: the processor must still
// have the forced one, or a weaker one runs.
std::optional<Variant> ForcedVariant();

// Every pipeline call's status passes here: non-zero (the pipeline reported an
// error, such as a buffer too small for what it reads) raises
// lumora::CLumoraImageException with the pipeline's message. Pipelines check
// their buffers before they write, so the target is untouched then.
void CheckPipeline(int status);

namespace testing {

// What the pipelines' variant selection asked the runtime and was told since
// load: one bit (1 << Variant) per variant, in `granted` when the answer was
// yes, in `denied` when it was no.
struct VariantQueries {
  unsigned granted = 0;
  unsigned denied = 0;
};
VariantQueries RecordedVariantQueries();

// Number of errors that pipelines have reported since load.
int PipelineErrorCount();

}  // namespace testing
}  // namespace qorimg::kernels
