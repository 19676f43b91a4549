// The demo job: makes synthetic star fields in both store kinds (one larger than
// the block store's memory budget), calibrates them with CImgCalculation (remove
// a pedestal with clipping, then apply a gain), shows each as a preview bitmap
// with levels from its statistics, and reports what it did and how long each
// step took. The previews go to the directory given as the first argument (the
// current one by default).
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include "Preview.h"
#include "StarField.h"
#include "core/ImgCalculation.h"
#include "sibling/VmManager.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The route an operator takes follows from the store: kernel pipelines on
// whole-plane images, line loops (vector ones where the processor has them) on
// block-stored ones.
const char *RouteName(const CImage &image) {
  return image.GetAllocationPolicy() != 0 ? "kernel pipeline" : "line loops";
}

struct Job {
  std::string name, preview;
  std::shared_ptr<CVmManager> manager;
  int width, height, planes;
};

void Run(const Job &job, const std::string &directory) {
  std::printf("\n== %s: %d x %d, %d plane(s), %.0f MiB of pixels\n", job.name.c_str(), job.width, job.height,
              job.planes, 4.0 * job.width * job.height * job.planes / (1 << 20));
  auto t0 = std::chrono::steady_clock::now();
  CLmrImage frame(job.manager, CImage::Float32, job.width, job.height, job.planes, 1.0, 0.0, 1,
                  std::shared_ptr<lumora::Progress>());
  demo::PaintStarField(frame, demo::StarFieldParams{});
  std::printf("  synthetic star field painted in %.3f s\n", Seconds(t0));

  const float before = frame.GetPixelGrayRaw(10, 10, 0);
  CImgCalculation calibrated;
  calibrated.Create(frame, nullptr, nullptr);
  std::printf("  route: %s\n", RouteName(calibrated));

  t0 = std::chrono::steady_clock::now();
  calibrated.Do(1000.0, CImgCalculation::Subtract, 1, &frame, nullptr, 0);
  std::printf("  pedestal 1000 removed (clip at 0) in %.3f s\n", Seconds(t0));
  t0 = std::chrono::steady_clock::now();
  calibrated.Do(1.25, CImgCalculation::Multiply, 0, &calibrated, nullptr, 0);
  std::printf("  gain 1.25 applied in place in %.3f s\n", Seconds(t0));

  const float after = calibrated.GetPixelGrayRaw(10, 10, 0);
  const float expected = (before - 1000.0f > 0.0f ? before - 1000.0f : 0.0f) * 1.25f;
  std::printf("  check pixel (10, 10): %.3f -> %.3f (expected %.3f) %s\n", before, after, expected,
              after == expected ? "ok" : "MISMATCH");

  t0 = std::chrono::steady_clock::now();
  const demo::DisplayLevels levels = demo::SetLevelsFromStatistics(calibrated);
  std::printf("  levels %.1f .. %.1f from minimum, maximum and histogram in %.3f s\n", levels.black, levels.white,
              Seconds(t0));
  t0 = std::chrono::steady_clock::now();
  CMemoryDIB preview;
  if (!demo::DrawPreview(calibrated, preview)) {
    std::printf("  no memory for the preview bitmap\n");
  } else {
    std::printf("  preview drawn into a 32-bit bitmap by ToDIB in %.3f s\n", Seconds(t0));
    t0 = std::chrono::steady_clock::now();
    const std::string written = demo::WritePreview(preview, directory + "/" + job.preview);
    std::printf("  written in %.3f s: %s\n", Seconds(t0), written.empty() ? "could not be written" : written.c_str());
  }
  std::printf("  store: resident %.1f MiB, peak %.1f MiB", job.manager->GetResidentBytes() / 1048576.0,
              job.manager->GetPeakResidentBytes() / 1048576.0);
  if (job.manager->GetAllocationPolicy() == CVmManager::BlockStored)
    std::printf(", budget %.1f MiB", job.manager->GetResidentBudget() / 1048576.0);
  std::printf("\n");
}

}  // namespace

int main(int argc, char **argv) {
  const std::string directory = argc > 1 ? argv[1] : ".";
  std::printf("qorimg demo: synthetic star fields through the calibration arithmetic\n");
  Run({"whole-plane store", "preview-whole-plane", CreateWholePlaneManager(), 3000, 2000, 3}, directory);
  Run({"block store", "preview-block", CreateBlockManager(std::size_t{256} << 20, 16), 3000, 2000, 3}, directory);
  Run({"block store, frame 3x its memory budget", "preview-large", CreateBlockManager(std::size_t{32} << 20, 16), 6000,
       4000, 1},
      directory);
  return 0;
}
