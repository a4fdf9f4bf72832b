// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_histo.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_pixel_values.h"

#include <algorithm>
#include <cstdio>
#include <new>

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
    data->SetMin();
    data->SetMax();
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
  for (std::size_t k = 0; k < NbValues; ++k) {
    const int v = Values[k];
    if (v < MinHisto || v > MaxHisto || v == kIpgMaskValue)
      continue;
    const int bin = v - MinHisto;
    if (++Histo[bin] > Histo[CurrentMaxIndice])
      CurrentMaxIndice = bin;
  }
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
