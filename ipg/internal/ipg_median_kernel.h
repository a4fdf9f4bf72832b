// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_kernel_images.h"

#include <array>
#include <utility>
#include <vector>

// Median over a SizeX x SizeY window (both odd and positive) of images.In
// into images.Out, for the rows of a span that lie at least SizeY / 2 from the
// edge, columns SizeX / 2 .. Cols - SizeX / 2 - 1. Marks and the ROI take no
// part: every such pixel gets its window's median. Holds its scratch buffers,
// so one object serves every row of an image.
struct IPG_BAND_EXTREMES;
struct Ipg_MedianRowFunctions;

class Ipg_MedianKernel {
public:
  Ipg_MedianKernel(int sizeX, int sizeY);

  // With seen, each whole output row is measured right after it is written.
  void Rows(const Ipg_KernelImages& images, Ipg_RowSpan span, IPG_BAND_EXTREMES* seen = nullptr);
  // The window centred on (col, row), sorted.
  const std::vector<int>& SortedWindow(const Ipg_KernelImages& images, int col, int row);

private:
  void Gather(const Ipg_KernelImages& images, int col, int row);
  void RowByNetwork(const Ipg_KernelImages& images, int row);
  void RowBySelection(const Ipg_KernelImages& images, int row);
  // 3x3 by sorted columns, 5x5 by a network unrolled at compile time, eight
  // pixels per step, sixteen where the window's rows fit in 16 bits.
  // With seen, measures the whole row into it and returns true (false: not measured).
  bool RowByFixedNetwork(const Ipg_KernelImages& images, int row, const Ipg_MedianRowFunctions& medianRow,
                         IPG_BAND_EXTREMES* seen);
  bool NarrowLines(const Ipg_KernelImages& images, int row, const short** lines);
  static constexpr int kLargestFixedSide = 5;

  int SizeX;
  int SizeY;
  bool ByNetwork;
  // Exchange network leaving the median in lane Middle (empty for selection).
  int Lanes = 0;
  int Middle = 0;
  std::vector<std::array<int, 2>> Exchanges;
  std::vector<int> LaneValues;
  std::vector<int> Window;
  // Input rows in 16 bits, slot r % SizeY holding row r when its levels fit.
  std::vector<short> NarrowRows;
  std::vector<std::pair<int, bool>> NarrowHeld; // (row, fits) per slot
  const int* NarrowSource = nullptr;             // the image they come from
  std::vector<short> NarrowScratch;
};
