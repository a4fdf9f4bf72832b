// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_complex.h"
#include "mth/mth_fft.h"

#include <cstddef>
#include <vector>

// The Fourier operators' working buffer: cols x rows complex values addressed
// [column][row], the columns end to end in one block, as Mth_FFT2D takes them.
// Its values are unspecified until written: every user loads all of them.
//
// The block is borrowed from a cache that each thread keeps for its next
// transform of the same size, so that repeated transforms neither allocate
// nor fault in tens of megabytes each time. A thread holds at most one idle
// block: a transform of another size frees it first, thread exit and
// Ipg_ReleaseFourierBuffer() free it. A second buffer wanted on a thread while
// its block is borrowed gets a block of its own, freed with it.
// The block comes from the same allocation as a fresh vector of the values
// would, so FFTW sees the alignment it has always planned for.
class IPG_FOURIER_BUFFER {
public:
  IPG_FOURIER_BUFFER(int cols, int rows); // throws std::bad_alloc
  ~IPG_FOURIER_BUFFER();
  IPG_FOURIER_BUFFER(const IPG_FOURIER_BUFFER&) = delete;
  IPG_FOURIER_BUFFER& operator=(const IPG_FOURIER_BUFFER&) = delete;

  int GetNbOfCols() const { return NbCols; }
  int GetNbOfRows() const { return NbRows; }
  // The argument for Mth_FFT2D: buffer[column][row].
  MTH_COMPLEX** Get() { return Columns.data(); }
  MTH_COMPLEX* operator[](int col) { return Columns[static_cast<std::size_t>(col)]; }
  void Zero(int col, int row) { Columns[static_cast<std::size_t>(col)][row] = MTH_COMPLEX{}; }
  // Mth_FFT2D of the values (dir 1 forward, -1 inverse), on the library's
  // threads when the buffer is large enough to share.
  bool Transform(int dir);
  // The same transform with its values loaded and its results taken through
  // streams (Mth_FFT2DStreamed): with a Take, the values are left unspecified.
  bool Transform(int dir, const MTH_FFT_STREAMS& streams);

private:
  int NbCols;
  int NbRows;
  MTH_COMPLEX* Values;
  bool Borrowed; // Values is the thread's cached block
  std::vector<MTH_COMPLEX*> Columns;
};

// Frees the calling thread's idle cached block, if any.
void Ipg_ReleaseFourierBuffer();
