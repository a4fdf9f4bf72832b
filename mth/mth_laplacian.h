// SPDX-License-Identifier: Apache-2.0
#pragma once

class MTH_MATRIX;

// Discrete Laplacian of in, written into out (resized to in's size).
// neighbourhood 8: sum of the eight neighbours minus 8 times the element;
// any other value: the four edge neighbours minus 4 times the element.
// Outside the matrix the edge element is repeated (zero-flux border).
// Returns false for null arguments or an empty input.
bool Mth_ComputeLaplacien(const MTH_MATRIX* in, MTH_MATRIX* out, int neighbourhood);
