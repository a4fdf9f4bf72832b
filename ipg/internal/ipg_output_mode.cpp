// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_output_mode.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

// Runs body(first, end, extremes) over the pixels of data in row bands, then
// stores the extremes the bands saw, starting from [low, high].
template <typename Body>
void RewriteInBands(DCM_DATA& data, int low, int high, Body body)
{
  const std::size_t cols = data.GetNbOfCols();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(data.GetNbOfRows(), cols);
  std::vector<IPG_BAND_EXTREMES> extremes(bands.Count);
  int* p = data.GetIDataAddress();
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    IPG_BAND_EXTREMES seen;
    seen.Min = low;
    seen.Max = high;
    body(p + begin * cols, p + end * cols, seen);
    extremes[band] = seen;
  });
  data.SetMin(low);
  data.SetMax(high);
  for (const IPG_BAND_EXTREMES& e : extremes) {
    data.SetMin(std::min(data.GetMin(), e.Min));
    data.SetMax(std::max(data.GetMax(), e.Max));
  }
}

void ClampToGreyRange(DCM_DATA& data)
{
  RewriteInBands(data, kIpgMaxGrey, -kIpgMaxGrey, [](int* first, int* end, IPG_BAND_EXTREMES& seen) {
    for (int* p = first; p != end; ++p) {
      if (Ipg_IsMark(*p) && *p != kIpgMaskValue)
        *p = kIpgMaxGrey;
      else if (*p <= 0)
        *p = 0;
      seen.Add(*p);
    }
  });
}

void TakeAbsoluteValues(DCM_DATA& data)
{
  RewriteInBands(data, kIpgMaxGrey, -kIpgMaxGrey, [](int* first, int* end, IPG_BAND_EXTREMES& seen) {
    for (int* p = first; p != end; ++p) {
      // |INT_MIN| does not fit: it saturates to INT_MAX.
      *p = *p == INT_MIN ? INT_MAX : std::abs(*p);
      seen.Add(*p);
    }
  });
}

// Entry of the re-scaling table for v: (v - mn) / range * N, rounded half away from zero.
int RescaledLevel(std::int64_t v, std::int64_t mn, std::int64_t range, int levels)
{
  const long double t = static_cast<long double>(v - mn) / static_cast<long double>(range) * levels;
  return Ipg_RoundHalfAwayFromZero(t);
}

void RescaleToBitDepth(DCM_DATA& data, short bitsStored)
{
  const double power = std::pow(2.0, bitsStored);
  const int levels = power >= static_cast<double>(INT_MAX) ? INT_MAX : static_cast<int>(power);
  const std::int64_t mn = data.GetMin();
  std::int64_t mx = data.GetMax();
  if (mn == mx)
    mx = mx + 1;
  const std::int64_t range = mx - mn;

  // The table covers the stored extremes; a pixel outside them (stale extremes)
  // gets the same formula computed directly instead of a read outside the table.
  // A range wider than half the pixels computes every pixel directly: filling
  // the table would cost more than it saves, and take more memory than the image.
  constexpr std::int64_t kLargestTable = std::int64_t{1} << 24;
  const std::int64_t pixelCount = static_cast<std::int64_t>(data.GetSize());
  std::vector<int> table;
  if (range >= 0 && range < kLargestTable && range < pixelCount / 2) {
    table.resize(static_cast<std::size_t>(range) + 1);
    for (std::int64_t v = mn; v <= mx; ++v)
      table[static_cast<std::size_t>(v - mn)] = RescaledLevel(v, mn, range, levels);
  }
  const std::size_t cols = data.GetNbOfCols();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(data.GetNbOfRows(), cols);
  int* pixels = data.GetIDataAddress();
  Ipg_RunBands(bands, [&](unsigned, unsigned begin, unsigned end) {
    for (int *p = pixels + begin * cols, *last = pixels + end * cols; p != last; ++p) {
      if (Ipg_IsMark(*p))
        continue;
      const std::int64_t offset = static_cast<std::int64_t>(*p) - mn;
      if (offset >= 0 && offset < static_cast<std::int64_t>(table.size()))
        *p = table[static_cast<std::size_t>(offset)];
      else
        *p = RescaledLevel(*p, mn, range, levels);
    }
  });
  data.SetMin(0);
  // The top of the range is 2^bits, not 2^bits - 1: displays calibrated on this
  // library's output expect the highest input to land exactly on 2^bits.
  data.SetMax(levels);
}

} // namespace

