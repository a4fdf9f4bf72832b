// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_label_pairs.h"
#include "mth/mth_2d_double.h"

#include <cstddef>
#include <vector>

// One horizontal run of object pixels: columns [Start, Start + Length) of its
// row, all of one component; Label is the provisional label of its first pixel.
struct IPG_LABEL_RUN {
  int Start;
  int Length;
  int Label;
};

// First pass of the 8-connected raster labelling, read as runs.
//
// The provisional labels, their count and the pairs that meet are exactly those
// of the pixel-by-pixel scan that takes, in this order, the labels of the
// neighbours above, above-left, above-right and left: the component numbering
// follows the surviving provisional labels and the label limit counts them, so
// callers rely on both. That rules out the block-based scans (Grana, Borghesani
// & Cucchiara, "Optimized block-based connected components labeling with
// decision trees", IEEE Trans. Image Processing 19(6), 2010), which issue other
// labels. What is kept of the decision-tree scan (Wu, Otoo & Suzuki,
// "Optimizing two-pass connected-component labeling algorithms", Pattern
// Analysis and Applications 12(2), 2009) is its first test: a pixel whose
// neighbour above is set takes that label and records nothing new, since every
// other labelled neighbour touches that one and was paired with it already.
// New labels can only start a run, so most pixels cost one test, and the runs
// let the residents be written later without reading the image again.
class IPG_RUN_LABELLING {
public:
  enum class Outcome { Done, TooManyLabels };

  // Labels the pixels equal to value. The scan fails as the pixel scan does:
  // once nbCompMax labels are issued, visiting any further pixel (object or
  // not) is too many. Bands of rows are scanned side by side when there are
  // threads for them, with the same labels, runs and pairs.
  Outcome Scan(const int* pixels, int cols, int rows, int value, int nbCompMax, Ipg_LabelPairs& pairs);

  // Resolves the pairs in the order of an equivalence table read pair by pair,
  // each merge moving toward the representative of the higher label: the
  // components are numbered by ascending surviving label. Fills the component
  // of every provisional label and the size of every component.
  void Resolve(Ipg_LabelPairs& pairs, std::vector<int>& componentOfLabel, std::vector<int>& sizes) const;

  // Writes every object pixel, as (column, row), at the next free place of its
  // component, component k's places starting at starts[k] and filling in raster
  // order; bands of rows are written side by side.
  void WriteResidents(const std::vector<int>& componentOfLabel, const std::vector<MTH_2D_DOUBLE*>& starts,
                      int cols) const;

  std::vector<IPG_LABEL_RUN> Runs;     // in raster order
  std::vector<std::size_t> RowStarts;  // runs of row r: [RowStarts[r], RowStarts[r + 1])
  std::vector<int> Counts;             // object pixels per provisional label
  int Issued = 0;                      // provisional labels issued

private:
  bool ScanInBands(const int* pixels, int cols, int rows, int value, int nbCompMax, Ipg_LabelPairs& pairs);
};
