// SPDX-License-Identifier: Apache-2.0
#pragma once

// A calibration-grid image: Gaussian beads on a square lattice through the
// image centre, each moved by a barrel distortion r' = r (1 + k r^2) about the
// centre (r in units of half the longer side; k < 0 pulls the rim in).
//   auto grid = BeadGrid({.Cols = 256, .Rows = 256, .Pitch = 16, .K = -0.05});

#include "dcm/dcm_struct.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

struct BeadGridShape {
  unsigned Cols = 256;
  unsigned Rows = 256;
  double Pitch = 16.0;
  double K = 0.0;
  double Sigma = 2.0;
  double Amplitude = 1000.0;
  int Background = 100;
};

struct BeadPosition {
  double X, Y;
};

// The lattice position (centre + pitch (i, j)) moved by the distortion.
inline BeadPosition BarrelDistorted(const BeadGridShape& shape, double x, double y)
{
  const double cx = (shape.Cols - 1) / 2.0, cy = (shape.Rows - 1) / 2.0;
  const double half = std::max(shape.Cols, shape.Rows) / 2.0;
  const double u = (x - cx) / half, v = (y - cy) / half;
  const double factor = 1.0 + shape.K * (u * u + v * v);
  return {cx + (x - cx) * factor, cy + (y - cy) * factor};
}

// The undistorted lattice positions that fall on the image.
inline std::vector<BeadPosition> LatticePositions(const BeadGridShape& shape)
{
  const double cx = (shape.Cols - 1) / 2.0, cy = (shape.Rows - 1) / 2.0;
  const int reachX = static_cast<int>(cx / shape.Pitch) + 1, reachY = static_cast<int>(cy / shape.Pitch) + 1;
  std::vector<BeadPosition> positions;
  for (int j = -reachY; j <= reachY; ++j)
    for (int i = -reachX; i <= reachX; ++i)
      positions.push_back({cx + i * shape.Pitch, cy + j * shape.Pitch});
  return positions;
}

// Beads at the given positions.
inline std::unique_ptr<DCM_STRUCT> BeadImage(const BeadGridShape& shape, const std::vector<BeadPosition>& beads)
{
  auto image = std::make_unique<DCM_STRUCT>(shape.Cols, shape.Rows);
  std::vector<double> sum(static_cast<std::size_t>(shape.Cols) * shape.Rows, 0.0);
  const int reach = static_cast<int>(std::ceil(4.0 * shape.Sigma));
  for (const BeadPosition& b : beads)
    for (int r = static_cast<int>(b.Y) - reach; r <= static_cast<int>(b.Y) + reach; ++r)
      for (int c = static_cast<int>(b.X) - reach; c <= static_cast<int>(b.X) + reach; ++c)
        if (c >= 0 && r >= 0 && c < static_cast<int>(shape.Cols) && r < static_cast<int>(shape.Rows))
          sum[static_cast<std::size_t>(r) * shape.Cols + c] +=
              std::exp(-((c - b.X) * (c - b.X) + (r - b.Y) * (r - b.Y)) / (2.0 * shape.Sigma * shape.Sigma));
  int* pixels = image->Data->GetIDataAddress();
  for (std::size_t k = 0; k < sum.size(); ++k)
    pixels[k] = shape.Background + static_cast<int>(std::lround(shape.Amplitude * sum[k]));
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

// The distorted grid.
inline std::unique_ptr<DCM_STRUCT> BeadGrid(const BeadGridShape& shape)
{
  std::vector<BeadPosition> beads;
  for (const BeadPosition& p : LatticePositions(shape))
    beads.push_back(BarrelDistorted(shape, p.X, p.Y));
  return BeadImage(shape, beads);
}
