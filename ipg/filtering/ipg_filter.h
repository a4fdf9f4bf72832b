// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

// A rectangular convolution kernel of integer or real coefficients, row-major,
// SizeX coefficients per row, with a catalogue of predefined kernels selected by
// number. When the real coefficients are present they take precedence over the
// integer ones in every reader (GetIndex, GetFilterValue, GetFactor, RotateFilter).
// The object owns both arrays.
//
// Predefined kernels (IPG_FILTER(int)); any unknown number gives kernel 0:
//   0..23    3x3 smoothing, sharpening and directional derivative masks
//            (6/7, 8/9, 10..13 Sobel pairs; 14..17 Prewitt; 18..21 diagonal Prewitt)
//   50..52   5x5 box and sharpening masks
//   100..102 7x7 box, separable pyramid (1 2 3 4 3 2 1)^2 and a bell
//   200..209 binary shapes: squares, crosses, discs and pyramid-like shapes
//   401..403 3x3 neighbourhood rings without their centre
class IPG_FILTER {
public:
  // Copies sizeX x sizeY integer coefficients (zeros for a null data pointer).
  IPG_FILTER(int* data, short sizeX, short sizeY);
  // Copies sizeX x sizeY real coefficients (zeros for a null data pointer).
  IPG_FILTER(double* data, short sizeX, short sizeY);
  // Deep copy of other's sizes and arrays (an empty kernel for a null other).
  IPG_FILTER(IPG_FILTER* other);
  // A predefined kernel of the catalogue; integer coefficients only.
  explicit IPG_FILTER(int number);
  ~IPG_FILTER();
  IPG_FILTER(const IPG_FILTER&) = delete;
  IPG_FILTER& operator=(const IPG_FILTER&) = delete;

  // Copy SizeX x SizeY values into the existing integer (real) array; nothing
  // happens when the argument or the array is null.
  void SetDataFilter(int* data);
  void SetDatadFilter(double* data);

  // Resize (values below 1 become 1) and allocate both arrays anew. The fresh
  // integer array is filled byte by byte with 1 (each entry reads 16843009) and
  // the real array likewise, SetSizeY filling only the first half of its bytes:
  // callers load their coefficients afterwards and existing ones rely on nothing else.
  void SetSizeX(short sizeX);
  void SetSizeY(short sizeY);

  int* GetDataFilter() const { return IData; }
  double* GetDatadFilter() const { return DData; }
  short GetSizeX() const { return SizeX; }
  short GetSizeY() const { return SizeY; }

  // Coefficient i of the row-major array; 0 when there is no data or i is out of range.
  double GetIndex(short i) const;
  // Coefficient at linear index y * SizeY + x, a real one truncated toward zero.
  // The height as row stride is right only for square kernels; morphology
  // callers depend on it. 0 when there is no data or the index is out of range.
  int GetFilterValue(short x, short y) const;
  // Plain sum of the first SizeX x SizeX coefficients (at most the whole
  // kernel); 1 without data. It may be 0 or negative.
  float GetFactor() const;
  // Turns the outer ring of a 3x3 kernel by 45 degrees: true counter-clockwise
  // (each ring entry takes its clockwise neighbour's value), false clockwise.
  // Shows a message and returns false when both sides differ from 3.
  bool RotateFilter(bool direction);

private:
  int Area() const;
  void Allocate(bool withIntegers, bool withReals);
  // Both arrays anew, integers byte-filled with 1, the first bytes of the reals too.
  void Reallocate(std::size_t realBytesOfOnes);
  void Release();

  int* IData = nullptr;
  double* DData = nullptr;
  short SizeX = 0;
  short SizeY = 0;
};
