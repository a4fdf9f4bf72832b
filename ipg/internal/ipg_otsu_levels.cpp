// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_otsu_levels.h"

#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"

#include <algorithm>
#include <new>
#include <vector>

namespace {

// Quotients toward zero by divisor (> 0) of the levels mn..mx, when the range
// is narrow enough for a table; empty otherwise (the quotient of two doubles
// then truncates to the integer quotient for every 32-bit level).
std::vector<int> QuotientTable(int mn, int mx, int divisor)
{
  constexpr long long kLargestTable = 1 << 16;
  std::vector<int> quotients;
  if (static_cast<long long>(mx) - mn < kLargestTable) {
    quotients.resize(static_cast<std::size_t>(static_cast<long long>(mx) - mn + 1));
    for (std::size_t i = 0; i < quotients.size(); ++i)
      quotients[i] = static_cast<int>((mn + static_cast<long long>(i)) / divisor);
  }
  return quotients;
}

// values[k] := values[k] / divisor toward zero, for levels and a divisor below
// 2^24 in magnitude: inlined into a plain and an AVX2 copy.
[[gnu::always_inline]] inline void DivideBody(int* values, std::size_t n, float divisor)
{
  for (std::size_t k = 0; k < n; ++k)
    values[k] = static_cast<int>(static_cast<float>(values[k]) / divisor);
}

void DividePlain(int* values, std::size_t n, float divisor) { DivideBody(values, n, divisor); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] void DivideAvx2(int* values, std::size_t n, float divisor) { DivideBody(values, n, divisor); }
#endif

// Counts into four tables in turn, added into the first at the end: a run of
// equal levels, common in images, would otherwise make every count wait for
// the one before it.
class InterleavedCounts {
public:
  InterleavedCounts(int* counts, std::size_t bins) : Counts(counts), Bins(bins)
  {
    if (counts == nullptr || bins > kMostBins)
      return;
    try {
      Others.assign(3 * bins, 0);
    } catch (const std::bad_alloc&) {
      Others.clear(); // counted in one table
    }
  }
  ~InterleavedCounts()
  {
    for (std::size_t t = 0; t < Others.size(); t += Bins)
      for (std::size_t b = 0; b < Bins; ++b)
        Counts[b] += Others[t + b];
  }
  // Counts n levels (bin: level - base).
  void Count(const int* levels, std::size_t n, long long base)
  {
    const auto at = [base](int level) { return static_cast<std::size_t>(level - base); };
    std::size_t i = 0;
    if (!Others.empty()) {
      int* second = Others.data();
      int* third = second + Bins;
      int* fourth = third + Bins;
      for (; i + 4 <= n; i += 4) {
        ++Counts[at(levels[i])];
        ++second[at(levels[i + 1])];
        ++third[at(levels[i + 2])];
        ++fourth[at(levels[i + 3])];
      }
    }
    for (; i < n; ++i)
      ++Counts[at(levels[i])];
  }

private:
  static constexpr std::size_t kMostBins = 1 << 14;
  int* Counts;
  std::size_t Bins;
  std::vector<int> Others;
};

} // namespace

