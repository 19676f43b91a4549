// The store's small records: the per-image handle, the memory record and the
// destructors of the abstract manager and memory interface.
#include "sibling/VmManager.h"

CVmHandle::CVmHandle(long long blockSize, long long blockCount, const std::shared_ptr<CVmManager> &manager)
    : Manager(manager),
      BlockSize(blockSize),
      BlockCount(blockCount),
      Blocks(static_cast<std::size_t>(blockCount > 0 ? blockCount : 0)) {}

void CVmHandle::Set(long long index, CVmBlock::Type type, long long slot) {
  CVmBlock &block = Blocks.at(static_cast<std::size_t>(index));
  block.type = type;
  block.slot = slot;
}

CVmManager::~CVmManager() = default;

CVmMemoryInterface::~CVmMemoryInterface() = default;

void CVmMemory::Reset() {
  Memory.reset();
  Block = -1;
  Handle.reset();
  Slot = -1;
  Owner = -1;
  Locks = 0;
  Touched = 0;
}
