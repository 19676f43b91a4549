// Zeroed block buffers for the two store managers.
#pragma once
#include <cstddef>

namespace store_internal {

// Bytes that a mapping of `bytes` really takes: whole pages.
std::size_t PageRoundUp(std::size_t bytes);

// Anonymous private mapping of PageRoundUp(bytes) bytes, page aligned, zero,
// committed lazily; unmapping gives the pages back to the system at once.
// Throws lumora::CVmMemoryAllocationError.
unsigned char *MapZeroedPages(std::size_t bytes);
void UnmapPages(unsigned char *data, std::size_t bytes);

// A zeroed, 64-byte aligned buffer: large ones are page mappings, small ones
// come from the heap so that tiny images do not each cost a page.
// Throws lumora::CVmMemoryAllocationError.
unsigned char *AllocateAlignedZeroed(std::size_t bytes);
void FreeAligned(unsigned char *data, std::size_t bytes);

}  // namespace store_internal
