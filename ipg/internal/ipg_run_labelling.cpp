// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_run_labelling.h"

#include "ipg/internal/ipg_representative_sets.h"
#include "ipg/internal/ipg_resident_pool.h"
#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
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

namespace {

// A label refused: the label limit strikes.
constexpr int kRefused = INT_MIN;

// The scan of one row against the row above, recording into a Book: Issue(col)
// gives the label of a run starting at col (or kRefused), and Pair(a, b)
// records two labels that meet.
template <typename Book>
struct RowScan {
  Book& Out;
  const unsigned char* AboveFlags;
  const int* AboveLabels;
  int* Labels;

  void Pair(int first, int other)
  {
    if (other != first)
      Out.Pair(first, other);
  }

  // Label of the run's first pixel, from above, above-left and above-right.
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
    return Out.Issue(col);
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

void FlagRow(const int* line, int cols, int value, unsigned char* flags)
{
  for (int col = 0; col < cols; ++col)
    flags[col] = line[col] == value ? 1 : 0;
}

// Scans rows [begin, end) below the row `above` holds; each run found goes to
// addRun(col, end, label), each finished row to endRow(). False when a label
// is refused.
template <typename Book, typename AddRun, typename EndRow>
bool ScanRows(const int* pixels, int cols, int value, int begin, int end, PaddedRow& above, PaddedRow& current,
              Book& book, AddRun addRun, EndRow endRow)
{
  for (int row = begin; row < end; ++row) {
    unsigned char* flags = current.Flags();
    FlagRow(pixels + static_cast<std::size_t>(row) * cols, cols, value, flags);
    book.LastRow = row == end - 1;
    RowScan<Book> scan{book, above.Flags(), above.Labels(), current.Labels()};
    for (int col = EndOfStretch(flags, 0, cols, 0); col < cols; col = EndOfStretch(flags, col, cols, 0)) {
      const int runEnd = EndOfStretch(flags, col, cols, 1);
      const int label = scan.FirstPixel(col);
      if (label == kRefused)
        return false;
      scan.Labels[col] = label;
      scan.RestOfRun(col, runEnd);
      addRun(col, runEnd, label);
      col = runEnd;
    }
    endRow();
    std::swap(above, current);
  }
  return true;
}

// The book of the whole-image scan: labels in issue order, under the limit.
struct ImageBook {
  IPG_RUN_LABELLING& Out;
  Ipg_LabelPairs& Pairs;
  int NbCompMax;
  int Cols;
  bool LastRow = false;

  void Pair(int a, int b) { Pairs.Add(static_cast<unsigned>(std::min(a, b)), static_cast<unsigned>(std::max(a, b))); }

  int Issue(int col)
  {
    if (Out.Issued == NbCompMax)
      return kRefused;
    const int label = Out.Issued++;
    Out.Counts.push_back(0);
    // The limit reached with pixels still to visit fails at the next one.
    if (Out.Issued == NbCompMax && !(LastRow && col == Cols - 1))
      return kRefused;
    return label;
  }
};

// One band of rows scanned on its own: labels issued from 0, and the pixels of
// the row above the band, whose labels the band above gives, stand for
// themselves as -1 - column. Pairs are kept as met, to be renamed.
struct BandBook {
  int Issued = 0;
  bool LastRow = false;
  std::vector<IPG_LABEL_RUN> Runs;
  std::vector<std::size_t> RowEnds; // runs of the band's rows end here
  std::vector<std::pair<int, int>> Pairs;
  std::vector<int> LastLabels; // the labels of the band's last row

