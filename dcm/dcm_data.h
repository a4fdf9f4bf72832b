// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <climits>
#include <cmath>
#include <cstddef>
#include <vector>

// The pixel store of an image: cols x rows signed 32-bit pixels, row-major, with
// cached extremes and a precision factor.
//
// Precision: GetValueReal returns raw / precision and SetValue(double | float)
// stores value * precision, truncated toward zero, when the precision is above 0
// (below or at 0 the value is used as it is). Not-a-number stores 0; values
// beyond the 32-bit range store the nearest bound.
// Extremes: every SetValue widens the stored minimum and maximum to cover the raw
// value written and never narrows them; SetMin()/SetMax() recompute them over
// every pixel, marks included.
// Reads outside the image return 0 and writes outside it do nothing.
// The per-pixel accessors are defined here so that loops over them, in the
// library and in hosts, compile to plain memory accesses.
class DCM_DATA {
public:
  DCM_DATA(unsigned cols, unsigned rows);
  DCM_DATA(const DCM_DATA&) = default;
  DCM_DATA& operator=(const DCM_DATA&) = default;

  unsigned GetNbOfCols() const { return Cols; }
  unsigned GetNbOfRows() const { return Rows; }
  std::size_t GetSize() const { return Pixels.size(); }

  int* GetIDataAddress() { return Pixels.data(); }
  const int* GetIDataAddress() const { return Pixels.data(); }

  int GetValue(unsigned col, unsigned row) const
  {
    return Inside(col, row) ? Pixels[static_cast<std::size_t>(row) * Cols + col] : 0;
  }
  double GetValueReal(unsigned col, unsigned row) const
  {
    const double raw = GetValue(col, row);
    return Precision > 0 ? raw / Precision : raw;
  }
  void SetValue(unsigned col, unsigned row, int v) { Store(col, row, v); }
  void SetValue(unsigned col, unsigned row, double v) { Store(col, row, ToRaw(v)); }
  void SetValue(unsigned col, unsigned row, float v) { Store(col, row, ToRaw(static_cast<double>(v))); }

  int GetMin() const { return Min; }
  int GetMax() const { return Max; }
  void SetMin();
  void SetMax();
  void SetMin(int v) { Min = v; }
  void SetMax(int v) { Max = v; }

  void SetDynMax(unsigned levels) { DynMax = levels; }
  unsigned GetDynMax() const { return DynMax; }

  // Every pixel to v as SetValue(double) would store it; both extremes to that raw value.
  void Init(double v);

  // Origin of the region this store was cut from.
  void SetRoi(unsigned col, unsigned row);
  unsigned GetRoiCol() const { return RoiCol; }
  unsigned GetRoiRow() const { return RoiRow; }

  short GetPrecision() const { return Precision; }
  void SetPrecision(short p) { Precision = p; }
  bool GetRGB() const { return RGB; }
  void SetRGB(bool rgb) { RGB = rgb; }

  // Bilinear interpolation at a real (column, row); the four neighbours outside
  // the image count as 0. Returns the value as GetValueReal would.
  double GetInterpolatedPoint(double x, double y) const;

  // The raw integer that SetValue(double) would store for v at this precision.
  int ToRaw(double v) const { return ToRaw(v, Precision); }
  static int ToRaw(double v, short precision)
  {
    // Written as selects rather than early returns so that loops over it vectorise.
    const double scaled = precision > 0 ? v * precision : v;
    double bounded = scaled >= static_cast<double>(INT_MAX) ? static_cast<double>(INT_MAX) : scaled;
    bounded = bounded <= static_cast<double>(INT_MIN) ? static_cast<double>(INT_MIN) : bounded;
    bounded = std::isnan(v) ? 0.0 : bounded;
    return static_cast<int>(bounded); // truncation toward zero
  }

private:
  bool Inside(unsigned col, unsigned row) const { return col < Cols && row < Rows; }
  void Store(unsigned col, unsigned row, int raw)
  {
    if (!Inside(col, row))
      return;
    Pixels[static_cast<std::size_t>(row) * Cols + col] = raw;
    Min = raw < Min ? raw : Min;
    Max = raw > Max ? raw : Max;
  }

  unsigned Cols;
  unsigned Rows;
  std::vector<int> Pixels;
  int Min = 0;
  int Max = 0;
  unsigned DynMax = 0;
  unsigned RoiCol = 0;
  unsigned RoiRow = 0;
  short Precision = 1;
  bool RGB = false;
};
