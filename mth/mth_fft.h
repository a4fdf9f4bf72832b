#pragma once

#include "mth/mth_complex.h"

// Two-dimensional discrete Fourier transform in place on buf[column][row], any size.
// dir = 1: forward, unnormalised, kernel e^(-2*pi*i*(u*c/cols + v*r/rows)).
// dir = -1: inverse, divided by cols*rows, so a forward then inverse round trip
// returns the input. Any other direction, a null buffer or a size below 1 leaves
// the buffer untouched and returns false.
bool Mth_FFT2D(MTH_COMPLEX** buf, int cols, int rows, int dir);
