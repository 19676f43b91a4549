// CVmImage on both managers: geometry, addresses, pattern round trips, locks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <latch>
#include <omp.h>
#include <thread>
#include <vector>

#include "sibling/BlockManagerInternal.h"
#include "sibling/VmImage.h"
#include "sibling/StoreKinds.h"

namespace {

std::uint8_t PatternByte(long long x, long long y, long long plane, int seed) {
  return static_cast<std::uint8_t>(x * 7 + y * 13 + plane * 101 + seed * 29 + 1);
}

void WritePattern(CVmImage &image, int seed = 0) {
  for (long long p = 0; p < image.GetPlanes(); ++p)
    for (long long y = 0; y < image.GetHeight(); ++y) {
      unsigned char *line = image.GetImageAdr(0, y, p, false, false, nullptr);
      for (long long i = 0; i < image.GetBytesPerLine(); ++i) line[i] = PatternByte(i, y, p, seed);
    }
}

// Number of bytes that differ from the pattern.
long long PatternErrors(CVmImage &image, int seed = 0) {
  long long errors = 0;
  for (long long p = 0; p < image.GetPlanes(); ++p)
    for (long long y = 0; y < image.GetHeight(); ++y) {
      const unsigned char *line = image.GetImageAdr(0, y, p, true, false, nullptr);
      for (long long i = 0; i < image.GetBytesPerLine(); ++i) errors += line[i] != PatternByte(i, y, p, seed);
    }
  return errors;
}

class StoreTest : public testing::TestWithParam<StoreKind> {
protected:
  std::shared_ptr<CVmManager> Manager = MakeManager(GetParam());
};

TEST_P(StoreTest, LineAndBlockArithmetic) {
  CVmImage image(Manager, 16, 37, 23, 3, nullptr);
  EXPECT_EQ(image.GetBytesPixel(), 2);
  EXPECT_EQ(image.GetBytesPerLine(), 74);
  EXPECT_EQ(image.GetTotalLines(), 69);
  const long long lpb = Manager->GetLinesPerBlock(23);
  EXPECT_EQ(image.GetLinesPerBlock(), lpb);
  EXPECT_EQ(image.GetBlockCount(), (69 + lpb - 1) / lpb);
  EXPECT_EQ(image.GetVmHandle()->GetBlockCount(), image.GetBlockCount());
  EXPECT_EQ(image.GetVmHandle()->GetBlockSize(), lpb * 74);
  long long lines = 0;
  for (long long b = 0; b < image.GetBlockCount(); ++b) lines += image.GetBlockLineCount(b);
  EXPECT_EQ(lines, 69);
  EXPECT_EQ(image.GetBlockShape(), std::make_tuple(std::min(lpb, 69LL), 37LL));

  // Within a line, sample x sits x * BytesPixel after sample 0.
  unsigned char *line = image.GetImageAdr(0, 5, 2, false, false, nullptr);
  EXPECT_EQ(image.GetImageAdr(36, 5, 2, false, false, nullptr), line + 72);
  EXPECT_EQ(image.GetImageAdr(37, 5, 2, true, false, nullptr), line + 74);
}

TEST_P(StoreTest, SampleSizesFollowTheBitCount) {
  const std::pair<long long, long long> table[] = {{1, 1},  {2, 1},  {4, 1},  {8, 1},  {12, 2},
                                                   {14, 2}, {16, 2}, {24, 3}, {32, 4}, {64, 8}};
  for (auto [bits, bytes] : table) {
    CVmImage image(Manager, bits, 5, 2, 1, nullptr);
    EXPECT_EQ(image.GetBytesPixel(), bytes) << bits << " bits";
    EXPECT_EQ(image.GetBytesPerLine(), 5 * bytes);
  }
  EXPECT_THROW(CVmImage(Manager, 10, 5, 2, 1, nullptr), lumora::CLumoraImageException);
  EXPECT_THROW(CVmImage(Manager, 8, -1, 2, 1, nullptr), lumora::CLumoraImageException);
}

TEST_P(StoreTest, NewImageReadsZerosAndKeepsWhatIsWritten) {
  CVmImage image(Manager, 24, 301, 57, 2, nullptr);
  for (long long p = 0; p < 2; ++p)
    for (long long y = 0; y < 57; ++y) {
      const unsigned char *line = image.GetImageAdr(0, y, p, true, false, nullptr);
      for (long long i = 0; i < image.GetBytesPerLine(); ++i) ASSERT_EQ(line[i], 0) << p << "," << y << "," << i;
    }
  WritePattern(image);
  EXPECT_EQ(PatternErrors(image), 0);
  // Twice: the second pass reads blocks that the first one moved out again.
  EXPECT_EQ(PatternErrors(image), 0);
}

TEST_P(StoreTest, CopyHasEveryLineAndIsIndependent) {
  CVmImage source(Manager, 32, 129, 41, 3, nullptr);
  WritePattern(source);
  CVmImage copy(source, nullptr);
  EXPECT_EQ(copy.GetWidth(), 129);
  EXPECT_EQ(copy.GetPlanes(), 3);
  EXPECT_EQ(PatternErrors(copy), 0);
  std::memset(copy.GetImageAdr(0, 40, 2, false, false, nullptr), 0xEE, 129 * 4);
  EXPECT_EQ(PatternErrors(source), 0);
  EXPECT_GT(PatternErrors(copy), 0);
}

TEST_P(StoreTest, OutOfRangeCoordinatesThrow) {
  CVmImage image(Manager, 8, 10, 6, 2, nullptr);
  for (auto [x, y, p] : {std::tuple{0, 0, -1}, {0, 0, 2}, {0, -1, 0}, {0, 6, 1}, {11, 0, 0}, {-1, 0, 0}})
    EXPECT_THROW(image.GetImageAdr(x, y, p, true, p == 1, nullptr), lumora::CLumoraImageException) << x << y << p;
  EXPECT_NO_THROW(image.GetImageAdr(10, 5, 1, true, false, nullptr));
}

TEST_P(StoreTest, LocksAreReleasedOneByOneOrAllTogether) {
  CVmImage image(Manager, 32, 64, 40, 2, nullptr);
  CVmImage::AddressHandle first = -1, second = -1;
  image.GetImageAdr(0, 3, 0, false, true, &first);
  image.GetImageAdr(0, 39, 1, true, true, &second);
  EXPECT_EQ(first, 3 / image.GetLinesPerBlock());
  EXPECT_EQ(second, (40 + 39) / image.GetLinesPerBlock());

  EXPECT_FALSE(image.Unlock(-1));
  EXPECT_FALSE(image.Unlock(image.GetBlockCount() + 5));
  EXPECT_TRUE(image.Unlock(first));
  EXPECT_FALSE(image.Unlock(first)) << "one lock taken, one released";

  // Without a handle the lock is released by UnlockAll, as is any left over.
  CVmImage::AddressHandle untouched = -1;
  image.GetImageAdr(0, 10, 0, false, true, nullptr);
  image.GetImageAdr(0, 10, 0, false, false, &untouched);
  EXPECT_EQ(untouched, -1) << "no lock, no handle";
  image.UnlockAll();
  EXPECT_FALSE(image.Unlock(second));
  image.UnlockAll();  // nothing outstanding: harmless
}

TEST_P(StoreTest, UnlockAllInAParallelLoopReleasesOnlyTheCallersLocks) {
  CVmImage image(Manager, 32, 64, 40, 1, nullptr);
  CVmImage::AddressHandle held = -1;
  bool kept = false;
#pragma omp parallel num_threads(2)
  {
    if (omp_get_thread_num() == 0) image.GetImageAdr(0, 0, 0, true, true, &held);
#pragma omp barrier
    if (omp_get_thread_num() == 1) image.UnlockAll();
#pragma omp barrier
    if (omp_get_thread_num() == 0) kept = image.Unlock(held);
  }
  // A team of one thread is not a parallel region: nothing can be kept then.
  if (omp_get_max_threads() > 1) {
    EXPECT_TRUE(kept) << "another thread's UnlockAll dropped the lock";
  }
  // Outside a loop every thread's locks go.
#pragma omp parallel num_threads(2)
  {
    if (omp_get_thread_num() == 1) image.GetImageAdr(0, 0, 0, true, true, &held);
  }
  image.UnlockAll();
  EXPECT_FALSE(image.Unlock(held));
}

TEST_P(StoreTest, ImagesKeepTheirManagerAlive) {
  CVmImage image(Manager, 8, 16, 16, 1, nullptr);
  *image.GetImageAdr(3, 1, 0, false, true, nullptr) = 42;
  std::weak_ptr<CVmManager> weak = Manager;
  Manager.reset();
  ASSERT_FALSE(weak.expired());
  EXPECT_EQ(*image.GetImageAdr(3, 1, 0, true, false, nullptr), 42);
  EXPECT_NE(image.GetBlockOnMemory(0, true), nullptr);
  image.UnlockAll();
}

INSTANTIATE_FOR_ALL_STORES(StoreTest);

TEST(WholePlaneStore, PlanesAreContiguousAlignedAndStable) {
  auto manager = CreateWholePlaneManager();
  EXPECT_EQ(manager->GetAllocationPolicy(), CVmManager::WholePlane);
  CVmImage image(manager, 32, 1001, 333, 3, nullptr);
  EXPECT_EQ(image.GetLinesPerBlock(), 333);
  EXPECT_EQ(image.GetBlockCount(), 3);
  for (long long p = 0; p < 3; ++p) {
    unsigned char *base = image.GetImageAdr(0, 0, p, false, false, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(base) % 64, 0u);
    EXPECT_EQ(image.GetBlockOnMemory(p, true), base);
    EXPECT_EQ(image.GetVmHandle()->GetType(p), CVmBlock::Resident);
    for (long long y = 0; y < 333; y += 37)
      EXPECT_EQ(image.GetImageAdr(5, y, p, true, false, nullptr), base + y * 1001 * 4 + 20);
  }
  EXPECT_TRUE(image.IsOnMemory());
  EXPECT_EQ(manager->GetResidentBytes(), 3u * 333 * 1001 * 4);
}

TEST(WholePlaneStore, LimitIsEnforcedAndFreedMemoryCountsAgain) {
  const std::size_t plane = 256 * 256 * 4;
  auto manager = CreateWholePlaneManager(2 * plane);
  auto first = std::make_unique<CVmImage>(manager, 32, 256, 256, 2, nullptr);
  EXPECT_THROW(CVmImage(manager, 8, 1, 1, 1, nullptr), lumora::CVmMemoryAllocationError);
  first.reset();
  EXPECT_EQ(manager->GetResidentBytes(), 0u);
  EXPECT_NO_THROW(CVmImage(manager, 32, 256, 256, 2, nullptr));
  EXPECT_THROW(CVmImage(manager, 32, 256, 256, 3, nullptr), lumora::CVmMemoryAllocationError);
  EXPECT_EQ(manager->GetPeakResidentBytes(), 2 * plane);
}

class BlockStore : public testing::Test {
protected:
  // Blocks of 4 lines of 1024 bytes: 4 KiB, one page each.
  std::shared_ptr<CVmManager> Manager = CreateBlockManager(8 * 4096, 4);
  store_internal::BlockManager &Internal() { return static_cast<store_internal::BlockManager &>(*Manager); }
};

TEST_F(BlockStore, UntouchedBlocksCostNothingAndCleanBlocksAreNotWrittenTwice) {
  CVmImage image(Manager, 8, 1024, 400, 1, nullptr);  // 100 blocks
  EXPECT_EQ(Manager->GetResidentBytes(), 0u);
  EXPECT_EQ(image.GetVmHandle()->GetType(0), CVmBlock::Unallocated);
  EXPECT_TRUE(image.IsOnMemory());

  // Reading an untouched image writes nothing: its blocks are zeros.
  for (long long y = 0; y < 400; ++y) image.GetImageAdr(0, y, 0, true, false, nullptr);
  EXPECT_EQ(Internal().GetFileBytes(), 0);
  EXPECT_EQ(image.GetVmHandle()->GetType(0), CVmBlock::Unallocated);

  // One thread's window is 8 blocks, the budget too: all others went out.
  WritePattern(image);
  EXPECT_EQ(Internal().GetFileBytes(), 92 * 4096);
  EXPECT_EQ(Manager->GetResidentBytes(), 8u * 4096);
  EXPECT_EQ(image.GetVmHandle()->GetType(0), CVmBlock::OnFile);
  EXPECT_EQ(image.GetVmHandle()->GetType(99), CVmBlock::Resident);
  EXPECT_FALSE(image.IsOnMemory());

  // The last 8 go out once more; after that, clean blocks are only dropped.
  EXPECT_EQ(PatternErrors(image), 0);
  EXPECT_EQ(PatternErrors(image), 0);
  EXPECT_EQ(Internal().GetFileBytes(), 100 * 4096);
  EXPECT_LE(Manager->GetPeakResidentBytes(), Manager->GetResidentBudget());
}

TEST_F(BlockStore, LockedBlocksStayAndGoOnlyAfterUnlock) {
  CVmImage image(Manager, 8, 1024, 400, 1, nullptr);
  CVmImage::AddressHandle handle = -1;
  unsigned char *locked = image.GetImageAdr(0, 1, 0, false, true, &handle);
  std::memset(locked, 0x5A, 1024);
  for (long long y = 4; y < 400; ++y) image.GetImageAdr(0, y, 0, false, false, nullptr);
  EXPECT_EQ(image.GetVmHandle()->GetType(0), CVmBlock::Resident);
  EXPECT_EQ(image.GetImageAdr(0, 1, 0, true, false, nullptr), locked);
  EXPECT_EQ(locked[1023], 0x5A);

  EXPECT_TRUE(image.Unlock(handle));
  for (long long y = 4; y < 400; ++y) image.GetImageAdr(0, y, 0, true, false, nullptr);
  EXPECT_EQ(image.GetVmHandle()->GetType(0), CVmBlock::OnFile);
  EXPECT_EQ(image.GetImageAdr(0, 1, 0, true, false, nullptr)[1023], 0x5A);
}

// A thread's last 8 blocks stay where they are while other threads churn.
TEST_F(BlockStore, ThreadWindowKeepsUnlockedAddressesValid) {
  CVmImage image(Manager, 8, 1024, 400, 1, nullptr);
  std::vector<unsigned char *> held;
  for (long long b = 0; b < 8; ++b) {
    held.push_back(image.GetImageAdr(0, b * 4, 0, false, false, nullptr));
    std::memset(held.back(), static_cast<int>(b + 1), 1024);
  }
  std::thread other([&] {
    for (int pass = 0; pass < 3; ++pass)
      for (long long y = 32; y < 400; ++y) image.GetImageAdr(0, y, 0, false, false, nullptr)[0] = 1;
  });
  other.join();
  for (long long b = 0; b < 8; ++b) {
    EXPECT_EQ(held[b][1023], b + 1);
    EXPECT_EQ(image.GetImageAdr(0, b * 4, 0, true, false, nullptr), held[b]);
  }
  // Blocks in the other thread's window and ours: over the budget, and the peak shows it.
  EXPECT_EQ(Manager->GetPeakResidentBytes(), 16u * 4096);
}

// Each live thread's window pins its blocks, and the reported bound counts
// them; a thread's window goes when the thread ends.
TEST_F(BlockStore, ThreadWindowsEndWithTheirThread) {
  constexpr int kThreads = 64;
  auto manager = CreateBlockManager(0, 1);
  CVmImage image(manager, 8, 4096, kThreads, 1, nullptr);  // one page a block
  std::latch touched(kThreads + 1), checked(1);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      image.GetImageAdr(0, t, 0, false, false, nullptr)[0] = 1;
      touched.count_down();
      checked.wait();
    });
  touched.arrive_and_wait();
  EXPECT_EQ(manager->GetResidentBytes(), kThreads * 4096u);
  EXPECT_EQ(manager->GetResidentBound(), kThreads * 8 * 4096u);
  checked.count_down();
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(manager->GetResidentBytes(), 0u);
  EXPECT_EQ(manager->GetResidentBound(), 0u);
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(image.GetImageAdr(0, t, 0, true, false, nullptr)[0], 1);
}

