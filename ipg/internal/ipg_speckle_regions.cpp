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
  std::ptrdiff_t Step[8]; // N, NE, E, SE, S, SW, W, NW
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

// Breadth-first growth from seed (framed index), in the order of Step, into
// band.Region; returns the region's size. Every visited pixel is stamped with
// generation, so it is tested once: a fresh pixel (neither this region's nor
// the frame) is stamped, and joins when it is near m0. The tests are data, not
// branches: which neighbours join follows the speckle, beyond any prediction.
std::size_t Grow(const Framed& image, std::size_t seed, double m0, double tolerance, std::size_t limit,
                 unsigned generation, Ipg_SpeckleBand& band)
{
  std::size_t* region = band.Region.data();
  unsigned* stamps = band.Stamps.data();
  const double* values = image.Values;
  const std::ptrdiff_t stride = image.Stride;
  region[0] = seed;
  stamps[seed] = generation;
  std::size_t size = 1;
  const auto test = [&](std::size_t q) {
    const unsigned stamp = stamps[q];
    const bool fresh = stamp < generation;
    stamps[q] = fresh ? generation : stamp;
    const bool near = !(std::fabs(values[q] - m0) > tolerance);
    region[size] = q;
    size += static_cast<std::size_t>(fresh & near);
  };
  for (std::size_t next = 0; next < size && size < limit; ++next) {
    const std::size_t p = region[next];
    if (size + 8 <= limit) { // room for all eight: N, NE, E, SE, S, SW, W, NW
      test(p - stride);
      test(p - stride + 1);
      test(p + 1);
      test(p + stride + 1);
      test(p + stride);
      test(p + stride - 1);
      test(p - 1);
      test(p - stride - 1);
      continue;
    }
    for (int d = 0; d < 8 && size < limit; ++d)
      test(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(p) + image.Step[d]));
  }
  return size;
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
    const Framed image{band.Values.data(), stride, {-stride, 1 - stride, 1, stride + 1, stride, stride - 1, -1, -stride - 1}};
    band.Region.resize(limit + 1);
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
      for (int c = 0; c < cols; ++c) {
        const double m0 = band.Mean[static_cast<std::size_t>(c)];
        const std::size_t seed = (r + 1 - band.First) * static_cast<std::size_t>(stride) + static_cast<std::size_t>(c) + 1;
        const std::size_t size = Grow(image, seed, m0, k * cu * std::fabs(m0), limit, ++generation, band);
        // The values summed in the order they joined.
        double sum = 0.0, squares = 0.0;
        for (std::size_t i = 0; i < size; ++i) {
          const double v = image.Values[band.Region[i]];
          if (i == 0) {
            sum = v;
            squares = v * v;
            continue;
          }
          sum += v;
          squares += v * v;
        }
        const double count = static_cast<double>(size);
        const double m = sum / count;
        const double variance = std::max(0.0, squares / count - m * m);
        double w = 0.0;
        if (m > 0.0 && variance > 0.0) {
          const double c2 = variance / (m * m);
          w = std::clamp((1.0 - cu2 / c2) / (1.0 + cu2), 0.0, 1.0);
        }
        const std::size_t at = static_cast<std::size_t>(r) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(c);
        target[c] = m + w * (in[at] - m);
      }
    }
  });
}
