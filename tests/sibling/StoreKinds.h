// The store kinds that every store and image test runs on.
#pragma once
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

#include "sibling/VmManager.h"

enum class StoreKind { WholePlane, Block, BlockNoBudget };

inline std::shared_ptr<CVmManager> MakeManager(StoreKind kind) {
  switch (kind) {
    case StoreKind::WholePlane: return CreateWholePlaneManager();
    // Small blocks and a budget of a few of them, so that tests move blocks out.
    case StoreKind::Block: return CreateBlockManager(64 * 1024, 4);
    // Nothing may stay resident beyond the threads' windows and locks.
    case StoreKind::BlockNoBudget: return CreateBlockManager(0, 3);
  }
  return nullptr;
}

inline std::string StoreKindName(const testing::TestParamInfo<StoreKind> &info) {
  return std::array{"WholePlane", "Block", "BlockNoBudget"}[static_cast<int>(info.param)];
}

#define INSTANTIATE_FOR_ALL_STORES(Fixture)                                                                \
  INSTANTIATE_TEST_SUITE_P(Stores, Fixture,                                                               \
                           testing::Values(StoreKind::WholePlane, StoreKind::Block, StoreKind::BlockNoBudget), \
                           StoreKindName)
