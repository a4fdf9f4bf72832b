// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <vector>

// A rectangle of pixels: columns [C0, C1) and rows [R0, R1).
struct Ipg_Rect {
  long C0 = 0;
  long R0 = 0;
  long C1 = 0;
  long R1 = 0;

  double Area() const { return static_cast<double>(C1 - C0) * static_cast<double>(R1 - R0); }
};

// The (2 half + 1)^2 window around (col, row), clipped to a cols x rows image.
Ipg_Rect Ipg_ClippedWindow(int col, int row, int half, int cols, int rows);

// Summed-area table (F. C. Crow, "Summed-area tables for texture mapping",
// SIGGRAPH 1984) of a cols x rows image: (cols + 1) x (rows + 1) entries with
// a zero first row and column, entry (c, r) the sum of the values of the
// columns before c and the rows before r, so that the sum over any rectangle
// takes four reads. Sum is the accumulator: double, or an integer wide enough
// for the image's total.
template <typename Sum>
class Ipg_SummedArea {
public:
  Ipg_SummedArea() = default;

  // Built row by row, each row's running sum added to the entry above it;
  // term(col, row) gives the value summed at (col, row).
  template <typename Term>
  static Ipg_SummedArea ByRowRuns(int cols, int rows, Term term)
  {
    Ipg_SummedArea area(cols, rows);
    for (int r = 0; r < rows; ++r) {
      Sum line = 0;
      for (int c = 0; c < cols; ++c) {
        line += term(c, r);
        area.Entry(c + 1, r + 1) = area.Entry(c + 1, r) + line;
      }
    }
    return area;
  }

  // Built entry by entry as value + above + left - above-left. With reals the
  // rounding differs from ByRowRuns: results computed this way keep it.
  template <typename Term>
  static Ipg_SummedArea ByCornerRecurrence(int cols, int rows, Term term)
  {
    Ipg_SummedArea area(cols, rows);
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c)
        area.Entry(c + 1, r + 1) = term(c, r) + area.Entry(c + 1, r) + area.Entry(c, r + 1) - area.Entry(c, r);
    return area;
  }

  // Sum over the rectangle, the left strip subtracted first.
  Sum Over(const Ipg_Rect& rect) const
  {
    return Entry(rect.C1, rect.R1) - Entry(rect.C0, rect.R1) - Entry(rect.C1, rect.R0) + Entry(rect.C0, rect.R0);
  }
  // Sum over the rectangle, the upper strip subtracted first: the same sum
  // with another rounding for reals, kept where results were computed that way.
  Sum OverUpperFirst(const Ipg_Rect& rect) const
  {
    return Entry(rect.C1, rect.R1) - Entry(rect.C1, rect.R0) - Entry(rect.C0, rect.R1) + Entry(rect.C0, rect.R0);
  }

private:
  Ipg_SummedArea(int cols, int rows)
      : Width(static_cast<std::size_t>(cols) + 1), Table(Width * (static_cast<std::size_t>(rows) + 1), Sum(0))
  {
  }
  Sum& Entry(long c, long r) { return Table[static_cast<std::size_t>(r) * Width + static_cast<std::size_t>(c)]; }
  const Sum& Entry(long c, long r) const
  {
    return Table[static_cast<std::size_t>(r) * Width + static_cast<std::size_t>(c)];
  }

  std::size_t Width = 0;
  std::vector<Sum> Table;
};
