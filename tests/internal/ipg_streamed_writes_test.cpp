// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_streamed_writes.h"

#include <gtest/gtest.h>

#include <vector>

// Rows of any length, starting anywhere in a vector, come out whole through the
// stage, and nothing around them is touched.
TEST(StreamedWrites, RowsOfAnyLengthAndAlignmentArriveWhole)
{
  constexpr int kGuard = -7;
  for (unsigned offset = 0; offset < 8; ++offset)
    for (unsigned count : {0u, 1u, 3u, 4u, 5u, 255u, 256u, 257u, 700u}) {
      std::vector<int> buffer(count + 16, kGuard);
      int* row = buffer.data() + offset;
      Ipg_WriteRowStreamed(row, count, [&](unsigned first, unsigned n, int* stage) {
        for (unsigned i = 0; i < n; ++i)
          stage[i] = static_cast<int>(3 * (first + i) + 1);
      });
      Ipg_StreamFence();
      for (unsigned k = 0; k < buffer.size(); ++k) {
        const bool inRow = k >= offset && k < offset + count;
        ASSERT_EQ(buffer[k], inRow ? static_cast<int>(3 * (k - offset) + 1) : kGuard)
            << "offset " << offset << ", count " << count << ", at " << k;
      }
    }
}

TEST(StreamedWrites, OnlyWalksBeyondTheSetSizeStream)
{
  const std::size_t before = Ipg_SetStreamedWritesFrom(1000);
  EXPECT_FALSE(Ipg_StreamsWrites(1000));
  EXPECT_TRUE(Ipg_StreamsWrites(1001));
  EXPECT_EQ(Ipg_SetStreamedWritesFrom(before), 1000u);
}
