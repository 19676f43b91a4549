// The process's memory figures from /proc/self/status, for tests that bound
// what an operation keeps resident.
#pragma once
#include <fstream>
#include <string>

namespace qorimg::test {

// A kB figure of /proc/self/status ("VmRSS:", "VmHWM:"); -1 when absent.
inline long StatusKiB(const char *field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind(field, 0) == 0) return std::stol(line.substr(std::string(field).size()));
  return -1;
}

}  // namespace qorimg::test
