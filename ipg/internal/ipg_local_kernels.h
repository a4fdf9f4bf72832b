// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_convolution_kernel.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "mth/mth_xy_plot.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// Local-window kernels of the filtering operator: the sheared-window mean and
// edge filters, Nagao-Matsuyama smoothing and the chi-square texture map.

// The sheared 5x5 window of the mean, edge and Frost filters, five runs of
// five that drift one column left per row: relative to the written position
// w, row -2 covers columns 0..+4, row -1 -1..+3, row 0 -2..+2, row +1 -3..+1,
// row +2 -4..0. Positions are linear, so runs past a row's end continue on the
// next row. Existing results depend on this exact window. Returns the linear
// start of the run of row offset dr.
inline std::ptrdiff_t Ipg_ShearedRunStart(std::ptrdiff_t w, int dr, int cols)
{
  return w + static_cast<std::ptrdiff_t>(dr) * cols - dr - 2;
}

// In place (images.In and images.Out the same buffer): visits the rows of span
// within 2 .. Rows - 3 and columns 2 .. Cols - 3 and writes one column to the
// left of the visited position, so later windows see updated values.
// Mean: the 25 values' mean, truncated toward zero.
void Ipg_ShearedMeanRows(const Ipg_KernelImages& images, Ipg_RowSpan span);
// Edge: the mean absolute difference to the visited pixel, 25 differences over 24.
void Ipg_ShearedEdgeRows(const Ipg_KernelImages& images, Ipg_RowSpan span);

// Nagao-Matsuyama edge-preserving smoothing over the rows of span within
// 2 .. Rows - 3, columns 2 .. Cols - 3 (see the source).
void Ipg_NagaoRows(const Ipg_KernelImages& images, Ipg_RowSpan span);

// Chi-square distance between each pixel's local grey-level histogram (over
// the support, the non-zero taps) and the image's histogram, both in 32 bins
// spanning the image's unmarked grey levels inside the ROI.
class Ipg_Chi2Kernel {
public:
  Ipg_Chi2Kernel(const Ipg_KernelImages& images, const Ipg_ConvolutionTaps& support);
  // Rows of span within the support's margins: the output gets distance x
  // 8388608 truncated and distances[idx] the distance; pixels outside the ROI
  // or marked copy the input.
  void Rows(const Ipg_KernelImages& images, Ipg_RowSpan span, float* distances);

private:
  struct Offset {
    int dx;
    int dy;
  };
  int Bin(int v) const;

  std::int64_t Low = 0;
  std::int64_t High = 0;
  int HalfX = 0;
  int HalfY = 0;
  std::vector<Offset> Support;
  MTH_XY_PLOT ImagePlot;
  MTH_XY_PLOT LocalPlot;
};
