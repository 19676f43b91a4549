#include "sibling/VmImage.h"

#include <cstring>
#include <limits>

#include <omp.h>

#include "sibling/ProgressStepsInternal.h"

namespace {

// Dimensions above this are refused, so that no product of them can overflow.
constexpr long long kMaxExtent = 1LL << 31;

long long BytesForBits(long long bits) {
  switch (bits) {
    case 1: case 2: case 4: case 8: return 1;
    case 12: case 14: case 16: return 2;
    case 24: return 3;
    case 32: return 4;
    case 64: return 8;
    default: throw lumora::CLumoraImageException("unsupported sample size");
  }
}

}  // namespace

CVmImage::CVmImage(const std::shared_ptr<CVmManager> &manager, long long bits, long long width, long long height,
                   long long planes, const std::shared_ptr<lumora::Progress> &)
    : Width(width), Height(height), Planes(planes), BytesPixel(BytesForBits(bits)) {
  Allocate(manager);
}

CVmImage::CVmImage(CVmImage &source, const std::shared_ptr<lumora::Progress> &progress)
    : Width(source.Width), Height(source.Height), Planes(source.Planes), BytesPixel(source.BytesPixel) {
  std::shared_ptr<CVmManager> manager = source.VmManager();
  if (!manager) throw lumora::CVmManagerHandleDeletedError();
  Allocate(manager);
  Parallel = source.Parallel;
  try {
    store_internal::ProgressSteps steps(progress, TotalLines);
    for (long long plane = 0; plane < Planes; ++plane)
      for (long long y = 0; y < Height; ++y) {
        const unsigned char *from = source.GetImageAdr(0, y, plane, true, false, nullptr);
        std::memcpy(GetImageAdr(0, y, plane, false, false, nullptr), from, static_cast<std::size_t>(BytesPerLine));
        steps.Step(plane * Height + y);
      }
  } catch (...) {
    manager->Release(*VmHandle);
    throw;
  }
}

CVmImage::~CVmImage() {
  ReleaseLocks(false);
  if (std::shared_ptr<CVmManager> manager = VmHandle->VmManager()) manager->Release(*VmHandle);
}

void CVmImage::Allocate(const std::shared_ptr<CVmManager> &manager) {
  if (!manager) throw lumora::CVmManagerHandleDeletedError();
  if (Width < 0 || Height < 0 || Planes < 0 || Width > kMaxExtent || Height > kMaxExtent || Planes > kMaxExtent)
    throw lumora::CLumoraImageException("image dimensions out of range");
  BytesPerLine = Width * BytesPixel;
  TotalLines = Height * Planes;
  const long long managerLines = manager->GetLinesPerBlock(Height);
  LinesPerBlock = managerLines > 0 ? managerLines : 1;
  const long long maxLines = BytesPerLine > 0 ? std::numeric_limits<long long>::max() / BytesPerLine : 0;
  if (BytesPerLine > 0 && (TotalLines > maxLines || LinesPerBlock > maxLines))
    throw lumora::CVmMemoryAllocationError("image too large");
  BlockCount = (TotalLines + LinesPerBlock - 1) / LinesPerBlock;
  VmHandle = manager->Allocate(LinesPerBlock * BytesPerLine, BlockCount);
  Owner = manager;

  // A whole-plane manager gives one block per plane that never moves.
  if (manager->GetAllocationPolicy() != CVmManager::BlockStored && LinesPerBlock == Height) {
    try {
      PlaneBase.resize(static_cast<std::size_t>(BlockCount));
      for (long long plane = 0; plane < BlockCount; ++plane)
        PlaneBase[static_cast<std::size_t>(plane)] = manager->GetBlockOnMemory(VmHandle, plane, false);
    } catch (...) {
      manager->Release(*VmHandle);
      throw;
    }
  }
}

unsigned char *CVmImage::GetImageAdr(long long x, long long y, long long plane, bool readOnly, bool lock,
                                     AddressHandle *handle) {
  if (plane < 0 || plane >= Planes) throw lumora::CLumoraImageException("plane outside the image");
  if (y < 0 || y >= Height) throw lumora::CLumoraImageException("line outside the image");
  if (x < 0 || x > Width) throw lumora::CLumoraImageException("column outside the image");
  const long long line = plane * Height + y;
  const long long block = line / LinesPerBlock;
  const long long offset = (line - block * LinesPerBlock) * BytesPerLine + x * BytesPixel;

  if (!lock) {
    // The bases stay valid while the manager lives, and the image keeps it alive.
    if (!PlaneBase.empty()) return PlaneBase[static_cast<std::size_t>(block)] + offset;
    return GetBlockOnMemory(block, readOnly) + offset;
  }

  std::shared_ptr<CVmManager> manager = VmHandle->VmManager();
  if (!manager) throw lumora::CVmManagerHandleDeletedError();
  unsigned char *data = manager->LockBlock(VmHandle, block, readOnly);
  try {
    std::lock_guard<std::mutex> guard(LockMutex);
    ++LockCounts[std::this_thread::get_id()][block];
  } catch (...) {
    manager->UnlockBlock(*VmHandle, block);
    throw;
  }
  if (handle) *handle = block;
  return data + offset;
}

bool CVmImage::Unlock(const AddressHandle &handle) {
  if (handle < 0) return false;
  std::shared_ptr<CVmManager> manager = VmHandle->VmManager();
  std::lock_guard<std::mutex> guard(LockMutex);
  // The calling thread's lock on the block first, else another thread's.
  auto own = LockCounts.find(std::this_thread::get_id());
  auto holder = own != LockCounts.end() && own->second.count(handle) ? own : LockCounts.end();
  for (auto it = LockCounts.begin(); holder == LockCounts.end() && it != LockCounts.end(); ++it)
    if (it->second.count(handle)) holder = it;
  if (holder == LockCounts.end()) return false;
  auto block = holder->second.find(handle);
  if (--block->second == 0) holder->second.erase(block);
  if (holder->second.empty()) LockCounts.erase(holder);
  if (manager) manager->UnlockBlock(*VmHandle, handle);
  return true;
}

void CVmImage::UnlockAll() { ReleaseLocks(omp_in_parallel() != 0); }

void CVmImage::ReleaseLocks(bool callingThreadOnly) {
  std::unordered_map<long long, long long> held;
  {
    std::lock_guard<std::mutex> guard(LockMutex);
    if (callingThreadOnly) {
      auto own = LockCounts.find(std::this_thread::get_id());
      if (own != LockCounts.end()) {
        held.swap(own->second);
        LockCounts.erase(own);
      }
    } else {
      for (auto &[thread, blocks] : LockCounts)
        for (const auto &[block, count] : blocks) held[block] += count;
      LockCounts.clear();
    }
  }
  if (held.empty()) return;
  std::shared_ptr<CVmManager> manager = VmHandle->VmManager();
  if (!manager) return;
  for (const auto &[block, count] : held)
    for (long long i = 0; i < count; ++i) manager->UnlockBlock(*VmHandle, block);
}

bool CVmImage::IsOnMemory() const {
  std::shared_ptr<CVmManager> manager = VmHandle->VmManager();
  return manager && manager->IsOnMemory(*VmHandle);
}
