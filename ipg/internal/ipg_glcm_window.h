// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Co-occurrence counts of a window that slides along a row of quantised pixels,
// kept up to date column by column instead of being recounted at every
// position: the running-histogram update of Huang, Yang & Tang ("A fast
// two-dimensional median filtering algorithm", IEEE Trans. ASSP 27(1), 1979)
// applied to pixel pairs instead of pixels. Alongside the counts it keeps the integer sums that the
// Haralick features need, so a feature costs O(1) (homogeneity O(levels))
// per position whatever the window size.
//
// A pixel's class is 0..levels-1, or negative when it is not selected (outside
// the ROI, a mark): a pair counts only when both of its pixels are selected and
// lie inside the window box. With `symmetric` every pair also counts in the
// transposed cell, as the whole-image texture measure does.

// Feature numbers shared by the texture operators.
enum Ipg_GlcmFeature { kIpgEnergy = 0, kIpgContrast, kIpgCorrelation, kIpgHomogeneity, kIpgEntropy };
inline constexpr int kIpgGlcmFeatureCount = 5;

class Ipg_SlidingGlcm {
public:
  // classes: row-major, cols to a row; (dcol, drow): the pair displacement.
  Ipg_SlidingGlcm(const int* classes, int cols, int levels, int dcol, int drow, bool symmetric);

  void Clear();
  // Adds (sign +1) or removes (sign -1) every pair that has a pixel in column
  // `col` and both pixels in columns colLo..colHi x rows rowLo..rowHi. Adding
  // the entering column with the new box and removing the leaving column with
  // the old one turns one window's counts into the next one's.
  void UpdateColumn(int col, int colLo, int colHi, int rowLo, int rowHi, int sign);

  // Pair counts of the current window (transposed ones included when symmetric).
  std::int64_t Total() const { return Pairs; }
  const std::vector<std::int64_t>& Counts() const { return Cells; } // levels x levels
  // The feature of the normalised matrix, as Ipg_GlcmFeaturesOf defines it; 0
  // without pairs.
  double Feature(int feature) const;

private:
  void Count(int i, int j, int sign);
  void CountPair(std::ptrdiff_t first, std::ptrdiff_t second, int sign);
  double CellEntropyTerm(std::int64_t count) const; // count ln count

  const int* Classes;
  int Cols, Levels, Dcol, Drow;
  bool Symmetric;
  std::vector<std::int64_t> Cells;
  std::vector<std::int64_t> Differences; // counts by |i - j|
  std::vector<double> CountLogCount;      // c ln c for the counts a window can reach
  std::int64_t Pairs = 0;
  std::int64_t SumSquares = 0;  // sum c^2
  std::int64_t SumContrast = 0; // sum (i - j)^2 c
  std::int64_t SumI = 0, SumJ = 0, SumII = 0, SumJJ = 0, SumIJ = 0;
  double SumCountLogCount = 0.0; // sum c ln c
};
