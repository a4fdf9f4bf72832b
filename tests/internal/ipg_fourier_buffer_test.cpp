// SPDX-License-Identifier: Apache-2.0
// The Fourier working buffer: its per-thread reuse, and transforms that load
// it from row-major images and store into them as they go.
#include "ipg/internal/ipg_fourier_buffer.h"
#include "ipg/internal/ipg_fourier_kernels.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_threads.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

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

// A transform whose values are loaded and whose coefficients are stored as it
// goes stores what a transform of the loaded buffer holds, each coefficient
// at its centred place: odd sizes that are not whole tiles, with rows enough
// for several bands, and a size that FFTW splits into passes of lines.
void ExpectCentredStore(int cols, int rows, int threads)
{
  Ipg_SetNumThreads(threads);
  const auto value = [](int c, int r) { return MTH_COMPLEX{std::sin(c * 0.37 + r) * 1000.0, r % 3 - 1.0}; };
  IPG_FOURIER_BUFFER whole(cols, rows);
  for (int c = 0; c < cols; ++c)
    for (int r = 0; r < rows; ++r)
      whole[c][r] = value(c, r);
  ASSERT_TRUE(whole.Transform(1));
  DCM_STRUCT out(cols + 3, rows - 5); // wider: the extra columns stay; shorter: rows beyond are not written
  out.Data->Init(-7.0);
  IPG_FOURIER_BUFFER streamed(cols, rows);
  const auto raw = [](const MTH_COMPLEX& z) { return DCM_DATA::ToRaw(z.re / 4, 10); };
  ASSERT_TRUE(Ipg_FourierTransformInto(streamed, 1, Ipg_FourierColumnsLoad(streamed, value), *out.Data, cols / 2,
                                       rows / 2, raw));
  int low = -7, high = -7;
  for (int y = 0; y < rows - 5; ++y)
    for (int x = 0; x < cols + 3; ++x) {
      const int c = (x - cols / 2 + cols) % cols, r = (y - rows / 2 + rows) % rows;
      const int expected = x < cols ? raw(whole[c][r]) : -7;
      ASSERT_EQ(out.Data->GetValue(x, y), expected) << threads << " threads, x=" << x << " y=" << y;
      low = std::min(low, expected);
      high = std::max(high, expected);
    }
  EXPECT_EQ(out.Data->GetMin(), low);
  EXPECT_EQ(out.Data->GetMax(), high);
  Ipg_SetNumThreads(0);
}

TEST(FourierBuffer, StreamedTransformStoresEachCoefficientAtItsCentredPlaceOnAnyThreadCount)
{
  for (const int threads : {1, 3}) {
    ExpectCentredStore(601, 231, threads);
    ExpectCentredStore(64, 48, threads);
  }
}

} // namespace
