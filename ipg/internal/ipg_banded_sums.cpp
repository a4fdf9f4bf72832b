#include "ipg/internal/ipg_banded_sums.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::uint64_t kExactLimit = std::uint64_t{1} << 53;
constexpr std::int64_t kLargestExactRoot = std::int64_t{1} << 26; // its square is below 2^53

// A running total of non-negative integer terms that remembers leaving the exact range.
struct ExactTotal {
  std::uint64_t Value = 0;
  bool Exact = true;
  void Add(std::uint64_t term)
  {
    Value += term;
    Exact = Exact && term < kExactLimit && Value < kExactLimit;
  }
};

} // namespace

IPG_SELECTED_STATS Ipg_SelectedStats(const int* pixels, std::size_t size, unsigned cols, const int* roi,
                                     std::size_t roiSize)
{
  struct Band {
    IPG_BAND_EXTREMES Extremes;
    std::int64_t Count = 0, Sum = 0;
    ExactTotal Magnitude;
  };
  const unsigned rows = cols == 0 ? 0 : static_cast<unsigned>(size / cols);
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, cols);
  std::vector<Band> perBand(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    Band b;
    const std::size_t last = std::min(size, std::size_t{end} * cols);
    for (std::size_t i = std::size_t{begin} * cols; i < last; ++i) {
      const int v = pixels[i];
      const bool selected = !Ipg_IsMark(v) && (roi == nullptr || (i < roiSize && Ipg_InsideRoi(roi[i])));
      if (!selected)
        continue;
      b.Extremes.Add(v);
      ++b.Count;
      b.Sum += v;
      b.Magnitude.Add(static_cast<std::uint64_t>(std::llabs(v)));
    }
    perBand[band] = b;
  });
  IPG_SELECTED_STATS stats;
  IPG_BAND_EXTREMES extremes;
  std::int64_t sum = 0;
  ExactTotal magnitude;
  for (const Band& b : perBand) {
    extremes.Add(b.Extremes.Min);
    extremes.Add(b.Extremes.Max);
    stats.Count += b.Count;
    sum += b.Sum;
    magnitude.Add(b.Magnitude.Value);
    magnitude.Exact = magnitude.Exact && b.Magnitude.Exact;
  }
  // A row count that leaves pixels over (size not a multiple of cols) is not
  // covered by the bands: the serial loop then does the whole work.
  stats.SumExact = magnitude.Exact && std::size_t{rows} * cols == size;
  stats.Min = extremes.Min;
  stats.Max = extremes.Max;
  stats.Sum = static_cast<double>(sum);
  return stats;
}

bool Ipg_ExactNoiseSums(const DCM_DATA& in, const DCM_DATA& smoothed, const DCM_STRUCT* roi, double& signal,
                        double& noise)
{
  const unsigned cols = in.GetNbOfCols();
  const unsigned rows = in.GetNbOfRows();
  if (smoothed.GetNbOfCols() != cols || smoothed.GetNbOfRows() != rows || cols < 3 || rows < 3)
    return false;
  // Without a ROI the walk leaves out the one-pixel frame.
  const unsigned first = roi == nullptr ? 1 : 0;
  const unsigned endCols = roi == nullptr ? cols - 1 : cols;
  const unsigned endRows = roi == nullptr ? rows - 1 : rows;
  struct Band {
    ExactTotal Signal, Noise;
  };
  const IPG_ROW_BANDS bands = Ipg_SplitRows(endRows - first, cols);
  std::vector<Band> perBand(bands.Count);
  const int* v0 = in.GetIDataAddress();
  const int* s0 = smoothed.GetIDataAddress();
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    Band b;
    for (unsigned row = first + begin; row < first + end; ++row) {
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
      const int* v = v0 + std::size_t{row} * cols;
      const int* s = s0 + std::size_t{row} * cols;
      for (unsigned col = first; col < endCols; ++col) {
        if (Ipg_IsMark(v[col]) || !roiRow.Inside(col))
          continue;
        const std::int64_t level = s[col];
        const std::int64_t gap = static_cast<std::int64_t>(v[col]) - s[col];
        const bool small = std::llabs(level) <= kLargestExactRoot && std::llabs(gap) <= kLargestExactRoot;
        b.Signal.Add(small ? static_cast<std::uint64_t>(level * level) : kExactLimit);
        b.Noise.Add(small ? static_cast<std::uint64_t>(gap * gap) : kExactLimit);
      }
    }
    perBand[band] = b;
  });
  ExactTotal totalSignal, totalNoise;
  for (const Band& b : perBand) {
    totalSignal.Add(b.Signal.Value);
    totalNoise.Add(b.Noise.Value);
    totalSignal.Exact = totalSignal.Exact && b.Signal.Exact;
    totalNoise.Exact = totalNoise.Exact && b.Noise.Exact;
  }
  if (!totalSignal.Exact || !totalNoise.Exact)
    return false;
  signal = static_cast<double>(totalSignal.Value);
  noise = static_cast<double>(totalNoise.Value);
  return true;
}
