// Block-stored manager: blocks of a fixed number of lines, at most a budget of
// them resident, the rest in one unlinked temporary file.
//
// A block costs nothing until it is first touched, and reads as zeros then.
// Resident blocks that no one holds are kept in least-recently-used order and
// moved out when a load needs room; a changed block is written to its file
// region, an unchanged one with a file copy (or never written at all) is just
// dropped. Blocks locked by a caller, or among the last few distinct blocks a
// thread touched, are never moved out: a caller may take several line addresses
// in a row without a lock and use them together. When nothing can be moved out
// a load still succeeds, over the budget, and the peak shows it.
#pragma once
#include <cstddef>
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
  // Thread windows kept at most; past this the least recently active is dropped.
  static constexpr std::size_t kMaxThreadWindows = 128;

  BlockManager(std::size_t residentBytes, int linesPerBlock);
  ~BlockManager() override;
  BlockManager(const BlockManager &) = delete;
  BlockManager &operator=(const BlockManager &) = delete;

  std::size_t GetResidentBudget() const override { return Budget; }
  std::size_t GetResidentBytes() const override;
  AllocationPolicy GetAllocationPolicy() const override { return BlockStored; }
  long long GetLinesPerBlock(long long planeHeight) const override { return LinesPerBlock; }
  std::size_t GetPeakResidentBytes() const override;
  std::shared_ptr<CVmHandle> Allocate(long long blockSize, long long blockCount) override;
  void Release(CVmHandle &handle) override;
  unsigned char *LockBlock(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly) override;
  void UnlockBlock(const CVmHandle &handle, long long block) override;
  // True when no block of the handle lives only in the file.
  bool IsOnMemory(const CVmHandle &handle) const override;
  unsigned char *GetBlockOnMemory(const std::shared_ptr<CVmHandle> &handle, long long block,
                                  bool readOnly) override;

  // Length of the backing file: regions in use and regions free for reuse.
  long long GetFileBytes() const;

private:
  struct HandleBlocks;

  struct BlockState {
    HandleBlocks *home = nullptr;
    long long index = 0;
    unsigned char *data = nullptr;  // resident buffer, or null
    long long fileRegion = -1;      // region with the last copy written out, or -1
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

  struct ThreadWindow {
    BlockState *recent[kWindowBlocks] = {};  // most recent first
    int count = 0;
    unsigned long long lastActive = 0;
  };

  struct FileRegion {
    long long offset;
    long long bytes;
  };

  unsigned char *Bring(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly, bool lock);
  BlockState &Find(const CVmHandle &handle, long long block);
  void Load(BlockState &state);
  unsigned char *MakeRoom(std::size_t bytes);
  unsigned char *Evict(BlockState &state);
  void Touch(BlockState &state);
  void DropLeastActiveWindow();
  void LeaveWindow(BlockState &state);
  static bool Evictable(const BlockState &state) { return state.data && state.locks == 0 && state.windowRefs == 0; }
  void LruPushNewest(BlockState &state);
  void LruRemove(BlockState &state);

  long long AcquireRegion(long long bytes);
  void WriteRegion(long long region, const unsigned char *data);
  void ReadRegion(long long region, unsigned char *data);
  int File();

  const std::size_t Budget;
  const long long LinesPerBlock;

  mutable std::mutex Mutex;
  std::size_t Resident = 0;
  std::size_t Peak = 0;
  std::unordered_map<const CVmHandle *, HandleBlocks> Handles;
  std::unordered_map<std::thread::id, ThreadWindow> Windows;
  unsigned long long Clock = 0;
  BlockState *LruNewest = nullptr;
  BlockState *LruOldest = nullptr;

  int FileDescriptor = -1;
  long long FileEnd = 0;
  std::vector<FileRegion> Regions;
  std::unordered_map<long long, std::vector<long long>> FreeRegions;  // bytes -> region indices
};

}  // namespace store_internal
