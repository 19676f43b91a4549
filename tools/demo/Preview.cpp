#include "Preview.h"

#include <png.h>
#include <vector>
#include "display/BmpFile.h"
#include "platform/DeviceContext.h"

namespace demo {
namespace {

constexpr int kBins = 4096;

// The value below which `share` of the counted samples lie.
double Quantile(const std::vector<int> &hist, double share, double lo, double hi) {
  long long total = 0;
  for (int n : hist) total += n;
  const double wanted = share * static_cast<double>(total);
  long long below = 0;
  for (std::size_t i = 0; i < hist.size(); ++i) {
    below += hist[i];
    if (static_cast<double>(below) >= wanted) return lo + (hi - lo) * static_cast<double>(i + 1) / kBins;
  }
  return hi;
}

// The bitmap's lines, bottom-up with 4 bytes blue, green, red, unused a pixel,
// as top-down RGB for libpng.
bool WritePng(const std::string &path, CMemoryDIB &dib) {
  const int w = dib.GetWidth(), h = dib.GetHeight();
  std::vector<unsigned char> rgb(static_cast<std::size_t>(w) * h * 3);
  for (int y = 0; y < h; ++y) {
    const unsigned char *s = dib.GetImageAdr32(0, y);
    unsigned char *d = rgb.data() + static_cast<std::size_t>(y) * w * 3;
    for (int x = 0; x < w; ++x, s += 4, d += 3) {
      d[0] = s[2];
      d[1] = s[1];
      d[2] = s[0];
    }
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(w);
  image.height = static_cast<png_uint_32>(h);
  image.format = PNG_FORMAT_RGB;
  image.flags = PNG_IMAGE_FLAG_FAST;
  return png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr) != 0;
}

}  // namespace

DisplayLevels SetLevelsFromStatistics(CLmrImage &frame) {
  frame.CalcMinMax();
  std::vector<int> hist(kBins);
  DisplayLevels shown{0.0, 0.0};
  for (int p = 0; p < frame.GetPlanes(); ++p) {
    const double lo = frame.GetMinPixel(p), hi = frame.GetMaxPixel(p);
    frame.GetHistogram(hist.data(), kBins, lo, hi, p, 0, 0, 0, nullptr, 0, 0);
    shown = {Quantile(hist, 0.01, lo, hi), Quantile(hist, 0.9995, lo, hi)};
    frame.CImage::SetLevel(p, shown.black, shown.white);
  }
  return shown;
}

bool DrawPreview(const CLmrImage &frame, CMemoryDIB &dib) {
  CWnd screen(frame.GetWidth(), frame.GetHeight(), 32);
  if (!dib.Create(&screen, frame.GetWidth(), frame.GetHeight(), 0)) return false;
  frame.ToDIB(&dib, nullptr);
  return true;
}

std::string WritePreview(CMemoryDIB &dib, const std::string &stem) {
  std::string written;
  if (qorimg::WriteBmp(stem + ".bmp", dib)) written = stem + ".bmp";
  if (WritePng(stem + ".png", dib)) written += (written.empty() ? "" : ", ") + stem + ".png";
  return written;
}

}  // namespace demo
