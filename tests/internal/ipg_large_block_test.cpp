// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_memory.h"
#include "ipg/internal/ipg_large_block.h"

#include <gtest/gtest.h>

#include <cstring>

// The last large block freed serves the next one of about its size, whole;
// a larger one gets fresh memory.
TEST(LargeBlock, TheLastBlockFreedServesTheNextOfAboutItsSize)
{
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  void* first = nullptr;
  {
    IPG_LARGE_BLOCK block(10 * kMiB);
    ASSERT_FALSE(block.Empty());
    std::memset(block.Data(), 7, 10 * kMiB);
    first = block.Data();
  }
  {
    IPG_LARGE_BLOCK smaller(6 * kMiB);
    EXPECT_EQ(smaller.Data(), first);
    bool aligned = false;
    std::size_t size = 0;
    void* held = smaller.Release(aligned, size);
    EXPECT_TRUE(aligned);
    EXPECT_EQ(size, 10 * kMiB); // what the block holds, all of it usable
    static_cast<unsigned char*>(held)[size - 1] = 1;
    IPG_LARGE_BLOCK::Free(held, aligned, size);
  }
  IPG_LARGE_BLOCK larger(12 * kMiB);
  ASSERT_FALSE(larger.Empty());
  std::memset(larger.Data(), 1, 12 * kMiB);
}

// Once the kept block is released, the next block is fresh: only the size asked for.
TEST(LargeBlock, ReleasedKeptBlockServesNoMore)
{
  constexpr std::size_t kMiB = std::size_t{1} << 20;
  { IPG_LARGE_BLOCK block(10 * kMiB); }
  Ipg_ReleaseCachedMemory();
  IPG_LARGE_BLOCK next(6 * kMiB);
  ASSERT_FALSE(next.Empty());
  bool aligned = false;
  std::size_t size = 0;
  void* held = next.Release(aligned, size);
  EXPECT_EQ(size, 6 * kMiB);
  IPG_LARGE_BLOCK::Free(held, aligned, size);
  Ipg_ReleaseCachedMemory();
}
