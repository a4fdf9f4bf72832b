// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_run_labelling.h"

#include "ipg/internal/ipg_representative_sets.h"
#include "ipg/internal/ipg_resident_pool.h"
#include "ipg/internal/ipg_row_bands.h"

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
      if (AboveFlags[col]) { // the common case: a stretch under set pixels copies their labels
        const int under = EndOfStretch(AboveFlags, col, end, 1);
        std::copy(AboveLabels + col, AboveLabels + under, Labels + col);
        col = under - 1;
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

// Replaying the table's pairs in its (i, j) order on representative-carrying
// sets gives the same classes and the same surviving label for each.
void IPG_RUN_LABELLING::Resolve(Ipg_LabelPairs& pairs, std::vector<int>& componentOfLabel,
                                std::vector<int>& sizes) const
{
  Ipg_RepresentativeSets sets(Issued);
  for (const std::uint32_t key : pairs.Sorted())
    sets.Join(static_cast<int>(key >> 16), static_cast<int>(key & 0xFFFFu));
  std::vector<int> componentOfRep(static_cast<std::size_t>(Issued), -1);
  sizes.clear();
  for (int l = 0; l < Issued; ++l)
    if (sets.RepresentativeOf(l) == l) {
      componentOfRep[static_cast<std::size_t>(l)] = static_cast<int>(sizes.size());
      sizes.push_back(0);
    }
  componentOfLabel.assign(static_cast<std::size_t>(Issued), 0);
  for (int l = 0; l < Issued; ++l) {
    const int k = componentOfRep[static_cast<std::size_t>(sets.RepresentativeOf(l))];
    componentOfLabel[static_cast<std::size_t>(l)] = k;
    sizes[static_cast<std::size_t>(k)] += Counts[static_cast<std::size_t>(l)];
  }
}

void IPG_RUN_LABELLING::WriteResidents(const std::vector<int>& componentOfLabel,
                                       const std::vector<MTH_2D_DOUBLE*>& starts, int cols) const
{
  const unsigned rows = static_cast<unsigned>(RowStarts.size() - 1);
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, static_cast<std::size_t>(cols));
  const std::size_t nbComponents = starts.size();
  auto componentOf = [&](const IPG_LABEL_RUN& run) {
    return static_cast<std::size_t>(componentOfLabel[static_cast<std::size_t>(run.Label)]);
  };
  // Where each band starts in each component: after the pixels of the bands above.
  std::vector<MTH_2D_DOUBLE*> next(bands.Count * nbComponents);
  std::copy(starts.begin(), starts.end(), next.begin());
  for (unsigned band = 1; band < bands.Count; ++band) {
    MTH_2D_DOUBLE** into = next.data() + band * nbComponents;
    std::copy_n(into - nbComponents, nbComponents, into);
    for (std::size_t r = RowStarts[bands.Begin(band - 1)]; r < RowStarts[bands.End(band - 1)]; ++r)
      into[componentOf(Runs[r])] += Runs[r].Length;
  }
  Ipg_RunBands(bands, [&](unsigned band, unsigned firstRow, unsigned endRow) {
    MTH_2D_DOUBLE** at = next.data() + band * nbComponents;
    for (unsigned row = firstRow; row < endRow; ++row)
      for (std::size_t r = RowStarts[row]; r < RowStarts[row + 1]; ++r) {
        MTH_2D_DOUBLE*& to = at[componentOf(Runs[r])];
        for (int col = Runs[r].Start; col < Runs[r].Start + Runs[r].Length; ++col)
          IPG_RESIDENT_POOL::Place(to++, col, static_cast<int>(row));
      }
  });
}
