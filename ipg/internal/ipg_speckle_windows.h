// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_row_bands.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <vector>

// Window statistics of the despeckling passes, computed a row at a time.
//
// The tables are the row-run summed-area tables of the values and of their
// squares (Ipg_SummedArea::ByRowRuns), and a window's sums are read with the
// left strip subtracted first (Ipg_SummedArea::Over): every sum, mean and
// variance is bit for bit the one those give, only without clipping the
// windows of inner pixels one at a time.
//
// A band of rows keeps only the table rows its windows reach, in a ring that
// is extended as the band walks down: a few rows instead of two images of
// doubles. Table row t is the row above plus the running sums of image row
// t - 1, so a band that starts lower down is seeded with the table row above
// its first window, computed by a walk from the top (Ipg_RunWindowBands):
// every band adds in the same order as one walk over the whole image.
class Ipg_WindowTables {
public:
  // A band of the rows [first, end) of a cols x rows image (and of row end,
  // for a pass that looks one row ahead) whose windows have half sizes up to
  // reach. seed holds table row max(0, first - reach), its sums then its sums
  // of squares (cols + 1 values each); null when that is row 0.
  void Start(const double* in, int cols, int rows, int reach, int first, int end, const double* seed);

  // Count, sum and sum of squares of the window of half size (at most reach)
  // around (col, row), clipped. Rows come in increasing order.
  void Window(int col, int row, int half, double& count, double& sum, double& squares);

  // Mean and population variance (max(0, squares / count - mean^2)) of the
  // clipped windows of every pixel of row, into mean[0 .. cols) and variance[0 .. cols).
  void RowMoments(int row, int half, double* mean, double* variance);

  // The table rows the windows of half size around row read, built first
  // when needed: the sums over an inner window (InnerColumns) at c are
  // Bottom[c + half + 1] - Bottom[c - half] - Top[c + half + 1] + Top[c - half]
  // of the sums and of the squares, in that order, over InnerCount pixels.
  struct Lines {
    const double* SumTop;
    const double* SumBottom;
    const double* SquaresTop;
    const double* SquaresBottom;
    double InnerCount;
  };
  Lines RowLines(int row, int half);

  // The columns [begin, end) of a cols-wide row whose windows of half size
  // span 2 half + 1 columns.
  static void InnerColumns(int cols, int half, int& begin, int& end)
  {
    begin = std::min(half, cols);
    end = std::max(begin, cols - half);
  }

  // Table row t, sums then sums of squares, into target (2 (cols + 1) values),
  // built first when needed; t comes after the rows already read.
  void CopyRow(long t, double* target);

private:
  // Builds the table rows the windows of row reach, the ones above them dropped.
  void Reach(int row)
  {
    if (row + Half + 1L > Built && Built < Rows)
      Extend(row);
  }
  void Extend(int row);
  void BuildRows(long first, bool pair);
  void BuildFourRows(long first);
  // Table row t in its slot of the ring.
  double* Line(std::vector<double>& table, long t) { return table.data() + static_cast<std::size_t>(t % Capacity) * Width; }
  const double* SumLine(long t) const { return Sum.data() + static_cast<std::size_t>(t % Capacity) * Width; }
  const double* SquaresLine(long t) const { return Squares.data() + static_cast<std::size_t>(t % Capacity) * Width; }

  const double* In = nullptr;
  int Cols = 0;
  int Rows = 0;
  int Half = 0;
  long Capacity = 1; // table rows in the ring
  bool Fours = false; // four rows built at once, a vector lane each
  long Built = 0;    // the last table row built
  std::size_t Width = 0;
  std::vector<double> Sum;
  std::vector<double> Squares;
};

// Bands of rows for windows of half sizes up to reach, each with its own
// tables: body(band, firstRow, endRow, tables) in parallel when there are
// several. Windows near the image's size keep the bands few, so that the
// rings together hold at most about one table. A reach below 0 builds no
// tables (the body must not read them).
void Ipg_RunWindowBands(const double* in, int cols, int rows, int reach, std::size_t work,
                        const std::function<void(unsigned, unsigned, unsigned, Ipg_WindowTables&)>& body);

