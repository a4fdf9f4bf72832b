// SPDX-License-Identifier: Apache-2.0
#pragma once

// A point of patient space, in millimetres.
class MTH_3D_DOUBLE {
public:
  MTH_3D_DOUBLE() = default;
  MTH_3D_DOUBLE(double x, double y, double z) : X(x), Y(y), Z(z) {}
  ~MTH_3D_DOUBLE() = default;

  double GetX() const { return X; }
  double GetY() const { return Y; }
  double GetZ() const { return Z; }
  void SetX(double x) { X = x; }
  void SetY(double y) { Y = y; }
  void SetZ(double z) { Z = z; }

private:
  double X = 0.0;
  double Y = 0.0;
  double Z = 0.0;
};