void Ipg_DivideAndCountSquare(int* pixels, unsigned side, int mn, int mx, int divisor, int firstBin,
                          std::vector<int>& bins)
{
  // Below 2^24 in magnitude a level, the divisor and the quotient toward zero
  // survive single precision: the rounded quotient of two such floats never
  // crosses an integer.
  constexpr int kFloatExact = 1 << 24;
  const bool inFloats = mn > -kFloatExact && mx < kFloatExact;
  const std::vector<int> quotients = inFloats ? std::vector<int>() : QuotientTable(mn, mx, divisor);
  const double d = divisor;
  const bool avx2 = Ipg_UseAvx2();
  const long long base = firstBin;
  auto divideInFloats = [&, base](std::size_t first, std::size_t last, int* counts) {
    constexpr std::size_t kChunk = 4096; // divided, then counted while in the cache
    InterleavedCounts interleaved(counts, bins.size());
    for (std::size_t k = first; k < last; k += kChunk) {
      const std::size_t n = std::min(kChunk, last - k);
#if defined(__x86_64__)
      if (avx2)
        DivideAvx2(pixels + k, n, static_cast<float>(divisor));
      else
#endif
        DividePlain(pixels + k, n, static_cast<float>(divisor));
      if (counts != nullptr)
        interleaved.Count(pixels + k, n, base);
    }
  };
  auto divideRange = [&](std::size_t first, std::size_t last, int* counts) {
    if (inFloats)
      return divideInFloats(first, last, counts);
    for (std::size_t k = first; k < last; ++k) {
      const int q = quotients.empty() ? static_cast<int>(pixels[k] / d)
                                      : quotients[static_cast<std::size_t>(static_cast<long long>(pixels[k]) - mn)];
      pixels[k] = q;
      if (counts != nullptr)
        ++counts[static_cast<std::size_t>(static_cast<long long>(q) - firstBin)];
    }
  };
  constexpr std::size_t kLargestBandCopy = std::size_t{1} << 16; // bins each band may hold privately
  const IPG_ROW_BANDS bands = Ipg_SplitRows(side, side);
  const std::size_t pixelCount = std::size_t{side} * side;
  if (bins.empty()) {
    Ipg_RunBands(bands, [&](unsigned, unsigned begin, unsigned end) {
      divideRange(std::size_t{begin} * side, std::size_t{end} * side, nullptr);
    });
    return;
  }
  if (bands.Count == 1 || bins.size() > kLargestBandCopy) {
    divideRange(0, pixelCount, bins.data());
    return;
  }
  std::vector<std::vector<int>> perBand(bands.Count, std::vector<int>(bins.size(), 0));
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    divideRange(std::size_t{begin} * side, std::size_t{end} * side, perBand[band].data());
  });
  for (const std::vector<int>& band : perBand)
    for (std::size_t i = 0; i < bins.size(); ++i)
      bins[i] += band[i];
}

void Ipg_CountOtsuLevels(const int* pixels, unsigned cols, unsigned rows, std::size_t size, int mn, int mx,
                 std::vector<int>& bins)
{
  const long long binCount = static_cast<long long>(bins.size());
  auto count = [&](int* into, int p) {
    const int v = p < mn || p > mx ? 0 : p;
    const long long bin = static_cast<long long>(v) - mn;
    if (bin >= 0 && bin < binCount)
      ++into[static_cast<std::size_t>(bin)];
  };
  constexpr std::size_t kLargestBandCopy = std::size_t{1} << 16; // bins each band may hold privately
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, cols);
  if (cols != rows || bands.Count == 1 || bins.size() > kLargestBandCopy) {
    Ipg_ForSquareIndex(cols, rows, size, [&](std::size_t k, unsigned, unsigned) { count(bins.data(), pixels[k]); });
    return;
  }
  std::vector<std::vector<int>> perBand(bands.Count, std::vector<int>(bins.size(), 0));
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    for (std::size_t k = std::size_t{begin} * cols; k < std::size_t{end} * cols; ++k)
      count(perBand[band].data(), pixels[k]);
  });
  for (const std::vector<int>& band : perBand)
    for (std::size_t i = 0; i < bins.size(); ++i)
      bins[i] += band[i];
}

IPG_BAND_EXTREMES Ipg_WriteOtsuMask(const int* pixels, int* out, unsigned cols, unsigned rows, std::size_t outSize,
                                long long cut, const DCM_STRUCT* roi)
{
  IPG_BAND_EXTREMES written;
  if (cols != rows) {
    Ipg_ForSquareIndex(cols, rows, outSize, [&](std::size_t k, unsigned col, unsigned row) {
      out[k] = pixels[k] > cut && Ipg_InsideRoi(roi, col, row) ? kIpgMaxGrey : 0;
      written.Add(out[k]);
    });
    return written;
  }
  const int level = static_cast<int>(cut); // a bin index: below 2^25
  return Ipg_MapLinearPixels(pixels, out, cols, outSize, roi,
                             [level](int v, bool inside) { return ((v > level) & inside) ? kIpgMaxGrey : 0; });
}

