// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_bead_lattice.h"

#include <cmath>
#include <cstdint>
#include <deque>
#include <unordered_map>

namespace {

// How far from the expected place a bead may lie, in pitches.
constexpr double kSnapDistance = 1.0 / 3.0;
// A measured step outside these lengths, in pitches, is not a lattice step.
constexpr double kShortestStep = 0.6;
constexpr double kLongestStep = 1.4;

struct STEP {
  double X = 0.0, Y = 0.0;
};

std::int64_t Key(long long a, long long b)
{
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(a) << 32) ^ (static_cast<std::uint64_t>(b) & 0xffffffffULL));
}

// Beads by square cells one pitch wide, for nearest-bead queries.
class BEAD_CELLS {
public:
  BEAD_CELLS(const std::vector<IPG_BEAD>& beads, double cell) : Beads(beads), Cell(cell)
  {
    for (std::size_t i = 0; i < beads.size(); ++i)
      Cells[Key(CellOf(beads[i].X), CellOf(beads[i].Y))].push_back(i);
  }

  // The nearest bead to (x, y) within `reach` (at most one cell) that `free`
  // accepts, or -1.
  template <typename Free>
  long long Nearest(double x, double y, double reach, Free free) const
  {
    long long best = -1;
    double bestDistance = reach * reach;
    const long long cx = CellOf(x), cy = CellOf(y);
    for (long long dy = -1; dy <= 1; ++dy)
      for (long long dx = -1; dx <= 1; ++dx) {
        const auto found = Cells.find(Key(cx + dx, cy + dy));
        if (found == Cells.end())
          continue;
        for (std::size_t i : found->second) {
          const double ex = Beads[i].X - x, ey = Beads[i].Y - y, d = ex * ex + ey * ey;
          if (d <= bestDistance && free(i)) {
            bestDistance = d;
            best = static_cast<long long>(i);
          }
        }
      }
    return best;
  }

private:
  long long CellOf(double v) const { return static_cast<long long>(std::floor(v / Cell)); }

  const std::vector<IPG_BEAD>& Beads;
  double Cell;
  std::unordered_map<std::int64_t, std::vector<std::size_t>> Cells;
};

bool IsLatticeStep(double dx, double dy, double pitch)
{
  const double length = std::hypot(dx, dy);
  return length >= kShortestStep * pitch && length <= kLongestStep * pitch;
}

// The first lattice step from the start bead: the neighbour about one pitch
// away closest in direction to the columns (either way), else the column axis.
STEP FirstColumnStep(const std::vector<IPG_BEAD>& beads, std::size_t start, double pitch)
{
  STEP best{pitch, 0.0};
  double bestAlignment = std::cos(std::acos(-1.0) / 4.0); // within 45 degrees
  for (const IPG_BEAD& bead : beads) {
    const double dx = bead.X - beads[start].X, dy = bead.Y - beads[start].Y;
    if (!IsLatticeStep(dx, dy, pitch))
      continue;
    const double alignment = std::fabs(dx) / std::hypot(dx, dy);
    if (alignment > bestAlignment) {
      bestAlignment = alignment;
      best = dx >= 0 ? STEP{dx, dy} : STEP{-dx, -dy};
    }
  }
  return best;
}

struct PLACED {
  std::size_t Bead;
  int I, J;
  STEP Column, Row; // local steps to the next column and row
};

} // namespace

std::vector<IPG_LATTICE_BEAD> Ipg_PlaceBeadsOnLattice(const std::vector<IPG_BEAD>& beads, double pitch,
                                                     double startX, double startY)
{
  std::vector<IPG_LATTICE_BEAD> lattice;
  if (beads.empty() || !(pitch > 0.0) || !std::isfinite(pitch))
    return lattice;
  const BEAD_CELLS cells(beads, pitch);
  std::size_t start = 0;
  for (std::size_t i = 1; i < beads.size(); ++i)
    if (std::hypot(beads[i].X - startX, beads[i].Y - startY) <
        std::hypot(beads[start].X - startX, beads[start].Y - startY))
      start = i;

  const STEP column = FirstColumnStep(beads, start, pitch);
  std::vector<bool> taken(beads.size(), false);
  std::unordered_map<std::int64_t, bool> places;
  std::deque<PLACED> queue{{start, 0, 0, column, STEP{-column.Y, column.X}}};
  taken[start] = true;
  places[Key(0, 0)] = true;
  while (!queue.empty()) {
    const PLACED from = queue.front();
    queue.pop_front();
    const IPG_BEAD& here = beads[from.Bead];
    lattice.push_back({here.X, here.Y, from.I, from.J});
    const int moves[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
    for (const auto& move : moves) {
      const int i = from.I + move[0], j = from.J + move[1];
      if (places.contains(Key(i, j)))
        continue;
      const STEP& step = move[0] != 0 ? from.Column : from.Row;
      const double sign = move[0] + move[1];
      const double x = here.X + sign * step.X, y = here.Y + sign * step.Y;
      const long long next = cells.Nearest(x, y, kSnapDistance * pitch, [&](std::size_t b) { return !taken[b]; });
      if (next < 0)
        continue;
      const IPG_BEAD& there = beads[static_cast<std::size_t>(next)];
      const STEP measured{sign * (there.X - here.X), sign * (there.Y - here.Y)};
      if (!IsLatticeStep(measured.X, measured.Y, pitch))
        continue;
      taken[static_cast<std::size_t>(next)] = true;
      places[Key(i, j)] = true;
      PLACED placed{static_cast<std::size_t>(next), i, j, from.Column, from.Row};
      (move[0] != 0 ? placed.Column : placed.Row) = measured;
      queue.push_back(placed);
    }
  }
  return lattice;
}
