// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/internal/ipg_row_bands.h"

#include <vector>

// External forces of active contours, on raw rows (row-major, Cols x Rows):
// the edge map, its gradient and the gradient vector flow of C. Xu & J. L.
// Prince, "Snakes, shapes, and gradient vector flow", IEEE Trans. Image
// Processing 7(3), 1998, pp. 359-369.

// A vector field on the pixel grid: U along the columns (x), V along the rows (y).
struct IPG_VECTOR_FIELD {
  int Cols = 0;
  int Rows = 0;
  std::vector<float> U;
  std::vector<float> V;
};

// The gradient of G_sigma * I, divided by its largest length so that every
// vector is at most 1 long; all 0 on a flat image. Marks (above 16777216)
// count as 16777216. With roi rows, pixels whose ROI value is not 16777217 get
// no gradient. sigma <= 0 leaves the image unsmoothed. Central differences,
// one-sided on the borders; borders replicated for the smoothing.
IPG_VECTOR_FIELD Ipg_SmoothedGradient(const int* pixels, const int* roi, int cols, int rows, double sigma);

// The edge map f = |grad(G_sigma * I)|^2 of Xu & Prince (eq. 11) scaled to
// [0, 1]: the squared lengths of Ipg_SmoothedGradient.
std::vector<float> Ipg_EdgeMap(const int* pixels, const int* roi, int cols, int rows, double sigma);

// Central differences of f, one-sided on the borders.
IPG_VECTOR_FIELD Ipg_GradientOf(const std::vector<float>& f, int cols, int rows);

// Every vector divided by its length; vectors shorter than 1e-6 (the edge map
// lies in [0, 1]) are left, so that flat areas exert no force. Xu & Prince
// drive their snakes with the normalised field: a point then moves by about
// kappa / gamma pixels per iteration wherever it is.
void Ipg_NormaliseField(IPG_VECTOR_FIELD& field);

// The GVF v = (u, v) minimising mu |grad v|^2 + |grad f|^2 |v - grad f|^2, by
// the explicit iteration of Xu & Prince (eq. 16) from v = grad f:
//   u += dt (mu lap(u) - |grad f|^2 (u - f_x)), the same for v with f_y,
// with the 5-point Laplacian and replicated borders. The time step
// dt = min(1, 1 / (4 mu + max |grad f|^2)) keeps every new value a convex
// combination of its neighbours and the data term, so the iteration is stable
// (Courant bound dt <= 1 / (4 mu)) whatever mu. Rows run in parallel bands;
// each pixel reads only the previous iterate, so every thread count gives the
// same field.
class IPG_GVF_DIFFUSION {
public:
  IPG_GVF_DIFFUSION(const std::vector<float>& edgeMap, int cols, int rows, double mu);

  void Step();
  const IPG_VECTOR_FIELD& Field() const { return Current; }
  double TimeStep() const { return Dt; }

private:
  void StepRows(unsigned firstRow, unsigned endRow);

  IPG_VECTOR_FIELD Current;
  IPG_VECTOR_FIELD Next;
  std::vector<float> Keep;  // 1 - 4 r - dt |grad f|^2: the weight of the pixel itself
  std::vector<float> DataU; // dt |grad f|^2 f_x
  std::vector<float> DataV; // dt |grad f|^2 f_y
  float Spread = 0.0f;      // r = mu dt: the weight of each of the four neighbours
  double Dt = 1.0;
  IPG_ROW_BANDS Bands;
};
