// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_gradient_wavelet.h"

#include <cstddef>
#include <vector>

int Ipg_PeriodicIndex(int a, int n)
{
  if (n <= 0)
    return 0;
  const int r = a % n;
  return r < 0 ? r + n : r;
}

namespace {

std::size_t At(int r, int c, int cols, int rows)
{
  return static_cast<std::size_t>(Ipg_PeriodicIndex(r, rows)) * cols + Ipg_PeriodicIndex(c, cols);
}

} // namespace

bool Ipg_WaveletDifference(float* d, const float* in, int cols, int rows, int type, int direction)
{
  auto at = [&](int r, int c) { return in[At(r, c, cols, rows)]; };
  auto to = [&](int r, int c) -> float& { return d[At(r, c, cols, rows)]; };
  const bool alongRow = direction == 0;
  switch (type) {
  case 0:
  case 2:
  case 3: {
    const int step = type == 2 ? -1 : 1;
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        const float next = alongRow ? at(r, c + step) : at(r + step, c);
        if (type == 3)
          to(r, c) = next - (alongRow ? at(r, c - 1) : at(r - 1, c));
        else
          to(r, c) = at(r, c) - next;
      }
    return true;
  }
  case 1:
    // Scattered: each input value is added with its weight around it.
    for (int r = 0; r < rows; ++r)
      for (int c = 0; c < cols; ++c) {
        const float v = at(r, c);
        if (alongRow) {
          to(r, c - 1) += 2 * v;
          to(r, c + 1) -= 2 * v;
          to(r - 1, c - 1) += v;
          to(r - 1, c + 1) -= v;
          to(r + 1, c - 1) += v;
          to(r + 1, c + 1) -= v;
        } else {
          to(r - 1, c) += 2 * v;
          to(r + 1, c) -= 2 * v;
          to(r - 1, c + 1) += v;
          to(r + 1, c + 1) -= v;
          to(r - 1, c - 1) += v;
          to(r + 1, c - 1) -= v;
        }
      }
    return true;
  default:
    return false;
  }
}

void Ipg_BinomialSmoothing(float* out, const float* in, int cols, int rows)
{
  const std::size_t n = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  std::vector<float> horizontal(n);
  auto index = [&](int r, int c) { return At(r, c, cols, rows); };
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c)
      horizontal[index(r, c)] = 0.25f * (in[index(r, c - 1)] + 2 * in[index(r, c)] + in[index(r, c + 1)]);
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c)
      out[index(r, c)] =
          0.25f * (horizontal[index(r - 1, c)] + 2 * horizontal[index(r, c)] + horizontal[index(r + 1, c)]);
}

