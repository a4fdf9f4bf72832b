// SPDX-License-Identifier: Apache-2.0
#pragma once

class MTH_MATRIX;

// Sorts n values ascending in place (n <= 0 or a null array does nothing).
void Mth_Sort(int* values, int n);
void Mth_Sort(double* values, int n);

// Sorts n values ascending in place and applies the same permutation to index,
// so that index[k] tells where values[k] came from when index held 0..n-1.
// The sort is stable: equal values keep their order.
void Mth_SortVector(double* values, int* index, int n);

// Median of every element of the matrix: the middle element of the sorted values,
// the mean of the two middle ones for an even count; 0 for a null or empty matrix.
double Mth_Median(const MTH_MATRIX* m);
