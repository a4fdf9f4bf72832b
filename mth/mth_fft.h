// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mth/mth_complex.h"

#include <cstddef>
#include <functional>
#include <string>

// Two-dimensional discrete Fourier transform in place on buf[column][row], any size.
// dir = 1: forward, unnormalised, kernel e^(-2*pi*i*(u*c/cols + v*r/rows)).
// dir = -1: inverse, divided by cols*rows, so a forward then inverse round trip
// returns the input. Any other direction, a null buffer or a size below 1 leaves
// the buffer untouched and returns false.
// Columns laid end to end in one block (as MTH_COMPLEX_BUFFER holds them) are
// transformed where they are; other layouts go through one extra copy.
// Safe to call from several threads at once. threads > 1 lets the transform
// share its lines among that many threads (where the backend's plan is made
// of line transforms; otherwise it runs on the calling thread): the values
// are the same for every thread count.
bool Mth_FFT2D(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads = 1);

// Where Mth_FFT2DStreamed takes its values from and gives its results to.
// Load(first, last) fills the columns [first, last) of the block. Take(first,
// last, values, stride) receives the finished rows [first, last): the value of
// column c and row r lies at values[c * stride + r - first]. Each runs on
// several threads at once, for disjoint columns or rows, in pieces of any
// size, and must not throw. Every Load ends before the first Take, so that a
// Take may write over what the Loads read. An empty Load: the block already
// holds the values; an empty Take: the results stay in the block.
struct MTH_FFT_STREAMS {
  std::function<void(int first, int last)> Load;
  std::function<void(int first, int last, const MTH_COMPLEX* values, std::size_t stride)> Take;
};

// Mth_FFT2D of buf, columns end to end in one block, whose values are loaded
// as the transform first reaches them and whose results are taken as it
// finishes them: the values never make a separate walk over the block. With
// a Take, the block is left unspecified. The values taken are those
// Mth_FFT2D leaves in the block, for every thread count. False, and nothing
// taken, for arguments Mth_FFT2D refuses or columns not in one block.
bool Mth_FFT2DStreamed(MTH_COMPLEX** buf, int cols, int rows, int dir, int threads, const MTH_FFT_STREAMS& streams);

// The library that computes the transforms, chosen when the library is built:
// "FFTW" (FFTW3, GPL) or "KissFFT" (BSD). Results agree to rounding.
const char* Mth_FFTBackend();

// FFTW's record of the plans it has made ("wisdom"), read from or written to a
// file so that another process plans the same sizes at once. Plans are made in
// FFTW's estimating mode; wisdom measured by another program may give other
// plans, whose results differ from these in the last bits. False when the file
// cannot be read or written, or with the KissFFT backend, which keeps no plans.
bool Mth_FFTLoadWisdom(const std::string& path);
bool Mth_FFTSaveWisdom(const std::string& path);
