#include "sibling/BlockMemoryInternal.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "sibling/Exceptions.h"

namespace store_internal {
namespace {

constexpr std::size_t kAlignment = 64;
// From this size on an aligned buffer is a page mapping (zero without a memset).
constexpr std::size_t kMappedFrom = 256 * 1024;

std::size_t PageSize() {
  static const std::size_t size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

}  // namespace

std::size_t PageRoundUp(std::size_t bytes) {
  const std::size_t page = PageSize();
  if (bytes == 0) return page;
  if (bytes > SIZE_MAX - page) throw lumora::CVmMemoryAllocationError("block too large");
  return (bytes + page - 1) / page * page;
}

unsigned char *MapZeroedPages(std::size_t bytes) {
  void *p = mmap(nullptr, PageRoundUp(bytes), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) throw lumora::CVmMemoryAllocationError("cannot map a block of the store");
  return static_cast<unsigned char *>(p);
}

void UnmapPages(unsigned char *data, std::size_t bytes) {
  if (data) munmap(data, PageRoundUp(bytes));
}

unsigned char *AllocateAlignedZeroed(std::size_t bytes) {
  if (bytes >= kMappedFrom) return MapZeroedPages(bytes);
  const std::size_t rounded = bytes == 0 ? kAlignment : (bytes + kAlignment - 1) / kAlignment * kAlignment;
  void *p = std::aligned_alloc(kAlignment, rounded);
  if (!p) throw lumora::CVmMemoryAllocationError("cannot allocate a plane of the store");
  std::memset(p, 0, rounded);
  return static_cast<unsigned char *>(p);
}

void FreeAligned(unsigned char *data, std::size_t bytes) {
  if (bytes >= kMappedFrom)
    UnmapPages(data, bytes);
  else
    std::free(data);
}

}  // namespace store_internal
