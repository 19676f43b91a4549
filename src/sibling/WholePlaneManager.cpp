// Whole-plane store: every block (a plane) is one contiguous, 64-byte aligned
// buffer that stays where it is until its image goes. Nothing ever moves out,
// so locks need no bookkeeping here.
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "sibling/BlockMemoryInternal.h"
#include "sibling/Exceptions.h"
#include "sibling/VmManager.h"

namespace {

using store_internal::AllocateAlignedZeroed;
using store_internal::FreeAligned;

class WholePlaneManager final : public CVmManager {
public:
  explicit WholePlaneManager(std::size_t maxBytes) : Limit(maxBytes) {}

  ~WholePlaneManager() override {
    for (auto &[handle, planes] : Planes)
      for (const Plane &plane : planes) FreeAligned(plane.data, plane.bytes);
  }

  std::size_t GetResidentBudget() const override { return Limit; }
  std::size_t GetResidentBytes() const override {
    std::lock_guard<std::mutex> guard(Mutex);
    return Resident;
  }
  AllocationPolicy GetAllocationPolicy() const override { return WholePlane; }
  long long GetLinesPerBlock(long long planeHeight) const override { return planeHeight; }
  std::size_t GetPeakResidentBytes() const override {
    std::lock_guard<std::mutex> guard(Mutex);
    return Peak;
  }

  std::shared_ptr<CVmHandle> Allocate(long long blockSize, long long blockCount) override {
    if (blockSize < 0 || blockCount < 0) throw lumora::CVmMemoryAllocationError("negative block size or count");
    const auto bytes = static_cast<std::size_t>(blockSize);
    const auto count = static_cast<std::size_t>(blockCount);
    if (bytes != 0 && count > SIZE_MAX / bytes) throw lumora::CVmMemoryAllocationError("image too large");
    const std::size_t total = bytes * count;

    auto handle = std::make_shared<CVmHandle>(blockSize, blockCount, shared_from_this());
    std::lock_guard<std::mutex> guard(Mutex);
    if (total > Limit || Resident > Limit - total)
      throw lumora::CVmMemoryAllocationError("the store's memory limit is reached");
    std::vector<Plane> planes;
    planes.reserve(count);
    try {
      for (std::size_t b = 0; b < count; ++b) planes.push_back({AllocateAlignedZeroed(bytes), bytes});
    } catch (...) {
      for (const Plane &plane : planes) FreeAligned(plane.data, plane.bytes);
      throw lumora::CVmMemoryAllocationError("cannot allocate the planes of an image");
    }
    for (long long b = 0; b < blockCount; ++b) handle->Set(b, CVmBlock::Resident, b);
    Planes.emplace(handle.get(), std::move(planes));
    Resident += total;
    if (Resident > Peak) Peak = Resident;
    return handle;
  }

  void Release(CVmHandle &handle) override {
    std::lock_guard<std::mutex> guard(Mutex);
    auto it = Planes.find(&handle);
    if (it != Planes.end()) {
      for (const Plane &plane : it->second) {
        FreeAligned(plane.data, plane.bytes);
        Resident -= plane.bytes;
      }
      Planes.erase(it);
      for (long long b = 0; b < handle.GetBlockCount(); ++b) handle.Set(b, CVmBlock::Unallocated, -1);
    }
    handle.Delete();
  }

  unsigned char *LockBlock(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly) override {
    return GetBlockOnMemory(handle, block, readOnly);
  }
  void UnlockBlock(const CVmHandle &, long long) override {}
  bool IsOnMemory(const CVmHandle &) const override { return true; }

  unsigned char *GetBlockOnMemory(const std::shared_ptr<CVmHandle> &handle, long long block, bool) override {
    std::lock_guard<std::mutex> guard(Mutex);
    auto it = handle ? Planes.find(handle.get()) : Planes.end();
    if (it == Planes.end()) throw lumora::CVmManagerException("the handle does not belong to this store");
    if (block < 0 || block >= static_cast<long long>(it->second.size()))
      throw lumora::CVmManagerException("block index out of range");
    return it->second[static_cast<std::size_t>(block)].data;
  }

private:
  struct Plane {
    unsigned char *data;
    std::size_t bytes;
  };

  const std::size_t Limit;
  mutable std::mutex Mutex;
  std::size_t Resident = 0;
  std::size_t Peak = 0;
  std::unordered_map<const CVmHandle *, std::vector<Plane>> Planes;
};

}  // namespace

std::shared_ptr<CVmManager> CreateWholePlaneManager(std::size_t maxBytes) {
  return std::make_shared<WholePlaneManager>(maxBytes);
}
