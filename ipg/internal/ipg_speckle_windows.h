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
// windows of inner pixels one at a time. The buffers are kept between passes.
class Ipg_WindowTables {
public:
  // Tables of a cols x rows image.
  void Build(const double* in, int cols, int rows);

  // Count, sum and sum of squares of the window of half size around (col, row), clipped.
  void Window(int col, int row, int half, double& count, double& sum, double& squares) const;

  // Mean and population variance (max(0, squares / count - mean^2)) of the
  // clipped windows of every pixel of row, into mean[0 .. cols) and variance[0 .. cols).
  void RowMoments(int row, int half, double* mean, double* variance) const;

private:
  const double* Line(const std::vector<double>& table, long row) const
  {
    return table.data() + static_cast<std::size_t>(row) * Width;
  }

  int Cols = 0;
  int Rows = 0;
  std::size_t Width = 0;
  std::vector<double> Sum;
  std::vector<double> Squares;
  std::vector<double> Spare;
};

// What one band of rows works with.
struct Ipg_SpeckleBand {
  std::vector<unsigned> Stamps;
  std::vector<std::size_t> Region;
  std::vector<double> Mean;
  std::vector<double> Variance;
};

// Buffers one despeckling job reuses from pass to pass.
struct Ipg_SpeckleBuffers {
  Ipg_WindowTables Tables;
  std::vector<double> Mean;     // a per-pixel statistic
  std::vector<double> Variance; // another
  std::vector<double> Coefficient;
  std::vector<std::vector<double>> BandRatios; // one list per band
  std::vector<unsigned long long> Keys;
  std::vector<double> Padded;
  std::vector<Ipg_SpeckleBand> Bands;
  // Tables are those of TablesOf (null: of no image yet); Mean and Variance hold the windows of MomentsHalf around every pixel of
  // MomentsOf, as Ipg_MedianLocalRatio left them; a pass that uses them resets these.
  bool KeepMoments = false; // whether Ipg_MedianLocalRatio leaves its moments for the pass
  const double* TablesOf = nullptr;
  const double* MomentsOf = nullptr;
  int MomentsHalf = -1;

  // Tables of in, built unless they are already in's.
  const Ipg_WindowTables& TablesFor(const double* in, int cols, int rows);
  // Forgets whose tables and moments these are: the next pass may bring new values at the same address.
  void Release() { TablesOf = MomentsOf = nullptr; MomentsHalf = -1; }
};

// Element size / 2 of values in ascending order (0 for none), the value
// std::nth_element gives; values is reordered. Long lists of non-negative
// values are selected by their bit patterns, a few counting passes instead of
// comparisons; short lists, and those with a negative value or a NaN, go to
// std::nth_element.
double Ipg_MiddleElement(std::vector<double>& values, std::vector<unsigned long long>& keys);

// Local moments of in's windows of half size into buffers.Mean and Variance,
// the tables built anew.
void Ipg_LocalMomentsInto(const double* in, int cols, int rows, int half, Ipg_SpeckleBuffers& buffers);

// Median over the pixels whose local mean m (windows of half size) is positive
// of variance / m^power (power 1 or 2), the pixels taken in row-major order.
// Builds buffers.Tables on in; leaves the moments in buffers.Mean and Variance
// when buffers.KeepMoments.
double Ipg_MedianLocalRatio(const double* in, int cols, int rows, int half, int power, Ipg_SpeckleBuffers& buffers);

// Rows of a pass that reads one image and writes another, in parallel bands:
// row(r, scratch) with a Scratch of its own per band. work weighs a pixel
// against a plain copy, so that costly filters split smaller images too. Only
// the calling thread's band asks the host whether to stop (a host's progress
// sink is not called from other threads); the other bands see its answer and
// stop at their next row.
template <typename Scratch, typename Row>
void Ipg_SpeckleRowsInBands(int cols, int rows, std::size_t work, Row row)
{
  if (cols <= 0 || rows <= 0)
    return;
  std::atomic<bool> stop{false};
  Ipg_RunBands(Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols) * work),
               [&](unsigned band, unsigned begin, unsigned end) {
                 Scratch scratch{};
                 for (unsigned r = begin; r < end; ++r) {
                   if (band == 0 && Ipg_CancelRequested())
                     stop = true;
                   if (stop.load(std::memory_order_relaxed))
                     return;
                   row(static_cast<int>(r), scratch);
                 }
               });
}

