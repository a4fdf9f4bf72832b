// SPDX-License-Identifier: Apache-2.0
#pragma once

// Test images: a small fluent builder and the shapes several suites share.
//   auto image = TestImage(8, 6).Fill(10).Rect(2, 1, 3, 2, 50).Build();
//   auto row = ImageOf(4, 1, {1, 2, 3, 4});
//   auto mask = MaskFromText({".X.", "XXX"});
// Build() recomputes the extremes, as a read image has them.

#include "dcm/dcm_struct.h"
#include "mth/mth_fft.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

constexpr int kRoiInside = 16777217; // the ROI mark

class TestImage {
public:
  TestImage(unsigned cols, unsigned rows) : Image(std::make_unique<DCM_STRUCT>(cols, rows)) {}

  TestImage& Fill(int value) { return Each([value](unsigned, unsigned) { return value; }); }
  // Row-major values from the first pixel on; the rest stays as it was.
  TestImage& Values(const std::vector<int>& rowMajor)
  {
    int* pixels = Image->Data->GetIDataAddress();
    for (std::size_t k = 0; k < rowMajor.size() && k < Image->Data->GetSize(); ++k)
      pixels[k] = rowMajor[k];
    return *this;
  }
  TestImage& Each(const std::function<int(unsigned col, unsigned row)>& value)
  {
    for (unsigned r = 0; r < Image->GetNbOfRows(); ++r)
      for (unsigned c = 0; c < Image->GetNbOfCols(); ++c)
        Image->Data->GetIDataAddress()[static_cast<std::size_t>(r) * Image->GetNbOfCols() + c] = value(c, r);
    return *this;
  }
  TestImage& Rect(unsigned col, unsigned row, unsigned cols, unsigned rows, int value)
  {
    for (unsigned r = row; r < row + rows; ++r)
      for (unsigned c = col; c < col + cols; ++c)
        At(c, r, value);
    return *this;
  }
  TestImage& At(unsigned col, unsigned row, int value)
  {
    if (col < Image->GetNbOfCols() && row < Image->GetNbOfRows())
      Image->Data->GetIDataAddress()[static_cast<std::size_t>(row) * Image->GetNbOfCols() + col] = value;
    return *this;
  }
  std::unique_ptr<DCM_STRUCT> Build()
  {
    Image->Data->SetMin();
    Image->Data->SetMax();
    return std::move(Image);
  }
  operator std::unique_ptr<DCM_STRUCT>() { return Build(); }

private:
  std::unique_ptr<DCM_STRUCT> Image;
};

inline std::unique_ptr<DCM_STRUCT> ImageOf(unsigned cols, unsigned rows, const std::vector<int>& rowMajor)
{
  return TestImage(cols, rows).Values(rowMajor).Build();
}

inline std::unique_ptr<DCM_STRUCT> ImageOf(unsigned cols, unsigned rows,
                                           const std::function<int(unsigned col, unsigned row)>& value)
{
  return TestImage(cols, rows).Each(value).Build();
}

inline std::vector<int> PixelsOf(const DCM_STRUCT& image)
{
  const int* p = image.Data->GetIDataAddress();
  return std::vector<int>(p, p + image.Data->GetSize());
}

// One string per row, 'X' or '#' a set pixel.
inline std::unique_ptr<DCM_STRUCT> MaskFromText(const std::vector<std::string>& rows, int set = kRoiInside,
                                                int clear = 0)
{
  return ImageOf(static_cast<unsigned>(rows.empty() ? 0 : rows[0].size()), static_cast<unsigned>(rows.size()),
                 [&](unsigned c, unsigned r) { return rows[r][c] == 'X' || rows[r][c] == '#' ? set : clear; });
}

// The image back as text: 'X' where the pixel equals set.
inline std::vector<std::string> TextFromMask(const DCM_STRUCT& image, int set = kRoiInside)
{
  std::vector<std::string> rows(image.GetNbOfRows(), std::string(image.GetNbOfCols(), '.'));
  for (unsigned r = 0; r < image.GetNbOfRows(); ++r)
    for (unsigned c = 0; c < image.GetNbOfCols(); ++c)
      if (image.Data->GetValue(c, r) == set)
        rows[r][c] = 'X';
  return rows;
}

