// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_run_labelling.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint64_t kEightSet = 0x0101010101010101ull;

std::uint64_t EightFlags(const unsigned char* at)
{
  std::uint64_t word;
  std::memcpy(&word, at, sizeof word);
  return word;
}

// The first column from `from` on whose flag differs from `flag` (cols when none).
int EndOfStretch(const unsigned char* mask, int from, int cols, unsigned char flag)
{
  const std::uint64_t same = flag != 0 ? kEightSet : 0;
  int c = from;
  while (c + 8 <= cols && EightFlags(mask + c) == same)
    c += 8;
  while (c < cols && mask[c] == flag)
    ++c;
  return c;
}

// One row's object flags and provisional labels, with a zero column on each
// side so that the neighbours of the first and last columns need no test.
struct PaddedRow {
  std::vector<unsigned char> FlagStore;
  std::vector<int> LabelStore;
  explicit PaddedRow(int cols) : FlagStore(static_cast<std::size_t>(cols) + 2, 0), LabelStore(FlagStore.size(), 0) {}
  unsigned char* Flags() { return FlagStore.data() + 1; }
  int* Labels() { return LabelStore.data() + 1; }
};

} // namespace

// The scan of one row against the row above.
struct IPG_RUN_LABELLING::RowScan {
  IPG_RUN_LABELLING& Out;
  Ipg_LabelPairs& Pairs;
  const unsigned char* AboveFlags;
  const int* AboveLabels;
  int* Labels;
  int NbCompMax;
  bool LastRow;
  int Cols;

  void Pair(int first, int other)
  {
    if (other != first)
      Pairs.Add(static_cast<unsigned>(std::min(first, other)), static_cast<unsigned>(std::max(first, other)));
  }

  // Label of the run's first pixel, from above, above-left and above-right;
  // -1 when the label limit strikes.
  int FirstPixel(int col)
  {
    if (AboveFlags[col])
      return AboveLabels[col];
    const bool left = AboveFlags[col - 1] != 0, right = AboveFlags[col + 1] != 0;
    if (left) {
      if (right)
        Pair(AboveLabels[col - 1], AboveLabels[col + 1]);
      return AboveLabels[col - 1];
    }
    if (right)
      return AboveLabels[col + 1];
    return Issue(col);
  }

  int Issue(int col)
  {
    if (Out.Issued == NbCompMax)
      return -1;
    const int label = Out.Issued++;
    Out.Counts.push_back(0);
    // The limit reached with pixels still to visit fails at the next one.
    if (Out.Issued == NbCompMax && !(LastRow && col == Cols - 1))
      return -1;
    return label;
  }

  // The rest of the run: above if set, else the first of above-left,
  // above-right and left, paired with the others.
  void RestOfRun(int start, int end)
  {
    for (int col = start + 1; col < end; ++col) {
      if (AboveFlags[col]) {
        Labels[col] = AboveLabels[col];
        continue;
      }
      int found[3];
      int n = 0;
      if (AboveFlags[col - 1])
        found[n++] = AboveLabels[col - 1];
      if (AboveFlags[col + 1])
        found[n++] = AboveLabels[col + 1];
      found[n++] = Labels[col - 1];
      const int first = found[0];
      for (int k = 1; k < n; ++k)
        Pair(first, found[k]);
      Labels[col] = first;
    }
  }
};

IPG_RUN_LABELLING::Outcome IPG_RUN_LABELLING::Scan(const int* pixels, int cols, int rows, int value, int nbCompMax,
                                                   Ipg_LabelPairs& pairs)
{
  Runs.clear();
  RowStarts.assign(1, 0);
  Counts.clear();
  Issued = 0;
  if (cols <= 0 || rows <= 0)
    return Outcome::Done;
  if (nbCompMax <= 0)
    return Outcome::TooManyLabels; // the limit is reached before the first pixel
  PaddedRow above(cols), current(cols);
  for (int row = 0; row < rows; ++row) {
    const int* line = pixels + static_cast<std::size_t>(row) * cols;
    unsigned char* flags = current.Flags();
    for (int col = 0; col < cols; ++col)
      flags[col] = line[col] == value ? 1 : 0;
    RowScan scan{*this, pairs, above.Flags(), above.Labels(), current.Labels(), nbCompMax, row == rows - 1, cols};
    for (int col = EndOfStretch(flags, 0, cols, 0); col < cols; col = EndOfStretch(flags, col, cols, 0)) {
      const int end = EndOfStretch(flags, col, cols, 1);
      const int label = scan.FirstPixel(col);
      if (label < 0)
        return Outcome::TooManyLabels;
      scan.Labels[col] = label;
      scan.RestOfRun(col, end);
      Runs.push_back({col, end - col, label});
      Counts[static_cast<std::size_t>(label)] += end - col;
      col = end;
    }
    RowStarts.push_back(Runs.size());
    std::swap(above, current);
  }
  return Outcome::Done;
}
