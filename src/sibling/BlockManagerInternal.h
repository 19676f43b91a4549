// Block-stored manager: blocks of a fixed number of lines (fewer for an image
// with fewer lines), at most a budget of them resident, the rest in one unlinked
// temporary file.
//
// A block costs nothing until it is first touched, and reads as zeros then.
// Resident blocks that no one holds are kept in least-recently-used order and
// moved out when a load needs room; a changed block is written to its file
// region, an unchanged one with a file copy (or never written at all) is just
// dropped. Blocks locked by a caller, or among the last few distinct blocks a
// thread touched, are never moved out: a caller may take several line addresses
// in a row without a lock and use them together. When nothing can be moved out
// a load still succeeds, over the budget: the resident bytes then stay within
// GetResidentBound(), the budget raised to what the live threads' windows and
// the locked blocks outside them pin. A thread's window goes when the thread
// ends.
//
// File space freed by a block or an image is reused by blocks of any size
// (first fit, neighbouring free extents merged); free space at the end of the
// file is given back. An optional cap on the file's length turns a store that
// would grow past it into CVmMemoryAllocationError.
#pragma once
#include <cstddef>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "sibling/VmManager.h"

namespace store_internal {

class BlockManager final : public CVmManager {
public:
  // Distinct blocks that each thread's window keeps resident.
  static constexpr int kWindowBlocks = 8;

  // No cap on the backing file's length.
  static constexpr std::size_t kNoFileCap = static_cast<std::size_t>(-1);

  BlockManager(std::size_t residentBytes, int linesPerBlock, std::size_t fileCapBytes = kNoFileCap);
  ~BlockManager() override;
  BlockManager(const BlockManager &) = delete;
  BlockManager &operator=(const BlockManager &) = delete;

  std::size_t GetResidentBudget() const override { return Budget; }
  std::size_t GetResidentBytes() const override;
  AllocationPolicy GetAllocationPolicy() const override { return BlockStored; }
  // A block never holds more lines than a plane has.
  long long GetLinesPerBlock(long long planeHeight) const override {
    return planeHeight < LinesPerBlock ? (planeHeight > 0 ? planeHeight : 1) : LinesPerBlock;
  }
  std::size_t GetResidentBound() const override;
  std::size_t GetPeakResidentBytes() const override;
  std::shared_ptr<CVmHandle> Allocate(long long blockSize, long long blockCount) override;
  void Release(CVmHandle &handle) override;
  unsigned char *LockBlock(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly) override;
  void UnlockBlock(const CVmHandle &handle, long long block) override;
  // True when no block of the handle lives only in the file.
  bool IsOnMemory(const CVmHandle &handle) const override;
  unsigned char *GetBlockOnMemory(const std::shared_ptr<CVmHandle> &handle, long long block,
                                  bool readOnly) override;

  // Length of the backing file: regions in use and free extents between them.
  long long GetFileBytes() const;

private:
  struct HandleBlocks;
  struct ExitHook;

  struct BlockState {
    HandleBlocks *home = nullptr;
    long long index = 0;
    unsigned char *data = nullptr;  // resident buffer, or null
    long long fileOffset = -1;      // where the last copy was written out, or -1
    int locks = 0;
    int windowRefs = 0;  // thread windows holding the block
    bool dirty = false;
    bool inLru = false;
    BlockState *newer = nullptr;
    BlockState *older = nullptr;
  };

  struct HandleBlocks {
    CVmHandle *handle = nullptr;
    std::size_t blockBytes = 0;   // bytes of a block in the file
    std::size_t mappedBytes = 0;  // bytes of a resident block, whole pages
    std::vector<BlockState> blocks;
  };

  // One per live thread that touched a block here; it goes with the thread.
  struct ThreadWindow {
    BlockState *recent[kWindowBlocks] = {};  // most recent first
    int count = 0;
  };

  unsigned char *Bring(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly, bool lock);
  BlockState &Find(const CVmHandle &handle, long long block);
  void Load(BlockState &state);
  unsigned char *MakeRoom(std::size_t bytes);
  unsigned char *Evict(BlockState &state);
  void Touch(BlockState &state);
  void EndWindow(std::thread::id thread);
  void TrimToBudget() noexcept;
  void LeaveWindow(BlockState &state);
  static bool Evictable(const BlockState &state) { return state.data && state.locks == 0 && state.windowRefs == 0; }
  void LruPushNewest(BlockState &state);
  void LruRemove(BlockState &state);

  long long AcquireRegion(long long bytes);
  void FreeRegion(long long offset, long long bytes);
  void WriteRegion(long long offset, long long bytes, const unsigned char *data);
  void ReadRegion(long long offset, long long bytes, unsigned char *data);
  int File();

  const std::size_t Budget;
  const long long LinesPerBlock;
  const std::size_t FileCap;

  mutable std::mutex Mutex;
  std::size_t Resident = 0;
  std::size_t Peak = 0;
  std::unordered_map<const CVmHandle *, HandleBlocks> Handles;
  std::unordered_map<std::thread::id, ThreadWindow> Windows;
  BlockState *LruNewest = nullptr;
  BlockState *LruOldest = nullptr;

  int FileDescriptor = -1;
  long long FileEnd = 0;
  std::map<long long, long long> FreeExtents;  // offset -> bytes, none touching FileEnd
};

}  // namespace store_internal
