#include <algorithm>

#include <gtest/gtest.h>

#include "platform/GlobalMemory.h"

namespace {

TEST(GlobalMemory, ZeroInitSizesAndNestedLocks) {
  constexpr std::size_t kBytes = 1 << 20;
  HGLOBAL h = GlobalAlloc(GHND, kBytes);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(GlobalSize(h), kBytes);
  auto *p = static_cast<unsigned char *>(GlobalLock(h));
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(std::all_of(p, p + kBytes, [](unsigned char b) { return b == 0; }));
  EXPECT_EQ(GlobalLock(h), p);
  EXPECT_TRUE(GlobalUnlock(h));   // still locked once
  EXPECT_FALSE(GlobalUnlock(h));  // unlocked
  EXPECT_FALSE(GlobalUnlock(h));  // was not locked
  EXPECT_EQ(GlobalFree(h), nullptr);

  HLOCAL fixed = LocalAlloc(LPTR, 16);  // a fixed block's handle is its address
  EXPECT_EQ(LocalLock(fixed), static_cast<void *>(fixed));
  EXPECT_EQ(LocalFree(fixed), nullptr);

  HGLOBAL empty = GlobalAlloc(GMEM_MOVEABLE, 0), other = GlobalAlloc(GMEM_MOVEABLE, 0);
  EXPECT_EQ(GlobalSize(empty), 0u);
  EXPECT_NE(GlobalLock(empty), nullptr);
  EXPECT_NE(GlobalLock(empty), GlobalLock(other));
  GlobalFree(empty);
  GlobalFree(other);
}

TEST(GlobalMemory, NullFreedForeignAndImpossibleHandles) {
  EXPECT_EQ(GlobalLock(nullptr), nullptr);
  EXPECT_EQ(GlobalFree(nullptr), nullptr);
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, 8);
  ASSERT_EQ(GlobalFree(h), nullptr);
  EXPECT_EQ(GlobalLock(h), nullptr);
  EXPECT_EQ(GlobalSize(h), 0u);
  EXPECT_EQ(GlobalFree(h), h);  // a second free fails
  int local = 0;
  EXPECT_EQ(GlobalLock(reinterpret_cast<HGLOBAL>(&local)), nullptr);
#ifndef __SANITIZE_ADDRESS__  // the sanitiser stops on oversized requests instead of failing them
  EXPECT_EQ(GlobalAlloc(GMEM_MOVEABLE, static_cast<std::size_t>(-1) / 2), nullptr);
#endif
}

}  // namespace