// Sierpinski carpet of 3^level pixels a side: 1 on the carpet, 0 in its holes
// (dimension ln 8 / ln 3 = 1.8928).
inline std::unique_ptr<DCM_STRUCT> SierpinskiCarpet(int level)
{
  const unsigned side = static_cast<unsigned>(std::lround(std::pow(3.0, level)));
  return ImageOf(side, side, [](unsigned col, unsigned row) {
    for (; col > 0 || row > 0; col /= 3, row /= 3)
      if (col % 3 == 1 && row % 3 == 1)
        return 0;
    return 1;
  });
}

// Each pixel is 1 with the given probability, else 0.
inline std::unique_ptr<DCM_STRUCT> RandomDots(unsigned side, double density, unsigned seed)
{
  std::mt19937 generator(seed);
  return ImageOf(side, side, [&](unsigned, unsigned) { return generator() < density * 4294967296.0 ? 1 : 0; });
}

// Fractional Brownian surface of Hurst exponent h by spectral synthesis
// (Saupe, in "The Science of Fractal Images", 1988): power |f|^-(2h + 2), that
// is Gaussian amplitudes times |f|^-(h + 1) with random phases, set on one half
// of the plane and mirrored as complex conjugates so that the inverse transform
// is real; grey levels 0..4095. Surface dimension 3 - h.
inline std::unique_ptr<DCM_STRUCT> FbmSurface(int side, double h, unsigned seed)
{
  std::mt19937 generator(seed);
  std::normal_distribution<double> gauss(0.0, 1.0);
  std::uniform_real_distribution<double> turn(0.0, 2.0 * std::acos(-1.0));
  std::vector<MTH_COMPLEX> store(static_cast<std::size_t>(side) * side, MTH_COMPLEX{0.0, 0.0});
  std::vector<MTH_COMPLEX*> columns(side);
  for (int c = 0; c < side; ++c)
    columns[c] = store.data() + static_cast<std::size_t>(c) * side;
  for (int u = 0; u < side; ++u)
    for (int v = 0; v < side; ++v) {
      const int mu = (side - u) % side, mv = (side - v) % side; // the mirror frequency
      if (mu < u || (mu == u && mv < v))
        continue; // set with its mirror
      const double fu = u <= side / 2 ? u : u - side, fv = v <= side / 2 ? v : v - side;
      const double f = std::sqrt(fu * fu + fv * fv);
      if (f == 0.0)
        continue;
      const double amplitude = std::pow(f, -(h + 1.0)) * gauss(generator);
      const double phase = (mu == u && mv == v) ? 0.0 : turn(generator); // self-mirrored: real
      columns[u][v] = {amplitude * std::cos(phase), amplitude * std::sin(phase)};
      columns[mu][mv] = {amplitude * std::cos(phase), -amplitude * std::sin(phase)};
    }
  Mth_FFT2D(columns.data(), side, side, -1);
  double lo = 1e300, hi = -1e300;
  for (const MTH_COMPLEX& z : store) {
    lo = std::min(lo, z.re);
    hi = std::max(hi, z.re);
  }
  return ImageOf(side, side, [&](unsigned col, unsigned row) {
    return static_cast<int>(std::lround((columns[col][row].re - lo) / (hi - lo) * 4095.0));
  });
}

// Binomial cascade on 2^levels pixels a side: at each level a square's mass goes
// p, 1 - p to its two halves both ways; the heaviest pixel is 2^24.
// D(q) = 2 log2(p^q + (1 - p)^q) / (1 - q).
inline std::unique_ptr<DCM_STRUCT> BinomialCascade(int levels, double p)
{
  auto weight = [&](unsigned k) {
    double w = 1.0;
    for (int bit = levels - 1; bit >= 0; --bit)
      w *= ((k >> bit) & 1u) ? 1.0 - p : p;
    return w;
  };
  const double top = std::pow(std::max(p, 1.0 - p), 2 * levels);
  return ImageOf(1u << levels, 1u << levels, [&](unsigned col, unsigned row) {
    return static_cast<int>(std::lround(weight(col) * weight(row) / top * 16777216.0));
  });
}

// A calibration-grid image: Gaussian beads on a square lattice through the
// image centre, each moved by a barrel distortion r' = r (1 + k r^2) about the
// centre (r in units of half the longer side; k < 0 pulls the rim in).
//   auto grid = BeadGrid({.Cols = 256, .Rows = 256, .Pitch = 16, .K = -0.05});
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
