// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_morpho_runs.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <type_traits>

namespace {

// A run of set flags: its element row and first column relative to the centre,
// its length, and the power of two whose table covers it in two reads.
struct Run {
  int Dy = 0;
  int Dx = 0;
  int Length = 0;
  int Level = 0; // index into the table: the run length 2^Level
};

int FloorLog2(int n)
{
  int level = 0;
  while ((2 << level) <= n)
    ++level;
  return level;
}

std::vector<Run> RunsOf(const std::vector<unsigned char>& element, int sizeX, int sizeY)
{
  std::vector<Run> runs;
  for (int y = 0; y < sizeY; ++y)
    for (int x = 0; x < sizeX;) {
      if (element[static_cast<std::size_t>(y) * sizeX + x] == 0) {
        ++x;
        continue;
      }
      int end = x;
      while (end < sizeX && element[static_cast<std::size_t>(y) * sizeX + end] != 0)
        ++end;
      const int length = end - x;
      runs.push_back({y - sizeY / 2, x - sizeX / 2, length, FloorLog2(length)});
      x = end;
    }
  return runs;
}

struct Lower {
  template <typename T>
  T operator()(T a, T b) const
  {
    return a < b ? a : b;
  }
};
struct Higher {
  template <typename T>
  T operator()(T a, T b) const
  {
    return a > b ? a : b;
  }
};

// Output rows are computed a chunk at a time so that the table stays in cache.
constexpr int kChunkRows = 32;

// What every chunk shares: the input as raw rows, the runs, the output.
struct ChunkScan {
  const int* In = nullptr;
  const DCM_STRUCT* Roi = nullptr;
  int Cols = 0;
  int Rows = 0;
  int Neutral = 0; // what a pixel that takes no part becomes
  const std::vector<Run>& Runs;
  int Levels = 1; // table levels: lengths 1 .. 2^(Levels - 1)
  int HalfX = 0;
  int HalfY = 0;
  int Init = 0;
  int* Out = nullptr;
  // The 16-bit scan: taken by chunks whose taking-part levels lie strictly
  // inside the 16-bit range, so that its bounds stay free for what takes no
  // part (Neutral16) and, where the initial value lies beyond every level on
  // that side, for the initial value too (written back as Init).
  bool Narrow = false;
  short Neutral16 = 0;
  short Init16 = 0;
};

constexpr int kNarrowLowest = SHRT_MIN + 1;
constexpr int kNarrowHighest = SHRT_MAX - 1;

// Writes 16-bit extremes into an output row, Neutral16 as the initial value
// it stands for, and measures them on the way: the mapping keeps the order, so
// the extremes written are the mapped extremes.
class NarrowWriter {
public:
  explicit NarrowWriter(const ChunkScan& scan) : Beyond(scan.Neutral16), Written(scan.Init) {}
  [[gnu::always_inline]] void Put(int* a, int j, short v)
  {
    a[j] = v == Beyond ? Written : v;
    Lowest = std::min(Lowest, v);
    Highest = std::max(Highest, v);
  }
  void AddTo(IPG_BAND_EXTREMES& seen) const
  {
    seen.Add(Lowest == Beyond ? Written : Lowest);
    seen.Add(Highest == Beyond ? Written : Highest);
  }

private:
  short Beyond;
  int Written;
  short Lowest = SHRT_MAX;
  short Highest = SHRT_MIN;
};

// An output row from an element of N runs, all taken in one walk: the
// extreme of the initial value and of each run's two table reads, in the
// order of a walk per run, which min and max make the same anyway. In 16 bits
// the row is measured as it is written.
template <int N, typename E, class Level, class Pick>
[[gnu::always_inline]] inline void RunsInOneWalk(const ChunkScan& scan, int row, int from, int width, const Level& level,
                                                 Pick pick, int* a, IPG_BAND_EXTREMES* seen)
{
  const E* s[N];
  const E* t[N];
  for (int k = 0; k < N; ++k) {
    const Run& run = scan.Runs[static_cast<std::size_t>(k)];
    s[k] = level(run.Level, row + run.Dy) + from + run.Dx;
    t[k] = s[k] + (run.Length - (1 << run.Level));
  }
  if constexpr (std::is_same_v<E, short>) {
    const short init = scan.Init16;
    NarrowWriter writer(scan);
    for (int j = 0; j < width; ++j) {
      short extreme = init;
      for (int k = 0; k < N; ++k)
        extreme = pick(extreme, pick(s[k][j], t[k][j]));
      writer.Put(a, j, extreme);
    }
    if (seen != nullptr)
      writer.AddTo(*seen);
  } else {
    const int init = scan.Init;
    for (int j = 0; j < width; ++j) {
      int extreme = init;
      for (int k = 0; k < N; ++k)
        extreme = pick(extreme, pick(s[k][j], t[k][j]));
      a[j] = extreme;
    }
    if (seen != nullptr)
      Ipg_AddRowExtremes(a, width, *seen);
  }
}

// The frame columns of an output row, which the walks do not measure.
void AddFrameExtremes(const int* a, int from, int width, int cols, IPG_BAND_EXTREMES& seen)
{
  Ipg_AddRowExtremes(a - from, from, seen);
  Ipg_AddRowExtremes(a + width, cols - from - width, seen);
}

// Level 0 of a chunk in 16 bits: the taking-part levels, Neutral16 for the
// others; false when a taking-part level lies outside the narrow range.
[[gnu::always_inline]] inline bool NarrowRow(const ChunkScan& scan, const int* from, IPG_ROI_ROW roiRow, short* to)
{
  int lowest = 0, highest = 0;
  const int neutral = scan.Neutral16;
  const int cols = scan.Cols;
  // Bit masks per pixel, the form the vectoriser takes.
  const auto narrow = [&](int c, bool inside) {
    const int v = from[c];
    const int keep = -static_cast<int>(inside & ((v <= kIpgMaxGrey) | (v == kIpgMaskValue)));
    const int part = v & keep;
    lowest = std::min(lowest, part);
    highest = std::max(highest, part);
    to[c] = static_cast<short>(part | (neutral & ~keep));
  };
  if (roiRow.Values == nullptr)
    for (int c = 0; c < cols; ++c)
      narrow(c, true);
  else
    for (int c = 0; c < cols; ++c)
      narrow(c, roiRow.Inside(static_cast<unsigned>(c)));
  return lowest >= kNarrowLowest && highest <= kNarrowHighest;
}

// table[level][r][c] = extreme of the prepared input row r over columns
// c .. c + 2^level - 1, for the rows output rows [begin, end) read. In 16 bits
// (E short), false without writing anything when a level does not fit.
template <class Pick, typename E>
[[gnu::always_inline]] inline bool ScanRows(const ChunkScan& scan, int begin, int end, std::vector<E>& table,
                                            Pick pick, IPG_BAND_EXTREMES* seen)
{
  const int cols = scan.Cols;
  const int first = begin - scan.HalfY, count = end - begin + 2 * scan.HalfY;
  const std::size_t plane = static_cast<std::size_t>(count) * cols;
  auto level = [&](int l, int inputRow) { return table.data() + l * plane + static_cast<std::size_t>(inputRow - first) * cols; };
  for (int r = first; r < first + count; ++r) {
    const IPG_ROI_ROW roiRow = Ipg_RoiRow(scan.Roi, static_cast<unsigned>(r));
    const int* from = scan.In + static_cast<std::size_t>(r) * cols;
    E* to = level(0, r);
    if constexpr (std::is_same_v<E, short>) {
      if (!NarrowRow(scan, from, roiRow, to))
        return false;
      continue;
    } else if (roiRow.Values == nullptr) { // a bit mask per pixel, the form the vectoriser takes
      const int neutral = scan.Neutral;
      for (int c = 0; c < cols; ++c) {
        const int keep = -static_cast<int>(Ipg_MorphoTakesPart(from[c]));
        to[c] = (from[c] & keep) | (neutral & ~keep);
      }
      continue;
    }
    for (int c = 0; c < cols; ++c)
      to[c] = roiRow.Inside(static_cast<unsigned>(c)) && Ipg_MorphoTakesPart(from[c]) ? from[c] : scan.Neutral;
  }
  for (int l = 1; l < scan.Levels; ++l) {
    const int half = 1 << (l - 1);
    for (int r = first; r < first + count; ++r) {
      const E* below = level(l - 1, r);
      E* to = level(l, r);
      for (int c = 0; c + half < cols; ++c)
        to[c] = pick(below[c], below[c + half]);
    }
  }
  const int from = scan.HalfX, width = cols - 2 * scan.HalfX;
  for (int row = begin; row < end; ++row) {
    // The rows the next chunk brings in, one per row written here.
    if (const int ahead = end + scan.HalfY + (row - begin); ahead < scan.Rows)
      Ipg_PrefetchRow(scan.In + static_cast<std::size_t>(ahead) * cols, cols);
    int* a = scan.Out + static_cast<std::size_t>(row) * cols + from;
    if (scan.Runs.empty())
      std::fill(a, a + width, scan.Init);
    if (const std::size_t n = scan.Runs.size(); n == 3 || n == 5 || n == 7) {
      if (n == 3)
        RunsInOneWalk<3, E>(scan, row, from, width, level, pick, a, seen);
      else if (n == 5)
        RunsInOneWalk<5, E>(scan, row, from, width, level, pick, a, seen);
      else
        RunsInOneWalk<7, E>(scan, row, from, width, level, pick, a, seen);
      if (seen != nullptr)
        AddFrameExtremes(a, from, width, cols, *seen);
      continue;
    }
    // The first run starts from the initial value rather than from a row
    // filled with it; in 16 bits the extremes gather in the row after the
    // table, then are widened as RunsInOneWalk writes them.
    E* into;
    E init;
    if constexpr (std::is_same_v<E, short>) {
      into = table.data() + static_cast<std::size_t>(scan.Levels) * plane;
      init = scan.Init16;
    } else {
      into = a;
      init = scan.Init;
    }
    for (std::size_t k = 0; k < scan.Runs.size(); ++k) {
      const Run& run = scan.Runs[k];
      const E* s = level(run.Level, row + run.Dy) + from + run.Dx;
      const E* t = s + (run.Length - (1 << run.Level));
      if (k == 0)
        for (int j = 0; j < width; ++j)
          into[j] = pick(init, pick(s[j], t[j]));
      else
        for (int j = 0; j < width; ++j)
          into[j] = pick(into[j], pick(s[j], t[j]));
    }
    if constexpr (std::is_same_v<E, short>) {
      NarrowWriter writer(scan);
      for (int j = 0; j < width; ++j)
        writer.Put(a, j, into[j]);
      if (seen != nullptr) {
        writer.AddTo(*seen);
        AddFrameExtremes(a, from, width, cols, *seen);
      }
    } else if (seen != nullptr) { // the whole row, while it is in the cache
      Ipg_AddRowExtremes(a - from, cols, *seen);
    }
  }
  return true;
}

template <class Pick, typename E>
bool ScanRowsPlain(const ChunkScan& scan, int begin, int end, std::vector<E>& table, IPG_BAND_EXTREMES* seen)
{
  return ScanRows(scan, begin, end, table, Pick{}, seen);
}

#if defined(__x86_64__)
template <class Pick, typename E>
[[gnu::target("avx2")]] bool ScanRowsAvx2(const ChunkScan& scan, int begin, int end, std::vector<E>& table,
                                          IPG_BAND_EXTREMES* seen)
{
  return ScanRows(scan, begin, end, table, Pick{}, seen);
}
#endif

template <class Pick, typename E>
bool ScanChunk(const ChunkScan& scan, int begin, int end, std::vector<E>& table, IPG_BAND_EXTREMES* seen, bool avx2)
{
#if defined(__x86_64__)
  if (avx2)
    return ScanRowsAvx2<Pick>(scan, begin, end, table, seen);
#endif
  static_cast<void>(avx2);
  return ScanRowsPlain<Pick>(scan, begin, end, table, seen);
}

template <class Pick>
void ScanInBands(const ChunkScan& scan, IPG_BAND_EXTREMES* seen)
{
  const int rows = scan.Rows - 2 * scan.HalfY;
  const bool avx2 = Ipg_UseAvx2();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(scan.Cols));
  std::vector<IPG_BAND_EXTREMES> seenByBand(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
                 IPG_BAND_EXTREMES* bandSeen = seen != nullptr ? &seenByBand[band] : nullptr;
                 const std::size_t tableSize =
                     static_cast<std::size_t>(scan.Levels) * (kChunkRows + 2 * scan.HalfY) * scan.Cols;
                 std::vector<int> table;
                 std::vector<short> narrowTable;
                 for (int r = static_cast<int>(begin); r < static_cast<int>(end); r += kChunkRows) {
                   const int first = r + scan.HalfY, last = std::min<int>(r + kChunkRows, static_cast<int>(end)) + scan.HalfY;
                   if (scan.Narrow) {
                     narrowTable.resize(tableSize + static_cast<std::size_t>(scan.Cols));
                     if (ScanChunk<Pick>(scan, first, last, narrowTable, bandSeen, avx2))
                       continue;
                   }
                   table.resize(tableSize);
                   ScanChunk<Pick>(scan, first, last, table, bandSeen, avx2);
                 }
               });
  if (seen != nullptr)
    for (const IPG_BAND_EXTREMES& b : seenByBand)
      Ipg_MergeExtremes(*seen, b);
}

} // namespace