void Ipg_MeasureExtremes(DCM_DATA& data)
{
  if (data.GetSize() == 0)
    return; // nothing to measure: the stored extremes stay
  const int* p = data.GetIDataAddress();
  RewriteInBands(data, p[0], p[0], [](int* first, int* end, IPG_BAND_EXTREMES& seen) {
    constexpr std::ptrdiff_t kLongestRun = std::ptrdiff_t{1} << 30; // Ipg_MeasureRow counts in int
    for (const int* q = first; q != end; q += std::min(end - q, kLongestRun))
      Ipg_MeasureRow(q, static_cast<int>(std::min(end - q, kLongestRun)), seen);
  });
}

namespace {

void RowExtremesPlain(const int* row, int cols, IPG_BAND_EXTREMES& seen) { Ipg_AddRowExtremes(row, cols, seen); }

#if defined(__x86_64__)
[[gnu::target("avx2")]] void RowExtremesAvx2(const int* row, int cols, IPG_BAND_EXTREMES& seen)
{
  Ipg_AddRowExtremes(row, cols, seen);
}
#endif

} // namespace

void Ipg_MeasureRow(const int* row, int cols, IPG_BAND_EXTREMES& seen)
{
#if defined(__x86_64__)
  if (Ipg_UseAvx2())
    return RowExtremesAvx2(row, cols, seen);
#endif
  RowExtremesPlain(row, cols, seen);
}

void Ipg_StoreExtremes(DCM_DATA& data, int measuredBegin, int measuredEnd, const IPG_BAND_EXTREMES& seen)
{
  const int cols = static_cast<int>(data.GetNbOfCols()), rows = static_cast<int>(data.GetNbOfRows());
  if (data.GetSize() == 0 || static_cast<std::size_t>(cols) * rows != data.GetSize())
    return Ipg_MeasureExtremes(data);
  measuredBegin = std::clamp(measuredBegin, 0, rows);
  measuredEnd = std::clamp(measuredEnd, measuredBegin, rows);
  IPG_BAND_EXTREMES all = seen;
  const int* p = data.GetIDataAddress();
  for (int row = 0; row < rows; ++row)
    if (row < measuredBegin || row >= measuredEnd)
      Ipg_MeasureRow(p + static_cast<std::size_t>(row) * cols, cols, all);
  data.SetMin(all.Min);
  data.SetMax(all.Max);
}

bool Ipg_ApplyModeToImage(DCM_STRUCT* out, short mode, const IPG_BAND_EXTREMES& measured)
{
  if (out == nullptr || mode == 300 || mode == 301 || mode == 303)
    return Ipg_ApplyModeToImage(out, mode);
  const DCM_HEADER header = out->GetHeader();
  if (header.PhotometricInterpretation != 0 && header.PhotometricInterpretation != 1)
    return Ipg_ApplyModeToImage(out, mode); // its message
  out->Data->SetMin(measured.Min);
  out->Data->SetMax(measured.Max);
  return true;
}

bool Ipg_ApplyModeToImage(DCM_STRUCT* out, short mode)
{
  if (out == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  const DCM_HEADER header = out->GetHeader();
  if (header.PhotometricInterpretation != 0 && header.PhotometricInterpretation != 1) {
    Ipg_Inform(kIpgMsgPhotometric);
    return false;
  }
  DCM_DATA& data = *out->Data;
  switch (mode) {
  case 300:
    ClampToGreyRange(data);
    break;
  case 301:
    RescaleToBitDepth(data, header.BitsStored);
    break;
  case 303:
    TakeAbsoluteValues(data);
    break;
  default:
    Ipg_MeasureExtremes(data);
    break;
  }
  return true;
}
