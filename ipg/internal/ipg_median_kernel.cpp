#include "ipg/internal/ipg_median_kernel.h"

#include <algorithm>
#include <climits>
#include <cstddef>

namespace {

// Windows up to this many values go through a network, larger ones through selection.
constexpr int kLargestNetworkWindow = 64;
// Pixels of a row handled together by the network.
constexpr int kBlock = 128;

// Batcher's odd-even merge sort (K. E. Batcher, "Sorting networks and their
// applications", AFIPS 1968) on the next power of two above n, padded with
// INT_MAX, keeping only the exchanges the median of n values depends on.
std::vector<std::array<int, 2>> MedianExchanges(int n, int& lanes)
{
  int size = 1;
  while (size < n)
    size <<= 1;
  std::vector<std::array<int, 2>> all;
  for (int p = 1; p < size; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < size; j += 2 * k)
        for (int i = 0; i < std::min(k, size - j - k); ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
            all.push_back({i + j, i + j + k});
  std::vector<bool> needed(static_cast<std::size_t>(size), false);
  needed[static_cast<std::size_t>(n / 2)] = true;
  std::vector<std::array<int, 2>> kept;
  for (auto it = all.rbegin(); it != all.rend(); ++it)
    if (needed[(*it)[0]] || needed[(*it)[1]]) {
      kept.push_back(*it);
      needed[(*it)[0]] = needed[(*it)[1]] = true;
    }
  std::reverse(kept.begin(), kept.end());
  lanes = size;
  return kept;
}

} // namespace

// For 3x3 windows Paeth's 19 exchanges (A. W. Paeth, "Median finding on a 3x3
// grid", Graphics Gems, 1990, as arranged by N. Devillard, "Fast median
// search", 1998); Batcher's network for the other small windows.
Ipg_MedianKernel::Ipg_MedianKernel(int sizeX, int sizeY)
    : SizeX(sizeX), SizeY(sizeY), ByNetwork(sizeX * sizeY <= kLargestNetworkWindow),
      Window(static_cast<std::size_t>(sizeX) * sizeY)
{
  const int n = sizeX * sizeY;
  Middle = n / 2;
  if (!ByNetwork)
    return;
  if (n == 9) {
    Lanes = 9;
    Exchanges = {{1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2}, {4, 5}, {7, 8}, {0, 3},
                 {5, 8}, {4, 7}, {3, 6}, {1, 4}, {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2}};
  } else {
    Exchanges = MedianExchanges(n, Lanes);
  }
  LaneValues.resize(static_cast<std::size_t>(Lanes) * kBlock);
}

void Ipg_MedianKernel::Rows(const Ipg_KernelImages& images, Ipg_RowSpan span)
{
  const int hy = SizeY / 2;
  for (int row = std::max(span.Begin, hy); row < std::min(span.End, images.Rows - hy); ++row) {
    if (ByNetwork)
      RowByNetwork(images, row);
    else
      RowBySelection(images, row);
  }
}

const std::vector<int>& Ipg_MedianKernel::SortedWindow(const Ipg_KernelImages& images, int col, int row)
{
  Gather(images, col, row);
  std::sort(Window.begin(), Window.end());
  return Window;
}

void Ipg_MedianKernel::Gather(const Ipg_KernelImages& images, int col, int row)
{
  const int hx = SizeX / 2, hy = SizeY / 2;
  std::size_t k = 0;
  for (int dy = -hy; dy <= hy; ++dy) {
    const int* line = images.In + images.At(col - hx, row + dy);
    std::copy(line, line + SizeX, Window.begin() + static_cast<std::ptrdiff_t>(k));
    k += static_cast<std::size_t>(SizeX);
  }
}

void Ipg_MedianKernel::RowBySelection(const Ipg_KernelImages& images, int row)
{
  const int hx = SizeX / 2;
  const auto middle = Window.begin() + Middle;
  for (int col = hx; col < images.Cols - hx; ++col) {
    Gather(images, col, row);
    // Selecting the middle element gives the sorted window's middle element.
    std::nth_element(Window.begin(), middle, Window.end());
    images.Write(images.At(col, row), *middle);
  }
}

// Lane k holds window element k (row-major) of each pixel of a block of the
// row, so that every exchange is a vectorisable min/max over the block.
void Ipg_MedianKernel::RowByNetwork(const Ipg_KernelImages& images, int row)
{
  const int hx = SizeX / 2, hy = SizeY / 2, n = SizeX * SizeY;
  const int width = images.Cols - 2 * hx;
  for (int j0 = 0; j0 < width; j0 += kBlock) {
    const int w = std::min(kBlock, width - j0);
    for (int k = 0; k < Lanes; ++k) {
      int* lane = LaneValues.data() + static_cast<std::size_t>(k) * kBlock;
      if (k < n) {
        const int* from = images.In + static_cast<std::ptrdiff_t>(row + k / SizeX - hy) * images.Cols + j0 + k % SizeX;
        std::copy(from, from + w, lane);
      } else {
        std::fill(lane, lane + w, INT_MAX);
      }
    }
    for (const auto& e : Exchanges) {
      int* x = LaneValues.data() + static_cast<std::size_t>(e[0]) * kBlock;
      int* y = LaneValues.data() + static_cast<std::size_t>(e[1]) * kBlock;
      for (int j = 0; j < w; ++j) {
        const int lo = std::min(x[j], y[j]);
        const int hi = std::max(x[j], y[j]);
        x[j] = lo;
        y[j] = hi;
      }
    }
    const int* medians = LaneValues.data() + static_cast<std::size_t>(Middle) * kBlock;
    for (int j = 0; j < w; ++j)
      images.Write(images.At(hx + j0 + j, row), medians[j]);
  }
}
