// The block store's manager: it owns the memory behind the pixel planes of the
// images made with it. Two kinds are made by the factories at the end:
//  - whole-plane (policy 1): each plane one contiguous, 64-byte aligned block,
//    which is what the kernel pipelines need;
//  - block-stored (policy 0): blocks of a fixed number of lines, a budget of them
//    in memory (more while the threads' windows and locks need more), the rest
//    in an unlinked temporary file, so that frames larger than memory can be
//    worked on line by line.
#pragma once
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>
#include "Export.h"

class CVmManager;

// The record of one block: a type that the manager interprets and a slot index.
class QORIMG_API CVmBlock {
public:
  enum Type : std::int32_t { Unallocated = 0, Resident = 1, OnFile = 2 };
  Type type = Unallocated;
  long long slot = -1;
};

// An image's claim on its manager: the block size and count, and a record per block.
class QORIMG_API CVmHandle {
public:
  CVmHandle(long long blockSize, long long blockCount, const std::shared_ptr<CVmManager> &manager);

  long long GetBlockSize() const { return BlockSize; }
  long long GetBlockCount() const { return BlockCount; }
  void Set(long long index, CVmBlock::Type type, long long slot);
  CVmBlock::Type GetType(long long index) const { return Blocks.at(static_cast<std::size_t>(index)).type; }
  long long GetSlotIndex(long long index) const { return Blocks.at(static_cast<std::size_t>(index)).slot; }
  std::shared_ptr<CVmManager> VmManager() const { return Manager.lock(); }
  void Delete() { Manager.reset(); }
  // True while the manager can still be locked: the opposite of what the name
  // says. Nothing in the library calls it; it is kept as callers know it.
  bool Deleted() const { return !Manager.expired(); }

private:
  std::weak_ptr<CVmManager> Manager;
  long long BlockSize;
  long long BlockCount;
  std::vector<CVmBlock> Blocks;
};

class QORIMG_API CVmManager : public std::enable_shared_from_this<CVmManager> {
public:
  enum AllocationPolicy : std::int32_t { BlockStored = 0, WholePlane = 1 };

  virtual ~CVmManager();
  // Bytes of block memory that may be resident at once (unbounded for whole-plane).
  virtual std::size_t GetResidentBudget() const = 0;
  virtual std::size_t GetResidentBytes() const = 0;
  virtual AllocationPolicy GetAllocationPolicy() const = 0;
  // Lines per block for an image whose planes have `planeHeight` lines.
  virtual long long GetLinesPerBlock(long long planeHeight) const = 0;
  virtual std::size_t GetPeakResidentBytes() const = 0;
  // The most block memory the manager may hold now: the budget, or more while
  // what must stay resident (the threads' windows, locked blocks) needs more.
  // The block store's peak stays within the highest value this takes.
  virtual std::size_t GetResidentBound() const { return GetResidentBudget(); }
  // New blocks for an image; throws lumora::CVmMemoryAllocationError.
  virtual std::shared_ptr<CVmHandle> Allocate(long long blockSize, long long blockCount) = 0;
  // Frees all blocks of a handle; called by the image when it goes.
  virtual void Release(CVmHandle &handle) = 0;
  // Brings a block in and keeps it until UnlockBlock.
  virtual unsigned char *LockBlock(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly) = 0;
  virtual void UnlockBlock(const CVmHandle &handle, long long block) = 0;
  virtual bool IsOnMemory(const CVmHandle &handle) const = 0;
  // Brings a block in; the address stays good while the calling thread's recent
  // window of blocks holds it (at least the last 8 blocks it touched).
  virtual unsigned char *GetBlockOnMemory(const std::shared_ptr<CVmHandle> &handle, long long block,
                                          bool readOnly) = 0;
};

// The store's private record of a memory interface; kept for callers that know it.
class QORIMG_API CVmMemoryInterface {
public:
  virtual ~CVmMemoryInterface();
  virtual unsigned char *Address() = 0;
  virtual std::size_t Size() const = 0;
  virtual bool Load() = 0;
  virtual bool Store() = 0;
};

class QORIMG_API CVmMemory {
public:
  std::unique_ptr<CVmMemoryInterface> Memory;
  long long Generation = 1;
  long long Block = -1;
  std::shared_ptr<CVmHandle> Handle;
  long long Slot = -1;
  long long Owner = -1;
  long long Locks = 0;
  long long Touched = 0;
  // Restores all but the generation counter.
  void Reset();
};

// Whole-plane store. With a limit, an allocation beyond `maxBytes` in all fails
// with CVmMemoryAllocationError (a store that cannot allocate, for tests and for
// callers that want a ceiling).
QORIMG_API std::shared_ptr<CVmManager> CreateWholePlaneManager(
    std::size_t maxBytes = std::numeric_limits<std::size_t>::max());
// Block-stored store keeping at most `residentBytes` of blocks in memory beyond
// what the threads' windows and locks pin (see GetResidentBound). Blocks have
// `linesPerBlock` lines, or the plane's height when that is less. With a file
// cap, a block that would take the backing file past `fileCapBytes` raises
// CVmMemoryAllocationError instead of filling the disk; by default there is none.
QORIMG_API std::shared_ptr<CVmManager> CreateBlockManager(
    std::size_t residentBytes, int linesPerBlock,
    std::size_t fileCapBytes = std::numeric_limits<std::size_t>::max());
