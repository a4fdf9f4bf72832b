// SPDX-License-Identifier: Apache-2.0
#pragma once

// A point of the image grid: x is the column, y the row.
class MTH_2D_INTEGER {
public:
  MTH_2D_INTEGER() = default;
  MTH_2D_INTEGER(int x, int y) : X(x), Y(y) {}
  MTH_2D_INTEGER(const MTH_2D_INTEGER&) = default;
  MTH_2D_INTEGER& operator=(const MTH_2D_INTEGER&) = default;

  int GetX() const { return X; }
  int GetY() const { return Y; }
  void SetX(int x) { X = x; }
  void SetY(int y) { Y = y; }

private:
  int X = 0;
  int Y = 0;
};
