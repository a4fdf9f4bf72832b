// SPDX-License-Identifier: Apache-2.0
// The adaptive-neighbourhood speckle filter (declared in ipg_speckle_kernels.h).
#include "ipg/framework/ipg_threads.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstddef>

namespace {

// A region costs about this many plain copies per pixel.
constexpr std::size_t kRegionWork = 64;
// Stamp of the frame around the image: never a candidate.
constexpr unsigned kOutside = UINT_MAX;

// The image with a one-pixel frame, so that the 8 neighbours of any pixel are
// at fixed offsets; the frame's stamps keep the growth inside the image.
struct Framed {
  const double* Values;
  std::ptrdiff_t Stride;
};

// The eight directions, in the order a pixel's neighbours are tested.
enum Direction : unsigned char { kN, kNE, kE, kSE, kS, kSW, kW, kNW };

// The neighbours of a pixel that its expansion still has to test, when it was
// reached going in a direction: the others are neighbours of the pixel it was
// reached from, all tested when that one was expanded, so they would not join
// again. In test order, padded to five with the pixel itself (a region pixel:
// never fresh).
constexpr int kUntested = 5;
constexpr signed char kPad = -1;
constexpr signed char kUntestedAfter[8][kUntested] = {
    {kN, kNE, kNW, kPad, kPad}, {kN, kNE, kE, kSE, kNW}, {kNE, kE, kSE, kPad, kPad}, {kNE, kE, kSE, kS, kSW},
    {kSE, kS, kSW, kPad, kPad}, {kSE, kS, kSW, kW, kNW}, {kSW, kW, kNW, kPad, kPad}, {kN, kNE, kSW, kW, kNW},
};

// Offsets of the eight neighbours, and of the untested ones after each direction.
struct Steps {
  std::ptrdiff_t Of[8];
  std::ptrdiff_t Untested[8][kUntested];
  unsigned char UntestedDirection[8][kUntested];

