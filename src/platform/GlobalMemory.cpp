// Global and local memory handles. Every live handle is recorded, so a null,
// freed or foreign handle is recognised and refused instead of dereferenced.
// A fixed block's handle is its address, as in the framework, so callers may use
// it directly; a movable block's handle is a separate token that must be locked.
#include "platform/GlobalMemory.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <unordered_map>

namespace {

struct Block {
  std::size_t size = 0;
  int lockCount = 0;
  std::unique_ptr<unsigned char[]> data;
};

struct HandleTable {
  std::mutex mutex;
  std::unordered_map<std::uintptr_t, std::unique_ptr<Block>> blocks;
};

// Never destroyed, so that handles freed during static destruction stay safe.
HandleTable &TheHandles() {
  static HandleTable *table = new HandleTable;
  return *table;
}

std::uintptr_t Key(HGLOBAL handle) { return reinterpret_cast<std::uintptr_t>(handle); }

// The caller holds the table's lock.
Block *Find(HandleTable &table, HGLOBAL handle) {
  const auto it = table.blocks.find(Key(handle));
  return it == table.blocks.end() ? nullptr : it->second.get();
}

}  // namespace

// Zero bytes give a valid handle of size 0 whose address is still unique.
HGLOBAL GlobalAlloc(UINT flags, std::size_t bytes) {
  auto block = std::unique_ptr<Block>(new (std::nothrow) Block);
  if (!block) return nullptr;
  block->data.reset(new (std::nothrow) unsigned char[bytes > 0 ? bytes : 1]);
  if (!block->data) return nullptr;
  if (flags & GMEM_ZEROINIT) std::memset(block->data.get(), 0, bytes);
  block->size = bytes;

  const bool movable = flags & GMEM_MOVEABLE;
  const auto handle = movable ? reinterpret_cast<HGLOBAL>(block.get())
                              : reinterpret_cast<HGLOBAL>(block->data.get());
  HandleTable &table = TheHandles();
  std::lock_guard lock(table.mutex);
  try {
    table.blocks.emplace(Key(handle), std::move(block));
  } catch (const std::bad_alloc &) {
    return nullptr;
  }
  return handle;
}

void *GlobalLock(HGLOBAL handle) {
  HandleTable &table = TheHandles();
  std::lock_guard lock(table.mutex);
  Block *block = Find(table, handle);
  if (!block) return nullptr;
  ++block->lockCount;
  return block->data.get();
}

// TRUE while the block is still locked, FALSE once it is unlocked (or was not locked).
BOOL GlobalUnlock(HGLOBAL handle) {
  HandleTable &table = TheHandles();
  std::lock_guard lock(table.mutex);
  Block *block = Find(table, handle);
  if (!block || block->lockCount == 0) return FALSE;
  return --block->lockCount > 0 ? TRUE : FALSE;
}

HGLOBAL GlobalFree(HGLOBAL handle) {
  if (!handle) return nullptr;
  std::unique_ptr<Block> block;
  {
    HandleTable &table = TheHandles();
    std::lock_guard lock(table.mutex);
    const auto it = table.blocks.find(Key(handle));
    if (it == table.blocks.end()) return handle;
    block = std::move(it->second);
    table.blocks.erase(it);
  }
  return nullptr;  // the block is released outside the lock
}

std::size_t GlobalSize(HGLOBAL handle) {
  HandleTable &table = TheHandles();
  std::lock_guard lock(table.mutex);
  const Block *block = Find(table, handle);
  return block ? block->size : 0;
}

HLOCAL LocalAlloc(UINT flags, std::size_t bytes) { return GlobalAlloc(flags, bytes); }
void *LocalLock(HLOCAL handle) { return GlobalLock(handle); }
BOOL LocalUnlock(HLOCAL handle) { return GlobalUnlock(handle); }
HLOCAL LocalFree(HLOCAL handle) { return GlobalFree(handle); }
