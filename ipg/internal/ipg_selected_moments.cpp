// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_selected_moments.h"

#include "ipg/internal/ipg_banded_sums.h"
#include "ipg/internal/ipg_roi_mask.h"

bool Ipg_SelectedMoments(const int* pixels, std::size_t size, unsigned cols, const int* roi, std::size_t roiSize,
                         IPG_SELECTED_MOMENTS& moments)
{
  // The ROI array is walked in step with the input; past its end nothing is selected.
  auto selected = [&](std::size_t i) {
    if (Ipg_IsMark(pixels[i]))
      return false;
    return roi == nullptr || (i < roiSize && Ipg_InsideRoi(roi[i]));
  };
  const IPG_SELECTED_STATS stats = Ipg_SelectedStats(pixels, size, cols, roi, roiSize);
  if (stats.Count == 0)
    return false;
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
