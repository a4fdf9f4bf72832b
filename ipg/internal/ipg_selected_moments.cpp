// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_selected_moments.h"

#include "ipg/internal/ipg_banded_sums.h"
#include "ipg/internal/ipg_roi_mask.h"

namespace {

// N x sum(p^2) - sum(p)^2 = N x sum((p - mean)^2), exact in 128 bits (below 2^111
// for 2^31 levels of magnitude up to 2^24): one rounding in the division, the
// same at any thread count.
double ExactVariance(const IPG_SELECTED_STATS& stats)
{
  const Ipg_Int128 count = stats.Count;
  const Ipg_Int128 total = static_cast<std::int64_t>(stats.Sum);
  const Ipg_Int128 spread = count * static_cast<Ipg_Int128>(stats.SumOfSquares) - total * total;
  const long double countSquared = static_cast<long double>(stats.Count) * static_cast<long double>(stats.Count);
  return static_cast<double>(static_cast<long double>(spread) / countSquared);
}

} // namespace

bool Ipg_MomentsOfExactStats(const IPG_SELECTED_STATS& stats, IPG_SELECTED_MOMENTS& moments)
{
  if (stats.Count == 0 || !stats.SquaresExact)
    return false;
  moments.Count = static_cast<int>(stats.Count);
  moments.Min = stats.Min;
  moments.Max = stats.Max;
  moments.Mean = stats.Sum / moments.Count;
  moments.Variance = ExactVariance(stats);
  return true;
}

bool Ipg_SelectedMoments(const int* pixels, std::size_t size, unsigned cols, const int* roi, std::size_t roiSize,
                         IPG_SELECTED_MOMENTS& moments)
{
  const IPG_SELECTED_STATS stats = Ipg_SelectedStats(pixels, size, cols, roi, roiSize, true);
  if (stats.SquaresExact || stats.Count == 0)
    return Ipg_MomentsOfExactStats(stats, moments);
  // The ROI array is walked in step with the input; past its end nothing is selected.
  auto selected = [&](std::size_t i) {
    if (Ipg_IsMark(pixels[i]))
      return false;
    return roi == nullptr || (i < roiSize && Ipg_InsideRoi(roi[i]));
  };
  moments.Count = static_cast<int>(stats.Count);
  moments.Min = stats.Min;
  moments.Max = stats.Max;
  double sum = stats.Sum;
  if (!stats.SumExact) { // the pixel-by-pixel double sum, whose roundings the result keeps
    sum = 0.0;
    for (std::size_t i = 0; i < size; ++i)
      if (selected(i))
        sum += pixels[i];
  }
  moments.Mean = sum / moments.Count;
  double squares = 0.0;
  for (std::size_t i = 0; i < size; ++i)
    if (selected(i))
      squares += (pixels[i] - moments.Mean) * (pixels[i] - moments.Mean);
  moments.Variance = squares / moments.Count;
  return true;
}
