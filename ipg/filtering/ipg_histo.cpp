// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_histo.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_pixel_values.h"
#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <vector>

namespace {

// One bin per level: 2^25 bins hold every grey level, the mark 16777217 and as
// many negative levels. A wider range of values is refused as a failed
// allocation rather than zero-filling gigabytes of counts.
constexpr long long kMaxBins = 1LL << 25;

std::unique_ptr<int[]> AllocateCounts(long long count)
{
  if (count <= 0 || count > kMaxBins)
    return nullptr;
  return std::unique_ptr<int[]>(new (std::nothrow) int[static_cast<std::size_t>(count)]());
}

// The values are cut into blocks, the blocks into parallel bands, each band
// counting into bins of its own when there are few enough of them.
constexpr std::size_t kCountBlock = 4096;
constexpr long long kLargestBandBins = 1LL << 16;

bool Counted(int v, int low, int high) { return v >= low && v <= high && v != kIpgMaskValue; }

// Adds the counts of the values in [low, high] (the mask value left out).
void CountValues(const int* values, std::size_t n, int low, int high, int* counts)
{
  const long long bins = static_cast<long long>(high) - low + 1;
  auto countInto = [&](int* into, std::size_t first, std::size_t last) {
    for (std::size_t k = first; k < last; ++k)
      if (Counted(values[k], low, high))
        ++into[values[k] - static_cast<long long>(low)];
  };
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>((n + kCountBlock - 1) / kCountBlock), kCountBlock);
  if (bands.Count == 1 || bins > kLargestBandBins) {
    countInto(counts, 0, n);
    return;
  }
  std::vector<std::vector<int>> perBand(bands.Count, std::vector<int>(static_cast<std::size_t>(bins), 0));
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    countInto(perBand[band].data(), std::size_t{begin} * kCountBlock, std::min(n, std::size_t{end} * kCountBlock));
  });
  for (const std::vector<int>& band : perBand)
    for (std::size_t i = 0; i < band.size(); ++i)
      counts[i] += band[i];
}

// The mode as counting value after value keeps it (a bin takes over only with
// a strictly higher count): the first bin to reach the highest count, that is,
// among the bins holding it, the one whose last value comes first.
int ModeIndex(const int* values, std::size_t n, int low, int high, const int* counts)
{
  const std::size_t bins = static_cast<std::size_t>(static_cast<long long>(high) - low + 1);
  const int highest = *std::max_element(counts, counts + bins);
  if (highest == 0)
    return 0;
  std::vector<char> holds(bins, 0);
  std::size_t left = 0;
  for (std::size_t i = 0; i < bins; ++i)
    if (counts[i] == highest) {
      holds[i] = 1;
      ++left;
    }
  int mode = static_cast<int>(std::find(holds.begin(), holds.end(), 1) - holds.begin());
  for (std::size_t k = n; k-- > 0 && left > 1;) {
    if (!Counted(values[k], low, high))
      continue;
    const std::size_t bin = static_cast<std::size_t>(values[k] - static_cast<long long>(low));
    if (holds[bin] != 0) {
      holds[bin] = 0;
      --left;
    }
  }
  if (left == 1) // the holder whose last value the backward walk met last
    mode = static_cast<int>(std::find(holds.begin(), holds.end(), 1) - holds.begin());
  return mode;
}

} // namespace

IPG_HISTO::IPG_HISTO() = default;

IPG_HISTO::IPG_HISTO(DCM_STRUCT* in) { SetImaIn(in); }

IPG_HISTO::IPG_HISTO(std::vector<int> values)
{
  OwnValues = std::make_unique<int[]>(values.size() + 1);
  std::copy(values.begin(), values.end(), OwnValues.get());
  Values = OwnValues.get();
  NbValues = values.size();
  MinHisto = 0;
  MaxHisto = 0;
  for (const int v : values) {
    if (v <= MinHisto)
      MinHisto = v;
    else if (v >= MaxHisto)
      MaxHisto = v;
  }
}

IPG_HISTO::IPG_HISTO(const IPG_HISTO& source)
    : IPG_ONE_INPUT_NO_OUTPUT(), NbOfValues(source.NbOfValues), CurrentMaxIndice(source.CurrentMaxIndice),
      MinHisto(source.MinHisto), MaxHisto(source.MaxHisto)
{
  if (source.Histo != nullptr) {
    Histo = std::make_unique<int[]>(static_cast<std::size_t>(NbOfValues));
    std::copy(source.Histo.get(), source.Histo.get() + NbOfValues, Histo.get());
  }
}

IPG_HISTO::~IPG_HISTO() = default;

const IPG_CLASS_INFO<IPG_HISTO>& IPG_HISTO::ClassInfo()
{
  using C = IPG_HISTO;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1400, "ComputeHisto", [](C& op) -> int { return op.ComputeHisto(); }},
  };
  static const IPG_CLASS_INFO<C> info{"IPG_HISTO", operations, {}};
  return info;
}

bool IPG_HISTO::Apply()
{
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_HISTO::ComputeHisto()
{
  Histo.reset();
  if (Values == nullptr) {
    if (ImaIn == nullptr)
      return false;
    DCM_DATA* data = ImaIn->Data;
    NbValues = data->GetSize();
    Ipg_MeasureExtremes(*data);
    MinHisto = data->GetMin();
    MaxHisto = data->GetMax();
    Values = data->GetIDataAddress();
  }
  CurrentMaxIndice = 0;
  const long long binCount = static_cast<long long>(MaxHisto) - MinHisto + 1;
  Histo = AllocateCounts(binCount);
  if (Histo == nullptr) {
    NbOfValues = 0;
    return false;
  }
  NbOfValues = static_cast<int>(binCount);
  CountValues(Values, NbValues, MinHisto, MaxHisto, Histo.get());
  CurrentMaxIndice = ModeIndex(Values, NbValues, MinHisto, MaxHisto, Histo.get());
  return true;
}

int IPG_HISTO::GetHistoValue(int i)
{
  if (i < 0 || i > NbOfValues || Histo == nullptr)
    return -1;
  if (i == NbOfValues)
    return 0;
  return Histo[i];
}

int IPG_HISTO::GetHistoValueFromGreyLevel(int g) const
{
  if (g < MinHisto || g > MaxHisto || Histo == nullptr)
    return -1;
  return Histo[static_cast<long long>(g) - MinHisto];
}

int IPG_HISTO::GetMax() const { return Histo != nullptr ? Histo[CurrentMaxIndice] : 0; }

void IPG_HISTO::Save(const char* path) const
{
  if (path == nullptr)
    return;
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr)
    return;
  std::fprintf(file, "min = %d \n", MinHisto);
  std::fprintf(file, "max = %d \n", MaxHisto);
  for (int i = 0; Histo != nullptr && i < NbOfValues; ++i)
    std::fprintf(file, "%d\n", Histo[i]);
  std::fclose(file);
}