// Where a band of a pass writes its rows: straight into the output, or, for
// the rows another band still reads as input, into rows held until every band
// is done (Ipg_RunPassBands).
class Ipg_BandOutput {
public:
  double* Row(int r)
  {
    const std::size_t width = static_cast<std::size_t>(Cols);
    if (r < HeldEnd)
      return Held.data() + static_cast<std::size_t>(r - Begin) * width;
    return Out + static_cast<std::size_t>(r) * width;
  }

private:
  friend void Ipg_RunPassBands(const double*, double*, int, int, int, int, std::size_t,
                               const std::function<void(unsigned, unsigned, unsigned, Ipg_WindowTables&,
                                                        Ipg_BandOutput&)>&);
  double* Out = nullptr;
  int Cols = 0;
  int Begin = 0;
  int HeldEnd = 0; // rows [Begin, HeldEnd) are held
  std::vector<double> Held;
};

// The bands of a pass that reads in and writes out (cols x rows each), a row
// reading the rows up to readReach above and below it: Ipg_RunWindowBands
// with body(band, firstRow, endRow, tables, output), its bands split for the
// farther of reach and readReach; without tables, a few per thread where they
// are tall enough (Ipg_RunBands deals them in turn).
//
// The pass may run in place, its output starting gap whole rows before its
// input (out = in - gap * cols) with gap > readReach: then a row written
// replaces an input row that no later row of its band reads, and the first
// rows of every band below the first, which the band above still reads, are
// held until the bands are done. That keeps one image instead of two. An
// output overlapping the input in any other way goes through a copy.
void Ipg_RunPassBands(const double* in, double* out, int cols, int rows, int reach, int readReach, std::size_t work,
                      const std::function<void(unsigned, unsigned, unsigned, Ipg_WindowTables&, Ipg_BandOutput&)>& body);

// Buffers one thread of the adaptive-neighbourhood filter reuses from band
// to band and from pass to pass: framed rows of the image around its seeds
// (values and stamps), the regions grown and the window moments of a row.
struct Ipg_SpeckleBand {
  std::vector<double> Values;
  std::vector<unsigned> Stamps;
  std::size_t First = 0; // the framed row the buffers start with
  std::size_t Held = 0;  // framed rows held
  std::vector<std::size_t> Region;
  std::vector<unsigned char> Directions; // the way each region pixel was reached
  std::vector<double> Mean;
  std::vector<double> Variance;
};

struct Ipg_SpeckleBuffers {
  std::vector<Ipg_SpeckleBand> Bands;
};

// Element size / 2 of values[0 .. count) in ascending order (0 for none), the
// value std::nth_element gives; the values are reordered. Long lists of
// non-negative values are narrowed by their bit patterns, a few counting
// passes instead of comparisons; short lists, and those with a negative value
// or a NaN, go to std::nth_element.
double Ipg_MiddleElement(double* values, std::size_t count);

// Element rank of values[0 .. count) in ascending order (0 when rank >= count),
// the value std::nth_element gives, the same way; the values are reordered.
double Ipg_SelectElement(double* values, std::size_t count, std::size_t rank);

// Rows of a pass from in into out (Ipg_RunPassBands), in parallel bands, each
// with its window tables (windows up to half reach; none below 0):
// row(r, target, tables, scratch) writes row r into target, with a Scratch of
// its own per band. work weighs a pixel against a plain copy, so that costly
// filters split smaller images too. Only the calling thread's bands ask the
// host whether to stop (a host's progress sink is not called from other
// threads); the other bands see its answer and stop at their next row.
template <typename Scratch, typename Row>
void Ipg_PassRowsInBands(const double* in, double* out, int cols, int rows, int reach, int readReach,
                         std::size_t work, Row row)
{
  if (cols <= 0 || rows <= 0)
    return;
  std::atomic<bool> stop{false};
  Ipg_RunPassBands(in, out, cols, rows, reach, readReach, work,
                   [&](unsigned, unsigned begin, unsigned end, Ipg_WindowTables& tables, Ipg_BandOutput& output) {
                     Scratch scratch{};
                     for (unsigned r = begin; r < end; ++r) {
                       if (Ipg_OnCallingThread() && Ipg_CancelRequested())
                         stop = true;
                       if (stop.load(std::memory_order_relaxed))
                         return;
                       row(static_cast<int>(r), output.Row(static_cast<int>(r)), tables, scratch);
                     }
                   });
}

// The same without tables: row(r, target, scratch).
template <typename Scratch, typename Row>
void Ipg_SpeckleRowsInBands(const double* in, double* out, int cols, int rows, int readReach, std::size_t work,
                            Row row)
{
  Ipg_PassRowsInBands<Scratch>(in, out, cols, rows, -1, readReach, work,
                               [&](int r, double* target, Ipg_WindowTables&, Scratch& scratch) {
                                 row(r, target, scratch);
                               });
}
