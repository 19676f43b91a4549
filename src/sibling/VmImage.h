// The pixel store of one image: lines of samples numbered through the planes
// (plane 0 first), grouped into blocks that its manager holds or moves out.
#pragma once
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <unordered_map>
#include <vector>
#include "Export.h"
#include "sibling/Exceptions.h"
#include "sibling/Progress.h"
#include "sibling/VmManager.h"

class QORIMG_API CVmImage {
public:
  // Filled by the store when it takes a lock; callers initialise it to -1.
  using AddressHandle = long long;

  // A store of `bits`-bit samples: 1, 2, 4 and 8 take a byte, 12 and 14 two,
  // 24 three, 32 four and 64 eight. Throws CVmMemoryAllocationError.
  CVmImage(const std::shared_ptr<CVmManager> &manager, long long bits, long long width, long long height,
           long long planes, const std::shared_ptr<lumora::Progress> &progress);
  // A copy of every sample, on the same manager.
  CVmImage(CVmImage &source, const std::shared_ptr<lumora::Progress> &progress);
  CVmImage &operator=(const CVmImage &) = delete;
  virtual ~CVmImage();

  // Address of sample (x, y) of `plane`. The samples of a line are contiguous.
  // `lock` keeps the block in memory until Unlock(*handle), or UnlockAll() when no
  // handle is given; without it the address is good while the calling thread's
  // recent window holds the block. Locks are recorded for the thread that took
  // them: inside a parallel region UnlockAll releases only the calling
  // thread's, outside it releases every thread's.
  unsigned char *GetImageAdr(long long x, long long y, long long plane, bool readOnly, bool lock,
                             AddressHandle *handle);
  bool Unlock(const AddressHandle &handle);
  void UnlockAll();
  bool IsOnMemory() const;
  std::shared_ptr<CVmManager> VmManager() const { return VmHandle->VmManager(); }

  unsigned char *GetBlockOnMemory(long long block, bool readOnly) {
    std::shared_ptr<CVmManager> manager = VmHandle->VmManager();
    if (!manager) throw lumora::CVmManagerHandleDeletedError();
    return manager->GetBlockOnMemory(VmHandle, block, readOnly);
  }

  long long GetWidth() const { return Width; }
  long long GetHeight() const { return Height; }
  long long GetPlanes() const { return Planes; }
  long long GetBytesPixel() const { return BytesPixel; }
  long long GetBytesPerLine() const { return BytesPerLine; }
  long long GetLinesPerBlock() const { return LinesPerBlock; }
  long long GetTotalLines() const { return TotalLines; }
  long long GetBlockCount() const { return BlockCount; }
  long long GetBlockLineCount(long long block) const {
    long long end = LinesPerBlock * (block + 1);
    return (end < TotalLines ? end : TotalLines) - LinesPerBlock * block;
  }
  // (lines of a full block, samples of a line)
  std::tuple<long long, long long> GetBlockShape() const {
    return {TotalLines < LinesPerBlock ? TotalLines : LinesPerBlock, Width};
  }
  std::shared_ptr<CVmHandle> GetVmHandle() const { return VmHandle; }
  bool GetParallel() const { return Parallel; }
  void SetParallel(bool parallel) { Parallel = parallel; }

protected:
  long long Width = 0;
  long long Height = 0;
  long long Planes = 0;
  long long BytesPixel = 0;
  long long BytesPerLine = 0;
  long long LinesPerBlock = 0;
  long long TotalLines = 0;
  long long BlockCount = 0;
  std::shared_ptr<CVmHandle> VmHandle;
  bool Parallel = false;

private:
  void Allocate(const std::shared_ptr<CVmManager> &manager);
  void ReleaseLocks(bool callingThreadOnly);

  // Images share their manager: it lives as long as any image made with it.
  std::shared_ptr<CVmManager> Owner;
  // Whole-plane stores never move a block: their bases are kept here and an
  // address is found without asking the manager.
  std::vector<unsigned char *> PlaneBase;
  std::mutex LockMutex;
  // thread -> block -> locks that thread holds on this image
  std::unordered_map<std::thread::id, std::unordered_map<long long, long long>> LockCounts;
};