// Ten short images on a manager of long blocks: each block has the image's lines only.
TEST_F(BlockStore, BlocksNeverHoldMoreLinesThanTheImage) {
  auto manager = CreateBlockManager(std::size_t{1} << 30, 20000);
  std::vector<std::unique_ptr<CVmImage>> images;
  for (int i = 0; i < 10; ++i) {
    images.push_back(std::make_unique<CVmImage>(manager, 32, 1000, 10, 2, nullptr));
    WritePattern(*images.back(), i);
  }
  EXPECT_EQ(images[0]->GetLinesPerBlock(), 10);
  EXPECT_EQ(manager->GetResidentBytes(), 10u * 2 * 40960);  // 40,000 bytes a block, in whole pages
  for (int i = 0; i < 10; ++i) EXPECT_EQ(PatternErrors(*images[i], i), 0);
}

// Space freed by blocks of one size is taken by blocks of another; the file
// shrinks when its end is freed.
TEST_F(BlockStore, FreedFileSpaceIsReusedByAnyBlockSize) {
  auto first = std::make_unique<CVmImage>(Manager, 8, 2048, 200, 1, nullptr);  // 50 blocks of 8 KiB
  auto second = std::make_unique<CVmImage>(Manager, 8, 1024, 200, 1, nullptr);  // 50 of 4 KiB
  WritePattern(*first, 1);
  WritePattern(*second, 2);
  const long long fileBytes = Internal().GetFileBytes();
  ASSERT_EQ(fileBytes, 50 * 8192 + 42 * 4096);
  first.reset();

  CVmImage third(Manager, 8, 1024, 200, 1, nullptr);
  WritePattern(third, 3);
  EXPECT_EQ(Internal().GetFileBytes(), fileBytes) << "the file did not grow";
  for (long long b = 0; b < 42; ++b) EXPECT_LT(third.GetVmHandle()->GetSlotIndex(b), 50 * 8192);
  EXPECT_EQ(PatternErrors(*second, 2), 0);
  EXPECT_EQ(PatternErrors(third, 3), 0);
  second.reset();
  EXPECT_LT(Internal().GetFileBytes(), 50 * 8192) << "the freed end was cut off";
}

TEST(BlockStoreFileCap, AStoreThatWouldPassItsCapFailsClearly) {
  auto manager = CreateBlockManager(8 * 4096, 4, 16 * 4096);
  CVmImage image(manager, 8, 1024, 400, 1, nullptr);  // 100 blocks of 4 KiB
  try {
    WritePattern(image);
    ADD_FAILURE() << "the store grew past its cap";
  } catch (const lumora::CVmMemoryAllocationError &error) {
    EXPECT_NE(std::string(error.what()).find("cap of 65536 bytes"), std::string::npos) << error.what();
  }
  EXPECT_EQ(static_cast<store_internal::BlockManager &>(*manager).GetFileBytes(), 16 * 4096);
}

}  // namespace
