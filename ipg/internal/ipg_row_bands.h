// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>

// Rows of an image cut into contiguous bands, one per worker thread, for kernels
// whose result does not depend on the order pixels are visited. Small images
// stay in one band: starting threads would cost more than the work.
struct IPG_ROW_BANDS {
  unsigned Count = 1; // number of bands (>= 1)
  unsigned Rows = 0;

  unsigned Begin(unsigned band) const { return static_cast<unsigned>(static_cast<unsigned long long>(Rows) * band / Count); }
  unsigned End(unsigned band) const { return Begin(band + 1); }
};

// Bands for rows x cols pixels at the library's thread count.
IPG_ROW_BANDS Ipg_SplitRows(unsigned rows, std::size_t cols);

// Runs body(band, firstRow, endRow) for every band, in parallel when there are
// several. Bands beyond the thread count are dealt in turn (band b on thread
// b % threads), band 0 and every threads-th one on the calling thread. The
// body must not throw.
void Ipg_RunBands(const IPG_ROW_BANDS& bands, const std::function<void(unsigned, unsigned, unsigned)>& body);

// Whether a band's body runs on the thread that called Ipg_RunBands (the one
// that may ask the host whether to stop).
bool Ipg_OnCallingThread();

// The index of the thread running a band's body, below the thread count (0
// outside a body): bands on the same thread run one after the other.
unsigned Ipg_BandThread();

// Starts fetching a row of pixels that a walk reads next (one request per
// 64-byte line): kernels that read several rows at once otherwise stall on
// each row as it enters their window.
inline void Ipg_PrefetchRow(const int* row, int cols)
{
  for (int c = 0; c < cols; c += 16)
    __builtin_prefetch(row + c);
}
