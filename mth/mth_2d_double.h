// SPDX-License-Identifier: Apache-2.0
#pragma once

// A real-valued point of the plane: x is the column, y the row.
class MTH_2D_DOUBLE {
public:
  MTH_2D_DOUBLE() = default;
  MTH_2D_DOUBLE(double x, double y) : X(x), Y(y) {}
  MTH_2D_DOUBLE(const MTH_2D_DOUBLE&) = default;
  MTH_2D_DOUBLE& operator=(const MTH_2D_DOUBLE&) = default;
  ~MTH_2D_DOUBLE() = default;

  double GetX() const { return X; }
  double GetY() const { return Y; }
  void SetX(double x) { X = x; }
  void SetY(double y) { Y = y; }

private:
  double X = 0.0;
  double Y = 0.0;
};