  void Pair(int a, int b)
  {
    if (Pairs.empty() || Pairs.back() != std::pair{a, b})
      Pairs.emplace_back(a, b);
  }
  int Issue(int) { return Issued++; }
};

void ScanBand(const int* pixels, int cols, int value, int begin, int end, BandBook& book)
{
  PaddedRow above(cols), current(cols);
  if (begin > 0) {
    FlagRow(pixels + static_cast<std::size_t>(begin - 1) * cols, cols, value, above.Flags());
    for (int col = 0; col < cols; ++col)
      above.Labels()[col] = -1 - col;
  }
  ScanRows(
      pixels, cols, value, begin, end, above, current, book,
      [&](int col, int runEnd, int label) { book.Runs.push_back({col, runEnd - col, label}); },
      [&] { book.RowEnds.push_back(book.Runs.size()); });
  book.LastLabels.assign(above.Labels(), above.Labels() + cols); // the last row, swapped into above
}

} // namespace

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
  if (ScanInBands(pixels, cols, rows, value, nbCompMax, pairs))
    return Outcome::Done;
  PaddedRow above(cols), current(cols);
  ImageBook book{*this, pairs, nbCompMax, cols};
  const bool done = ScanRows(
      pixels, cols, value, 0, rows, above, current, book,
      [&](int col, int end, int label) {
        Runs.push_back({col, end - col, label});
        Counts[static_cast<std::size_t>(label)] += end - col;
      },
      [&] { RowStarts.push_back(Runs.size()); });
  return done ? Outcome::Done : Outcome::TooManyLabels;
}

// Bands of rows scanned side by side, then renamed in raster order: a band's
// own labels follow those of the bands above, and a label taken from the row
// above the band is that pixel's final label. The labels, runs and pairs are
// the whole-image scan's. Declines (false, nothing kept) with one band, when
// the labels reach the limit (the whole-image scan says where it strikes) or
// when memory runs out.
bool IPG_RUN_LABELLING::ScanInBands(const int* pixels, int cols, int rows, int value, int nbCompMax,
                                    Ipg_LabelPairs& pairs)
{
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols));
  if (bands.Count < 2)
    return false;
  std::vector<BandBook> books(bands.Count);
  std::atomic<bool> failed{false};
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    try {
      ScanBand(pixels, cols, value, static_cast<int>(begin), static_cast<int>(end), books[band]);
    } catch (const std::bad_alloc&) {
      failed = true;
    }
  });
  long long total = 0;
  for (const BandBook& book : books)
    total += book.Issued;
  if (failed || total >= nbCompMax)
    return false;
  std::vector<int> aboveFinal(static_cast<std::size_t>(cols), 0), lastFinal(aboveFinal.size(), 0);
  int offset = 0;
  for (BandBook& book : books) {
    const auto final = [&](int label) { return label >= 0 ? offset + label : aboveFinal[static_cast<std::size_t>(-1 - label)]; };
    for (IPG_LABEL_RUN& run : book.Runs)
      run.Label = final(run.Label);
    for (const auto& [a, b] : book.Pairs)
      if (const int fa = final(a), fb = final(b); fa != fb)
        pairs.Add(static_cast<unsigned>(std::min(fa, fb)), static_cast<unsigned>(std::max(fa, fb)));
    // The final labels of the band's last row, which the next band reads (only
    // its runs' pixels: the others are never read).
    const std::size_t lastBegin = book.RowEnds.size() > 1 ? book.RowEnds[book.RowEnds.size() - 2] : 0;
    for (std::size_t r = lastBegin; r < book.Runs.size(); ++r)
      for (int col = book.Runs[r].Start; col < book.Runs[r].Start + book.Runs[r].Length; ++col)
        lastFinal[static_cast<std::size_t>(col)] = final(book.LastLabels[static_cast<std::size_t>(col)]);
    const std::size_t first = Runs.size();
    Runs.insert(Runs.end(), book.Runs.begin(), book.Runs.end());
    for (const std::size_t rowEnd : book.RowEnds)
      RowStarts.push_back(first + rowEnd);
    offset += book.Issued;
    aboveFinal.swap(lastFinal);
  }
  Issued = offset;
  Counts.assign(static_cast<std::size_t>(Issued), 0);
  for (const IPG_LABEL_RUN& run : Runs)
    Counts[static_cast<std::size_t>(run.Label)] += run.Length;
  return true;
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
        IPG_RESIDENT_POOL::PlaceRun(to, Runs[r].Start, Runs[r].Start + Runs[r].Length, static_cast<int>(row));
        to += Runs[r].Length;
      }
    IPG_RESIDENT_POOL::Fence();
  });
}