bool Ipg_MorphoScanRuns(const DCM_STRUCT& in, const DCM_STRUCT* roi, const std::vector<unsigned char>& element,
                        int sizeX, int sizeY, Ipg_MorphoKind kind, int init, int* out, IPG_BAND_EXTREMES* seen)
{
  if (sizeX < 1 || sizeY < 1 || element.size() < static_cast<std::size_t>(sizeX) * sizeY)
    return false;
  const int cols = static_cast<int>(in.Data->GetNbOfCols()), rows = static_cast<int>(in.Data->GetNbOfRows());
  if (cols < sizeX || rows < sizeY)
    return false; // no pixel lies half an element from every edge
  const std::vector<Run> runs = RunsOf(element, sizeX, sizeY);
  int levels = 1;
  for (const Run& run : runs)
    levels = std::max(levels, run.Level + 1);
  const bool erosion = kind == Ipg_MorphoKind::Erosion;
  ChunkScan scan{in.Data->GetIDataAddress(), roi, cols, rows, erosion ? INT_MAX : INT_MIN, runs, levels,
                 sizeX / 2, sizeY / 2, init, out};
  // Beyond every level on the neutral side, the initial value acts as the neutral one.
  const bool initInside = init >= kNarrowLowest && init <= kNarrowHighest;
  const bool initBeyond = erosion ? init > kNarrowHighest : init < kNarrowLowest;
  scan.Narrow = !runs.empty() && (initInside || initBeyond);
  scan.Neutral16 = erosion ? SHRT_MAX : SHRT_MIN;
  scan.Init16 = initInside ? static_cast<short>(init) : scan.Neutral16;
  if (erosion)
    ScanInBands<Lower>(scan, seen);
  else
    ScanInBands<Higher>(scan, seen);
  return true;
}