  explicit Steps(std::ptrdiff_t stride)
      : Of{-stride, 1 - stride, 1, stride + 1, stride, stride - 1, -1, -stride - 1}
  {
    for (int from = 0; from < 8; ++from)
      for (int k = 0; k < kUntested; ++k) {
        const signed char d = kUntestedAfter[from][k];
        Untested[from][k] = d == kPad ? 0 : Of[d];
        UntestedDirection[from][k] = d == kPad ? 0 : static_cast<unsigned char>(d);
      }
  }
};

// Holds the framed rows [top, bottom) of in (values, and stamps: 0, but
// kOutside on the frame) in band's buffers of capacity framed rows, as rows
// [First, First + Held). Rows come down the image: the rows still needed move
// to the front when the buffers are full.
void Cover(Ipg_SpeckleBand& band, const double* in, int cols, int rows, std::size_t capacity, std::size_t top,
           std::size_t bottom)
{
  const std::size_t stride = static_cast<std::size_t>(cols) + 2;
  if (band.Held == 0 || bottom > band.First + capacity) {
    const std::size_t end = band.First + band.Held;
    const std::size_t kept = end > top ? end - top : 0;
    const std::size_t from = (band.Held - kept) * stride;
    std::copy_n(band.Values.begin() + static_cast<std::ptrdiff_t>(from), kept * stride, band.Values.begin());
    std::copy_n(band.Stamps.begin() + static_cast<std::ptrdiff_t>(from), kept * stride, band.Stamps.begin());
    band.First = top;
    band.Held = kept;
  }
  for (std::size_t r = band.First + band.Held; r < bottom; ++r, ++band.Held) {
    double* values = band.Values.data() + (r - band.First) * stride;
    unsigned* stamps = band.Stamps.data() + (r - band.First) * stride;
    const bool frame = r == 0 || r == static_cast<std::size_t>(rows) + 1;
    std::fill_n(stamps, stride, frame ? kOutside : 0u);
    stamps[0] = stamps[stride - 1] = kOutside;
    std::fill_n(values, stride, 0.0);
    if (!frame)
      std::copy_n(in + (r - 1) * static_cast<std::size_t>(cols), cols, values + 1);
  }
}

// Breadth-first growth from seed (framed index), neighbours in the order N,
// NE, E, SE, S, SW, W, NW, into region (and the direction each pixel was
// reached in, into directions); returns the region's size, at most limit.
// Every visited pixel is stamped with generation, so it is tested once: a
// fresh pixel (neither this region's nor the frame) is stamped, and joins when
// it is near m0. The tests are data, not branches: which neighbours join
// follows the speckle, beyond any prediction. An expansion runs all its tests:
// past the limit, what joins lies beyond the first limit places (region holds
// limit + 8), and what is stamped belongs to no later region, whose generation
// is newer. Tests that could not join are skipped (Steps::Untested).
std::size_t Grow(const Framed& image, const Steps& steps, std::size_t seed, double m0, double tolerance,
                 std::size_t limit, unsigned generation, unsigned* stamps, std::size_t* region,
                 unsigned char* directions)
{
  const double* values = image.Values;
  region[0] = seed;
  stamps[seed] = generation;
  std::size_t size = 1;
  const auto test = [&](std::size_t q, unsigned char direction) {
    const unsigned stamp = stamps[q];
    const bool fresh = stamp < generation;
    stamps[q] = fresh ? generation : stamp;
    const bool near = !(std::fabs(values[q] - m0) > tolerance);
    region[size] = q;
    directions[size] = direction;
    size += static_cast<std::size_t>(fresh & near);
  };
  if (size < limit)
    for (unsigned char d = 0; d < 8; ++d)
      test(seed + static_cast<std::size_t>(steps.Of[d]), d);
  for (std::size_t next = 1; next < size && size < limit; ++next) {
    const std::size_t p = region[next];
    const std::ptrdiff_t* offset = steps.Untested[directions[next]];
    const unsigned char* direction = steps.UntestedDirection[directions[next]];
    for (int k = 0; k < kUntested; ++k)
      test(p + static_cast<std::size_t>(offset[k]), direction[k]);
  }
  return std::min(size, limit);
}

// The values of a region summed in the order they joined, and their squares.
struct RegionSums {
  double Sum = 0.0;
  double Squares = 0.0;
};

// Sums n (1 or 2) regions side by side: each keeps its own order, and the two
// chains of additions overlap.
void SumRegions(const double* values, std::size_t* const regions[2], const std::size_t sizes[2], int n,
                RegionSums sums[2])
{
  for (int j = 0; j < n; ++j) {
    const double v = values[regions[j][0]]; // sizes are at least 1: the seed
    sums[j] = {v, v * v};
  }
  std::size_t i = 1;
  for (const std::size_t both = n == 2 ? std::min(sizes[0], sizes[1]) : 0; i < both; ++i) {
    const double a = values[regions[0][i]], b = values[regions[1][i]];
    sums[0].Sum += a;
    sums[0].Squares += a * a;
    sums[1].Sum += b;
    sums[1].Squares += b * b;
  }
  for (int j = 0; j < n; ++j)
    for (std::size_t t = i; t < sizes[j]; ++t) {
      const double v = values[regions[j][t]];
      sums[j].Sum += v;
      sums[j].Squares += v * v;
    }
}

// The filtered value of a pixel from its region's sums.
double Filtered(const RegionSums& sums, std::size_t size, double cu2, double value)
{
  const double count = static_cast<double>(size);
  const double m = sums.Sum / count;
  const double variance = std::max(0.0, sums.Squares / count - m * m);
  double w = 0.0;
  if (m > 0.0 && variance > 0.0) {
    const double c2 = variance / (m * m);
    w = std::clamp((1.0 - cu2 / c2) / (1.0 + cu2), 0.0, 1.0);
  }
  return m + w * (value - m);
}

} // namespace

