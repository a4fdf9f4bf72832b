// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_summed_area.h"

#include <vector>

// The capacity measures of IPG_HOLDER computed without visiting every window:
// - window and half-window sums of w, w^2 and w^3 from exact integer
//   summed-area tables (Crow, "Summed-area tables for texture mapping",
//   SIGGRAPH 1984), O(1) per pixel and radius;
// - maximum and minimum by the recurrence "the (2i+1)-window extreme is the
//   extreme of the (2i-1)-window extremes of the 3x3 neighbours", O(9) per pixel
//   and radius;
// - sums of ln w and w^q by separable running sums, O(2i+1) per pixel and radius.
// Each layer is the one the direct measure writes (same frame, same formula):
// identical wherever the direct sums are exact in doubles (integer pixels with
// window sums below 2^53), otherwise within a few ulps per summed term.
// Measure 5 (the iso-value fraction) and non-integer data are not supported.
class IPG_HOLDER_FAST_MEASURES {
public:
  // data: cols x rows doubles, row-major, read during construction and by
  // FillLayer (it must outlive this object). powExponent is the q of measure 9.
  IPG_HOLDER_FAST_MEASURES(const double* data, int cols, int rows, int measType, double powExponent = 2.0);

  // Whether FillLayer can stand for the direct measure.
  bool Supported() const { return Ready; }
  // Writes the measure at radius i into layer (zero-filled by the caller);
  // cheapest when radii come in increasing order.
  void FillLayer(double* layer, int i);

private:
  using Wide = __int128;
  enum class Table { Values, Squares, Cubes };

  bool NeedsIntegerTables() const;
  void BuildTables();
  double RectSum(Table table, long c0, long c1, long r0, long r1) const;
  double WindowSum(Table table, long col, long row, int i) const { return RectSum(table, col - i, col + i, row - i, row + i); }
  // Advances the running state (extremes or vertical sums) to radius i.
  void AdvanceTo(int i);
  void StepExtremes();
  void StepVerticalSums();
  double HorizontalSum(long col, long row, int i) const;

  double MeasureAt(long col, long row, int i) const;
  double ContrastRatio(long col, long row, int i, bool horizontal) const;
  double NormalisedDifference(long col, long row, int i, bool horizontal) const;

  const double* Data;
  long Cols;
  long Rows;
  int MeasType;
  double PowExponent;
  bool Ready = false;

  Ipg_SummedArea<Wide> Sums[3];
  std::vector<double> Terms; // ln w or w^q per pixel (0 where w <= 0), or the extreme's input
  std::vector<double> Running; // current extremes or vertical sums
  int RunningRadius = -1;
};
