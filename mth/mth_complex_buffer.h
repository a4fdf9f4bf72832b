// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_complex.h"

#include <cstddef>
#include <vector>

// A cols x rows array of complex numbers addressed [column][row], in the layout
// that Mth_FFT2D takes: one pointer per column into a single contiguous block,
// all values 0 on construction.
class MTH_COMPLEX_BUFFER {
public:
  MTH_COMPLEX_BUFFER(int cols, int rows)
      : NbCols(cols > 0 ? cols : 0), NbRows(rows > 0 ? rows : 0),
        Values(static_cast<std::size_t>(NbCols) * static_cast<std::size_t>(NbRows)),
        Columns(static_cast<std::size_t>(NbCols))
  {
    for (int c = 0; c < NbCols; ++c)
      Columns[static_cast<std::size_t>(c)] = Values.data() + static_cast<std::size_t>(c) * NbRows;
  }
  MTH_COMPLEX_BUFFER(const MTH_COMPLEX_BUFFER&) = delete;
  MTH_COMPLEX_BUFFER& operator=(const MTH_COMPLEX_BUFFER&) = delete;

  int GetNbOfCols() const { return NbCols; }
  int GetNbOfRows() const { return NbRows; }
  // The argument for Mth_FFT2D: buffer[column][row].
  MTH_COMPLEX** Get() { return Columns.data(); }
  MTH_COMPLEX* operator[](int col) { return Columns[static_cast<std::size_t>(col)]; }
  // Sets the coefficient to 0 + 0i.
  void Zero(int col, int row) { Columns[static_cast<std::size_t>(col)][row] = MTH_COMPLEX{}; }

private:
  int NbCols;
  int NbRows;
  std::vector<MTH_COMPLEX> Values;
  std::vector<MTH_COMPLEX*> Columns;
};
