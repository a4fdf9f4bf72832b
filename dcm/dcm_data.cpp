// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_data.h"

#include <algorithm>
#include <climits>
#include <cmath>

DCM_DATA::DCM_DATA(unsigned cols, unsigned rows)
    : Cols(cols), Rows(rows), Pixels(static_cast<std::size_t>(cols) * rows, 0)
{
}

void DCM_DATA::SetMin()
{
  if (!Pixels.empty())
    Min = *std::min_element(Pixels.begin(), Pixels.end());
}

void DCM_DATA::SetMax()
{
  if (!Pixels.empty())
    Max = *std::max_element(Pixels.begin(), Pixels.end());
}

void DCM_DATA::Init(double v)
{
  const int raw = ToRaw(v);
  std::fill(Pixels.begin(), Pixels.end(), raw);
  Min = raw;
  Max = raw;
}

void DCM_DATA::SetRoi(unsigned col, unsigned row)
{
  RoiCol = col;
  RoiRow = row;
}

double DCM_DATA::GetInterpolatedPoint(double x, double y) const
{
  if (std::isnan(x) || std::isnan(y))
    return 0.0;
  const double fx = std::floor(x);
  const double fy = std::floor(y);
  if (fx < -1.0 || fy < -1.0 || fx > static_cast<double>(Cols) || fy > static_cast<double>(Rows))
    return 0.0;
  const long c0 = static_cast<long>(fx);
  const long r0 = static_cast<long>(fy);
  const double dx = x - fx;
  const double dy = y - fy;
  auto at = [this](long c, long r) {
    return c < 0 || r < 0 ? 0.0 : GetValueReal(static_cast<unsigned>(c), static_cast<unsigned>(r));
  };
  return (1 - dx) * (1 - dy) * at(c0, r0) + dx * (1 - dy) * at(c0 + 1, r0) + (1 - dx) * dy * at(c0, r0 + 1) +
         dx * dy * at(c0 + 1, r0 + 1);
}
