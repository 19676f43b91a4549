#include "sibling/BlockManagerInternal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "sibling/BlockMemoryInternal.h"
#include "sibling/Exceptions.h"

namespace store_internal {
namespace {

[[noreturn]] void ThrowIoError(const char *what) {
  throw lumora::CVmManagerException(std::string(what) + ": " + std::strerror(errno));
}

// Set once the thread's exit hook is gone: a block touched by a later
// thread-exit destructor must not reach the destroyed hook.
thread_local bool exitHookGone = false;

}  // namespace

// The managers in which the calling thread has a window. When the thread ends,
// its windows go: their blocks may then be moved out like any other.
struct BlockManager::ExitHook {
  std::vector<std::weak_ptr<CVmManager>> Managers;

  ~ExitHook() {
    exitHookGone = true;
    for (const std::weak_ptr<CVmManager> &weak : Managers)
      if (std::shared_ptr<CVmManager> manager = weak.lock())
        static_cast<BlockManager &>(*manager).EndWindow(std::this_thread::get_id());
  }

  void Add(std::weak_ptr<CVmManager> manager) {
    if (manager.expired()) return;  // not owned by a shared_ptr: nothing to hook
    std::erase_if(Managers, [](const std::weak_ptr<CVmManager> &m) { return m.expired(); });
    for (const std::weak_ptr<CVmManager> &m : Managers)
      if (!m.owner_before(manager) && !manager.owner_before(m)) return;
    Managers.push_back(std::move(manager));
  }
};

BlockManager::BlockManager(std::size_t residentBytes, int linesPerBlock, std::size_t fileCapBytes)
    : Budget(residentBytes), LinesPerBlock(linesPerBlock > 0 ? linesPerBlock : 1), FileCap(fileCapBytes) {}

BlockManager::~BlockManager() {
  for (auto &[key, blocks] : Handles)
    for (BlockState &state : blocks.blocks) UnmapPages(state.data, blocks.mappedBytes);
  if (FileDescriptor >= 0) close(FileDescriptor);
}

std::size_t BlockManager::GetResidentBytes() const {
  std::lock_guard<std::mutex> guard(Mutex);
  return Resident;
}

std::size_t BlockManager::GetPeakResidentBytes() const {
  std::lock_guard<std::mutex> guard(Mutex);
  return Peak;
}

std::size_t BlockManager::GetResidentBound() const {
  std::lock_guard<std::mutex> guard(Mutex);
  std::size_t largest = 0;
  std::size_t lockedOutside = 0;
  for (const auto &[key, home] : Handles) {
    if (!home.blocks.empty()) largest = std::max(largest, home.mappedBytes);
    for (const BlockState &state : home.blocks)
      if (state.data && state.locks > 0 && state.windowRefs == 0) lockedOutside += home.mappedBytes;
  }
  return std::max(Budget, Windows.size() * kWindowBlocks * largest + lockedOutside);
}

long long BlockManager::GetFileBytes() const {
  std::lock_guard<std::mutex> guard(Mutex);
  return FileEnd;
}

std::shared_ptr<CVmHandle> BlockManager::Allocate(long long blockSize, long long blockCount) {
  if (blockSize < 0 || blockCount < 0) throw lumora::CVmMemoryAllocationError("negative block size or count");
  auto handle = std::make_shared<CVmHandle>(blockSize, blockCount, shared_from_this());
  HandleBlocks blocks;
  blocks.handle = handle.get();
  blocks.blockBytes = static_cast<std::size_t>(blockSize);
  blocks.mappedBytes = PageRoundUp(blocks.blockBytes);
  blocks.blocks.resize(static_cast<std::size_t>(blockCount));

  std::lock_guard<std::mutex> guard(Mutex);
  // The states live in the map's node from here on, so their addresses are stable.
  HandleBlocks &home = Handles.emplace(handle.get(), std::move(blocks)).first->second;
  for (std::size_t b = 0; b < home.blocks.size(); ++b) {
    home.blocks[b].home = &home;
    home.blocks[b].index = static_cast<long long>(b);
  }
  return handle;
}

void BlockManager::Release(CVmHandle &handle) {
  std::lock_guard<std::mutex> guard(Mutex);
  auto it = Handles.find(&handle);
  if (it != Handles.end()) {
    HandleBlocks &home = it->second;
    for (auto &[thread, window] : Windows) {
      int kept = 0;
      for (int i = 0; i < window.count; ++i)
        if (window.recent[i]->home != &home) window.recent[kept++] = window.recent[i];
      window.count = kept;
    }
    for (BlockState &state : home.blocks) {
      if (state.inLru) LruRemove(state);
      if (state.data) {
        UnmapPages(state.data, home.mappedBytes);
        Resident -= home.mappedBytes;
      }
      if (state.fileOffset >= 0) FreeRegion(state.fileOffset, static_cast<long long>(home.blockBytes));
      handle.Set(state.index, CVmBlock::Unallocated, -1);
    }
    Handles.erase(it);
  }
  handle.Delete();
}

unsigned char *BlockManager::LockBlock(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly) {
  return Bring(handle, block, readOnly, true);
}

unsigned char *BlockManager::GetBlockOnMemory(const std::shared_ptr<CVmHandle> &handle, long long block,
                                              bool readOnly) {
  return Bring(handle, block, readOnly, false);
}

void BlockManager::UnlockBlock(const CVmHandle &handle, long long block) {
  std::lock_guard<std::mutex> guard(Mutex);
  auto it = Handles.find(&handle);
  if (it == Handles.end() || block < 0 || block >= static_cast<long long>(it->second.blocks.size())) return;
  BlockState &state = it->second.blocks[static_cast<std::size_t>(block)];
  if (state.locks == 0) return;
  if (--state.locks == 0 && Evictable(state)) LruPushNewest(state);
}

bool BlockManager::IsOnMemory(const CVmHandle &handle) const {
  std::lock_guard<std::mutex> guard(Mutex);
  auto it = Handles.find(&handle);
  if (it == Handles.end()) return false;
  return std::none_of(it->second.blocks.begin(), it->second.blocks.end(),
                      [](const BlockState &s) { return !s.data && s.fileOffset >= 0; });
}

unsigned char *BlockManager::Bring(const std::shared_ptr<CVmHandle> &handle, long long block, bool readOnly,
                                   bool lock) {
  if (!handle) throw lumora::CVmManagerException("no handle");
  std::lock_guard<std::mutex> guard(Mutex);
  BlockState &state = Find(*handle, block);
  // Into the window first: the block it pushes out may then make room.
  Touch(state);
  if (!state.data) Load(state);
  if (!readOnly) state.dirty = true;
  if (lock && state.locks++ == 0 && state.inLru) LruRemove(state);
  return state.data;
}

BlockManager::BlockState &BlockManager::Find(const CVmHandle &handle, long long block) {
  auto it = Handles.find(&handle);
  if (it == Handles.end()) throw lumora::CVmManagerException("the handle does not belong to this store");
  if (block < 0 || block >= static_cast<long long>(it->second.blocks.size()))
    throw lumora::CVmManagerException("block index out of range");
  return it->second.blocks[static_cast<std::size_t>(block)];
}

// Brings a block in: from its file region, or as zeros when it has none.
void BlockManager::Load(BlockState &state) {
  const HandleBlocks &home = *state.home;
  unsigned char *buffer = MakeRoom(home.mappedBytes);
  if (!buffer) {
    buffer = MapZeroedPages(home.mappedBytes);
  } else if (state.fileOffset < 0) {
    std::memset(buffer, 0, home.mappedBytes);
  }
  if (state.fileOffset >= 0) {
    try {
      ReadRegion(state.fileOffset, static_cast<long long>(home.blockBytes), buffer);
    } catch (...) {
      UnmapPages(buffer, home.mappedBytes);
      throw;
    }
  }
  state.data = buffer;
  state.dirty = false;
  Resident += home.mappedBytes;
  Peak = std::max(Peak, Resident);
  home.handle->Set(state.index, CVmBlock::Resident, state.fileOffset);
}

// Moves least recently used blocks out until `bytes` more fit in the budget, or
// nothing more can go. Returns one freed buffer of exactly `bytes` for reuse,
// or null.
unsigned char *BlockManager::MakeRoom(std::size_t bytes) {
  unsigned char *reusable = nullptr;
  try {
    while (LruOldest && Resident + bytes > Budget) {
      BlockState &victim = *LruOldest;
      const std::size_t victimBytes = victim.home->mappedBytes;
      unsigned char *freed = Evict(victim);
      if (!reusable && victimBytes == bytes)
        reusable = freed;
      else
        UnmapPages(freed, victimBytes);
    }
  } catch (...) {
    UnmapPages(reusable, bytes);
    throw;
  }
  return reusable;
}

// Takes a block out of memory, writing it first when it has changed. A block
// that never changed and has no file copy is all zeros: it goes back to
// untouched. Returns its buffer, which the caller unmaps or reuses.
unsigned char *BlockManager::Evict(BlockState &state) {
  const HandleBlocks &home = *state.home;
  if (state.dirty) {
    const auto bytes = static_cast<long long>(home.blockBytes);
    if (state.fileOffset < 0) state.fileOffset = AcquireRegion(bytes);
    WriteRegion(state.fileOffset, bytes, state.data);
  }
  LruRemove(state);
  unsigned char *buffer = state.data;
  state.data = nullptr;
  state.dirty = false;
  Resident -= home.mappedBytes;
  home.handle->Set(state.index, state.fileOffset >= 0 ? CVmBlock::OnFile : CVmBlock::Unallocated,
                   state.fileOffset);
  return buffer;
}

// Puts a block first in the calling thread's window of recent blocks.
void BlockManager::Touch(BlockState &state) {
  const std::thread::id self = std::this_thread::get_id();
  auto it = Windows.find(self);
  if (it == Windows.end()) {
    if (!exitHookGone) {
      static thread_local ExitHook exitHook;
      exitHook.Add(weak_from_this());
    }
    it = Windows.emplace(self, ThreadWindow{}).first;
  }
  ThreadWindow &window = it->second;

  int at = 0;
  while (at < window.count && window.recent[at] != &state) ++at;
  if (at == window.count) {
    if (state.windowRefs++ == 0 && state.inLru) LruRemove(state);
    if (window.count == kWindowBlocks) {
      at = kWindowBlocks - 1;
      LeaveWindow(*window.recent[at]);
    } else {
      ++window.count;
    }
  }
  for (; at > 0; --at) window.recent[at] = window.recent[at - 1];
  window.recent[0] = &state;
}

void BlockManager::EndWindow(std::thread::id thread) {
  std::lock_guard<std::mutex> guard(Mutex);
  auto it = Windows.find(thread);
  if (it == Windows.end()) return;
  for (int i = 0; i < it->second.count; ++i) LeaveWindow(*it->second.recent[i]);
  Windows.erase(it);
  TrimToBudget();
}

// Moves blocks out until the budget holds again. Called where nothing may
// throw: a block that cannot be written stays resident, unchanged, and the
// next load tries again.
void BlockManager::TrimToBudget() noexcept {
  try {
    while (LruOldest && Resident > Budget) {
      const std::size_t bytes = LruOldest->home->mappedBytes;
      UnmapPages(Evict(*LruOldest), bytes);
    }
  } catch (...) {
  }
}

void BlockManager::LeaveWindow(BlockState &state) {
  if (--state.windowRefs == 0 && Evictable(state)) LruPushNewest(state);
}

void BlockManager::LruPushNewest(BlockState &state) {
  state.older = LruNewest;
  state.newer = nullptr;
  if (LruNewest) LruNewest->newer = &state;
  LruNewest = &state;
  if (!LruOldest) LruOldest = &state;
  state.inLru = true;
}

void BlockManager::LruRemove(BlockState &state) {
  if (!state.inLru) return;
  (state.newer ? state.newer->older : LruNewest) = state.older;
  (state.older ? state.older->newer : LruOldest) = state.newer;
  state.newer = state.older = nullptr;
  state.inLru = false;
}

// File space for a block of `bytes`: the first free extent that holds it, else
// the end of the file, within the cap.
long long BlockManager::AcquireRegion(long long bytes) {
  File();
  for (auto free = FreeExtents.begin(); free != FreeExtents.end(); ++free) {
    if (free->second < bytes) continue;
    const long long offset = free->first;
    const long long left = free->second - bytes;
    FreeExtents.erase(free);
    if (left > 0) FreeExtents.emplace(offset + bytes, left);
    return offset;
  }
  if (static_cast<unsigned long long>(FileEnd) + static_cast<unsigned long long>(bytes) > FileCap)
    throw lumora::CVmMemoryAllocationError("the store's file is full: a block of " + std::to_string(bytes) +
                                           " bytes does not fit in its cap of " + std::to_string(FileCap) +
                                           " bytes (" + std::to_string(FileEnd) + " in use)");
  const long long offset = FileEnd;
  FileEnd += bytes;
  return offset;
}

// Gives a block's file space back: merged with free neighbours, and cut off
// the file when it ends the file.
void BlockManager::FreeRegion(long long offset, long long bytes) {
  auto next = FreeExtents.lower_bound(offset);
  if (next != FreeExtents.end() && offset + bytes == next->first) {
    bytes += next->second;
    next = FreeExtents.erase(next);
  }
  if (next != FreeExtents.begin()) {
    auto before = std::prev(next);
    if (before->first + before->second == offset) {
      offset = before->first;
      bytes += before->second;
      FreeExtents.erase(before);
    }
  }
  if (offset + bytes < FileEnd) {
    FreeExtents.emplace(offset, bytes);
    return;
  }
  FileEnd = offset;
  // Gives the disk space back; if that fails the tail stays and is overwritten later.
  [[maybe_unused]] const int truncated = ftruncate(FileDescriptor, FileEnd);
}

void BlockManager::WriteRegion(long long offset, long long bytes, const unsigned char *data) {
  long long done = 0;
  while (done < bytes) {
    const ssize_t n = pwrite(FileDescriptor, data + done, static_cast<std::size_t>(bytes - done), offset + done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) ThrowIoError("cannot write a block to the store's file");
    done += n;
  }
}

void BlockManager::ReadRegion(long long offset, long long bytes, unsigned char *data) {
  long long done = 0;
  while (done < bytes) {
    const ssize_t n = pread(FileDescriptor, data + done, static_cast<std::size_t>(bytes - done), offset + done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ThrowIoError("cannot read a block from the store's file");
    if (n == 0) throw lumora::CVmManagerException("the store's file ends inside a block");
    done += n;
  }
}

// The backing file, made on first use in $TMPDIR (or /tmp) and unlinked at
// once, so that it goes with the process whatever happens.
int BlockManager::File() {
  if (FileDescriptor >= 0) return FileDescriptor;
  const char *dir = std::getenv("TMPDIR");
  std::string path = std::string(dir && *dir ? dir : "/tmp") + "/qorimg-store-XXXXXX";
  const int fd = mkostemp(path.data(), O_CLOEXEC);
  if (fd < 0) ThrowIoError("cannot create the store's file");
  unlink(path.c_str());
  FileDescriptor = fd;
  return fd;
}

}  // namespace store_internal

std::shared_ptr<CVmManager> CreateBlockManager(std::size_t residentBytes, int linesPerBlock, std::size_t fileCapBytes) {
  return std::make_shared<store_internal::BlockManager>(residentBytes, linesPerBlock, fileCapBytes);
}
