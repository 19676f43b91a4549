// The same operator calls as the Python tests make, straight in C++, so that
// the tests can compare the module's results with the library's bit for bit.
//   qorimg_py_reference OP STORE W H PLANES PARAM OUT IN...
// Inputs and output are raw float32, plane after plane; every input image gets
// levels 0..1000. OP: calculate (multiply by PARAM), gaussian (sigma PARAM),
// rotate (PARAM degrees, bicubic), stack (median of the inputs, PARAM band
// rows), poc (prints "dx dy peak" of the second input against the first).
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "qorimg.h"

namespace {

std::unique_ptr<CLmrImage> Load(const std::shared_ptr<CVmManager> &manager, const std::string &path, int w, int h,
                                int planes) {
  auto image = std::make_unique<CLmrImage>(manager, CImage::Float32, w, h, planes, 1.0, 0.0, 1,
                                           std::shared_ptr<lumora::Progress>());
  std::ifstream in(path, std::ios::binary);
  for (int p = 0; p < planes; ++p) {
    image->CImage::SetLevel(p, 0.0, 1000.0);
    for (int y = 0; y < h; ++y)
      in.read(reinterpret_cast<char *>(image->GetImageAdr(0, y, p, CImage::Write)), std::streamsize(sizeof(float)) * w);
  }
  if (!in) throw std::runtime_error("cannot read " + path);
  return image;
}

void Save(const CLmrImage &image, const std::string &path) {
  std::ofstream out(path, std::ios::binary);
  for (int p = 0; p < image.GetPlanes(); ++p)
    for (int y = 0; y < image.GetHeight(); ++y)
      out.write(reinterpret_cast<const char *>(image.GetImageAdr(0, y, p, CImage::ReadOnly)),
                std::streamsize(sizeof(float)) * image.GetWidth());
  std::cout << image.GetWidth() << " " << image.GetHeight() << " " << image.GetPlanes() << "\n";
}

}  // namespace

int main(int argc, char **argv) {
  if (argc < 9) {
    std::cerr << "usage: qorimg_py_reference OP STORE W H PLANES PARAM OUT IN...\n";
    return 2;
  }
  const std::string op = argv[1], store = argv[2], out = argv[7];
  const int w = std::stoi(argv[3]), h = std::stoi(argv[4]), planes = std::stoi(argv[5]);
  const double param = std::stod(argv[6]);
  auto manager = store == "block" ? CreateBlockManager(std::size_t(256) << 20, 64) : CreateWholePlaneManager();
  std::vector<std::unique_ptr<CLmrImage>> in;
  for (int i = 8; i < argc; ++i) in.push_back(Load(manager, argv[i], w, h, planes));

  if (op == "calculate") {
    CImgCalculation target;
    target.CopyImage(*in[0]);
    target.Do(param, CImgCalculation::Multiply, 0, in[0].get(), nullptr, 0);
    Save(target, out);
  } else if (op == "gaussian") {
    CImgFilterBlur target;
    target.CopyImage(*in[0]);
    target.GaussianFilter(param, in[0].get(), nullptr, 0);
    Save(target, out);
  } else if (op == "rotate") {
    CImgRotate target;
    if (!target.Do(param, 0, in[0].get(), 0, CInterp::BicubicMethod, 0)) return 1;
    Save(target, out);
  } else if (op == "stack") {
    const int rows = static_cast<int>(param);
    CLmrImage target;
    target.Create(*in[0], nullptr);
    {
      CImgMedianComposit stacker(&target, 0);
      stacker.AllocateStoreBuffer(&target, static_cast<int>(in.size()), rows - 1);
      for (int top = 0; top < h; top += rows) {
        const int bottom = std::min(h, top + rows) - 1;
        for (std::size_t i = 0; i < in.size(); ++i)
          stacker.Store(static_cast<int>(i), in[i].get(), top, bottom, 0, 0, 0, 0, 0, nullptr, CInterp::BicubicMethod);
        stacker.MedianCalc(top, bottom);
      }
    }
    Save(target, out);
  } else if (op == "poc") {
    CImgFourier a;
    a.CopyImage(*in[0]);
    double dx = 0, dy = 0, peak = 0;
    int tw = 0, th = 0;
    if (!a.CalcShiftByPOC(in[1].get(), nullptr, param, nullptr, dx, dy, peak, tw, th, 0)) return 1;
    std::printf("%.17g %.17g %.17g\n", dx, dy, peak);
  } else {
    std::cerr << "unknown operation " << op << "\n";
    return 2;
  }
  return 0;
}
