// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_row_bands.h"
#include "ipg/ui/ipg_progress.h"

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
  // Table row t in its slot of the ring.
  double* Line(std::vector<double>& table, long t) { return table.data() + static_cast<std::size_t>(t % Capacity) * Width; }
  const double* SumLine(long t) const { return Sum.data() + static_cast<std::size_t>(t % Capacity) * Width; }
  const double* SquaresLine(long t) const { return Squares.data() + static_cast<std::size_t>(t % Capacity) * Width; }

  const double* In = nullptr;
  int Cols = 0;
  int Rows = 0;
  int Half = 0;
  long Capacity = 1; // table rows in the ring
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

// Buffers one band of the adaptive-neighbourhood filter reuses from pass to
// pass: framed rows of the image around its seeds (values and stamps), the
// region grown and the window moments of a row.
struct Ipg_SpeckleBand {
  std::vector<double> Values;
  std::vector<unsigned> Stamps;
  std::size_t First = 0; // the framed row the buffers start with
  std::size_t Held = 0;  // framed rows held
  std::vector<std::size_t> Region;
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

// Median over the pixels whose local mean m (windows of half size) is positive
// of variance / m^power (power 1 or 2). scratch holds cols x rows values that
// the call overwrites (a pass's output before it is written), not in.
double Ipg_MedianLocalRatio(const double* in, double* scratch, int cols, int rows, int half, int power);

// Rows of a pass that reads one image and writes another, in parallel bands,
// each with its window tables (windows up to half reach; none below 0):
// row(r, tables, scratch) with a Scratch of its own per band. work weighs a
// pixel against a plain copy, so that costly filters split smaller images
// too. Only the calling thread's band asks the host whether to stop (a host's
// progress sink is not called from other threads); the other bands see its
// answer and stop at their next row.
template <typename Scratch, typename Row>
void Ipg_WindowRowsInBands(const double* in, int cols, int rows, int reach, std::size_t work, Row row)
{
  if (cols <= 0 || rows <= 0)
    return;
  std::atomic<bool> stop{false};
  Ipg_RunWindowBands(in, cols, rows, reach, work,
                     [&](unsigned band, unsigned begin, unsigned end, Ipg_WindowTables& tables) {
                       Scratch scratch{};
                       for (unsigned r = begin; r < end; ++r) {
                         if (band == 0 && Ipg_CancelRequested())
                           stop = true;
                         if (stop.load(std::memory_order_relaxed))
                           return;
                         row(static_cast<int>(r), tables, scratch);
                       }
                     });
}

// The same without tables: row(r, scratch).
template <typename Scratch, typename Row>
void Ipg_SpeckleRowsInBands(int cols, int rows, std::size_t work, Row row)
{
  Ipg_WindowRowsInBands<Scratch>(nullptr, cols, rows, -1, work,
                                 [&](int r, Ipg_WindowTables&, Scratch& scratch) { row(r, scratch); });
}
