// SPDX-License-Identifier: Apache-2.0
// The Fourier working buffer: its per-thread reuse, and the tiled, banded walks
// between it and row-major images.
#include "ipg/internal/ipg_fourier_buffer.h"
#include "ipg/internal/ipg_fourier_kernels.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_threads.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

TEST(FourierBuffer, ReusesTheThreadsBlockButNeverLendsItTwice)
{
  MTH_COMPLEX* first = nullptr;
  {
    IPG_FOURIER_BUFFER buffer(40, 30);
    first = buffer[0];
    IPG_FOURIER_BUFFER nested(40, 30); // borrowed meanwhile: a block of its own
    EXPECT_NE(nested[0], first);
    EXPECT_EQ(buffer[1], first + 30);
  }
  IPG_FOURIER_BUFFER again(30, 40); // same count of values
  EXPECT_EQ(again[0], first);
}

// Coefficient (c, r) holds c * 1000 + r; odd sizes that are not whole tiles,
// with rows enough for several bands.
void ExpectCentredStore(int threads)
{
  constexpr int cols = 601, rows = 231;
  Ipg_SetNumThreads(threads);
  IPG_FOURIER_BUFFER buffer(cols, rows);
  Ipg_FourierLoad(buffer, [](int c, int r) { return MTH_COMPLEX{c * 1000.0 + r, -1.0}; });
  DCM_STRUCT out(cols + 3, rows - 5); // wider: the extra columns stay; shorter: rows beyond are not written
  out.Data->Init(-7.0);
  out.Data->SetPrecision(10);
  Ipg_FourierStore(buffer, *out.Data, cols / 2, rows / 2, [](const MTH_COMPLEX& z) { return z.re / 4; });
  int high = -7;
  for (int y = 0; y < rows - 5; ++y)
    for (int x = 0; x < cols + 3; ++x) {
      const int c = (x - cols / 2 + cols) % cols, r = (y - rows / 2 + rows) % rows;
      const int expected = x < cols ? static_cast<int>((c * 1000.0 + r) / 4 * 10) : -7;
      ASSERT_EQ(out.Data->GetValue(x, y), expected) << threads << " threads, x=" << x << " y=" << y;
      high = std::max(high, expected);
    }
  EXPECT_EQ(out.Data->GetMin(), -7);
  EXPECT_EQ(out.Data->GetMax(), high);
  Ipg_SetNumThreads(0);
}

TEST(FourierBuffer, CentredStoreMovesEachCoefficientOnAnyThreadCount)
{
  ExpectCentredStore(1);
  ExpectCentredStore(3);
}

} // namespace
