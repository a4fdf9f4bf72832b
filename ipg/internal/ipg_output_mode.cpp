#include "ipg/internal/ipg_output_mode.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

void ClampToGreyRange(DCM_DATA& data)
{
  int mn = kIpgMaxGrey;
  int mx = -kIpgMaxGrey;
  int* p = data.GetIDataAddress();
  for (std::size_t k = 0; k < data.GetSize(); ++k) {
    if (Ipg_IsMark(p[k]) && p[k] != kIpgMaskValue)
      p[k] = kIpgMaxGrey;
    else if (p[k] <= 0)
      p[k] = 0;
    mn = std::min(mn, p[k]);
    mx = std::max(mx, p[k]);
  }
  data.SetMin(mn);
  data.SetMax(mx);
}

void TakeAbsoluteValues(DCM_DATA& data)
{
  int mn = kIpgMaxGrey;
  int mx = -kIpgMaxGrey;
  int* p = data.GetIDataAddress();
  for (std::size_t k = 0; k < data.GetSize(); ++k) {
    // |INT_MIN| does not fit: it saturates to INT_MAX.
    p[k] = p[k] == INT_MIN ? INT_MAX : std::abs(p[k]);
    mn = std::min(mn, p[k]);
    mx = std::max(mx, p[k]);
  }
  data.SetMin(mn);
  data.SetMax(mx);
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
  constexpr std::int64_t kLargestTable = std::int64_t{1} << 24;
  std::vector<int> table;
  if (range >= 0 && range < kLargestTable) {
    table.resize(static_cast<std::size_t>(range) + 1);
    for (std::int64_t v = mn; v <= mx; ++v)
      table[static_cast<std::size_t>(v - mn)] = RescaledLevel(v, mn, range, levels);
  }
  int* p = data.GetIDataAddress();
  for (std::size_t k = 0; k < data.GetSize(); ++k) {
    if (Ipg_IsMark(p[k]))
      continue;
    const std::int64_t offset = static_cast<std::int64_t>(p[k]) - mn;
    if (offset >= 0 && offset < static_cast<std::int64_t>(table.size()))
      p[k] = table[static_cast<std::size_t>(offset)];
    else
      p[k] = RescaledLevel(p[k], mn, range, levels);
  }
  data.SetMin(0);
  // The top of the range is 2^bits, not 2^bits - 1: displays calibrated on this
  // library's output expect the highest input to land exactly on 2^bits.
  data.SetMax(levels);
}

} // namespace

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
    data.SetMin();
    data.SetMax();
    break;
  }
  return true;
}
