// Reference data written by the Python scripts in tests/reference: raw float32
// planes, row after row, in the directory named by QORIMG_REFERENCE_DIR.
#pragma once
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace qorimg::test {

inline std::string ReferenceDir() {
  const char *dir = std::getenv("QORIMG_REFERENCE_DIR");
  return dir ? dir : "";
}

// The samples of `name`.f32; empty when the file is missing.
inline std::vector<float> ReadReference(const std::string &name) {
  std::ifstream in(ReferenceDir() + "/" + name + ".f32", std::ios::binary | std::ios::ate);
  if (!in) return {};
  std::vector<float> data(static_cast<std::size_t>(in.tellg()) / sizeof(float));
  in.seekg(0);
  in.read(reinterpret_cast<char *>(data.data()), static_cast<std::streamsize>(data.size() * sizeof(float)));
  return data;
}

}  // namespace qorimg::test