void Ipg_AdaptiveNeighbourhoodPass(const double* in, double* out, int cols, int rows, int maxArea, double k,
                                   double cu2, Ipg_SpeckleBuffers* buffers)
{
  if (cols <= 0 || rows <= 0)
    return;
  Ipg_SpeckleBuffers local;
  Ipg_SpeckleBuffers& b = buffers != nullptr ? *buffers : local;
  const double cu = std::sqrt(std::max(0.0, cu2));

  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(cols) + 2;
  const std::size_t limit = static_cast<std::size_t>(std::max(1, maxArea));
  // A region of at most limit pixels stays within limit - 1 rows of its seed,
  // and its neighbours within limit: a seed's framed rows. A band holds those
  // of a few seed rows at a time. Bands split for rows reading that far are
  // few enough for large regions that together they hold about one image.
  const std::size_t reach = std::min<std::size_t>(limit, static_cast<std::size_t>(rows));
  const std::size_t seedRows = std::min<std::size_t>(static_cast<std::size_t>(rows) + 2, 2 * limit + 1);
  const std::size_t capacity =
      std::min<std::size_t>(static_cast<std::size_t>(rows) + 2, seedRows + std::max<std::size_t>(32, seedRows / 4));
  // Buffers per thread: the bands a thread runs come one after the other.
  b.Bands.resize(std::max<std::size_t>(b.Bands.size(), static_cast<std::size_t>(Ipg_GetNumThreads())));
  std::atomic<bool> stop{false};
  Ipg_RunPassBands(in, out, cols, rows, 1, static_cast<int>(reach), kRegionWork,
                   [&](unsigned, unsigned begin, unsigned end, Ipg_WindowTables& tables, Ipg_BandOutput& output) {
    Ipg_SpeckleBand own; // for a thread beyond the count read above (changed meanwhile)
    const unsigned thread = Ipg_BandThread();
    Ipg_SpeckleBand& band = thread < b.Bands.size() ? b.Bands[thread] : own;
    band.Values.resize(capacity * static_cast<std::size_t>(stride));
    band.Stamps.resize(band.Values.size());
    band.First = band.Held = 0;
    const Framed image{band.Values.data(), stride};
    const Steps steps(stride);
    band.Region.resize(2 * (limit + 8));
    band.Directions.resize(limit + 8);
    std::size_t* const regions[2] = {band.Region.data(), band.Region.data() + limit + 8};
    band.Mean.resize(static_cast<std::size_t>(cols));
    band.Variance.resize(static_cast<std::size_t>(cols));
    unsigned generation = 0;
    for (unsigned r = begin; r < end; ++r) {
      if (Ipg_OnCallingThread() && Ipg_CancelRequested())
        stop = true;
      if (stop.load(std::memory_order_relaxed))
        return;
      // The reference level: the mean of the seed's 3x3 window.
      tables.RowMoments(static_cast<int>(r), 1, band.Mean.data(), band.Variance.data());
      Cover(band, in, cols, rows, capacity, r + 1 - std::min<std::size_t>(r + 1, limit),
            std::min<std::size_t>(static_cast<std::size_t>(rows) + 2, r + 2 + limit));
      double* target = output.Row(static_cast<int>(r));
      const double* line = in + static_cast<std::size_t>(r) * static_cast<std::size_t>(cols);
      for (int c = 0; c < cols; c += 2) { // two seeds at a time, for SumRegions
        const int n = std::min(2, cols - c);
        std::size_t sizes[2] = {0, 0};
        for (int j = 0; j < n; ++j) {
          const double m0 = band.Mean[static_cast<std::size_t>(c + j)];
          const std::size_t seed =
              (r + 1 - band.First) * static_cast<std::size_t>(stride) + static_cast<std::size_t>(c + j) + 1;
          sizes[j] = Grow(image, steps, seed, m0, k * cu * std::fabs(m0), limit, ++generation, band.Stamps.data(),
                          regions[j], band.Directions.data());
        }
        RegionSums sums[2];
        SumRegions(image.Values, regions, sizes, n, sums);
        for (int j = 0; j < n; ++j)
          target[c + j] = Filtered(sums[j], sizes[j], cu2, line[c + j]);
      }
    }
  });
}
