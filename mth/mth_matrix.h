// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// A dense real matrix, stored row after row. Indices are (row, column), zero-based.
// Reads outside the matrix return 0 and writes outside it are ignored. Operations
// on matrices of incompatible sizes, and the inverse of a singular matrix, give an
// empty (0 x 0) matrix; IsEmpty() tells.
class MTH_MATRIX {
public:
  // kind is carried for callers that tag their matrices; the storage is always double.
  MTH_MATRIX(int rows = 0, int cols = 0, int kind = 0);
  MTH_MATRIX(const MTH_MATRIX&) = default;
  MTH_MATRIX& operator=(const MTH_MATRIX&) = default;
  ~MTH_MATRIX() = default;

  int GetNbRows() const { return Rows; }
  int GetNbCols() const { return Cols; }
  int GetKind() const { return Kind; }
  bool IsEmpty() const { return Rows == 0 || Cols == 0; }

  // The element array, rows * cols doubles, row-major; null when empty.
  double* GetData() { return Elements.empty() ? nullptr : Elements.data(); }
  const double* GetData() const { return Elements.empty() ? nullptr : Elements.data(); }

  double Get(int i, int j) const;
  void Set(int i, int j, double v);
  void Set(int i, int j, float v) { Set(i, j, static_cast<double>(v)); }
  void SetZero();

  MTH_MATRIX operator+(const MTH_MATRIX& other) const;
  MTH_MATRIX operator*(const MTH_MATRIX& other) const;

  MTH_MATRIX Transpose() const;
  // Gauss-Jordan elimination with partial pivoting; empty when not square or singular.
  MTH_MATRIX Inverse() const;
  // Householder QR of an m x n matrix (m >= n): *q receives a new m x m orthogonal
  // matrix owned by the caller, *r the m x n upper-triangular factor, so that
  // this = Q * R. Returns false (and leaves both untouched) for null arguments or m < n.
  bool QR(MTH_MATRIX** q, MTH_MATRIX* r) const;

  // Two-dimensional convolution with kernel (flipped, as convolution is), centred
  // at (rows/2, cols/2) of the kernel; the result has this matrix's size.
  // borderType 0: values outside are 0; any other value: mirrored about the edge
  // (the edge element repeated: element -1 is element 0).
  MTH_MATRIX Convolution2D(const MTH_MATRIX* kernel, int borderType) const;

  // Grow the matrix by n rows (columns) on each side, filled by mirroring the
  // existing ones about the edge (edge element repeated). n <= 0 does nothing.
  void AddRowBySymetry(int n);
  void AddColBySymetry(int n);

  // The sub-matrix from (row0, col0) to (row1, col1) inclusive, clipped to the
  // matrix; empty when the rectangle does not meet it.
  MTH_MATRIX RegionOfMatrix(int row0, int col0, int row1, int col1) const;

private:
  bool Inside(int i, int j) const { return i >= 0 && j >= 0 && i < Rows && j < Cols; }
  double MirroredAt(int i, int j) const;

  int Rows = 0;
  int Cols = 0;
  int Kind = 0;
  std::vector<double> Elements;
};
