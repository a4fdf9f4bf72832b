// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_data.h"
#include "ipg/internal/ipg_fourier_buffer.h"
#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <climits>
#include <vector>

// Moves between row-major images and the [column][row] Fourier buffer. Image
// rows and buffer columns cross each other, and with power-of-two sizes a
// direct walk strides through memory at distances that fall into the same
// cache sets. So each tile is first gathered into a small local block along
// one side's memory order and then written out along the other's. Every
// coefficient and every pixel is computed on its own, so row bands run in
// parallel with the same result.

namespace ipg_fourier_detail {

inline constexpr int kLoadCols = 16;  // buffer columns per tile
inline constexpr int kLoadRows = 64;  // and their rows
inline constexpr int kStoreCols = 64; // output columns per tile
inline constexpr int kStoreRows = 32; // and rows

} // namespace ipg_fourier_detail

// buffer[c][r] = value(c, r) for every coefficient.
template <typename Value>
void Ipg_FourierLoad(IPG_FOURIER_BUFFER& buffer, Value value)
{
  using namespace ipg_fourier_detail;
  const int cols = buffer.GetNbOfCols(), rows = buffer.GetNbOfRows();
  MTH_COMPLEX** columns = buffer.Get();
  Ipg_RunBands(Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols)),
               [&](unsigned, unsigned begin, unsigned end) {
                 MTH_COMPLEX tile[kLoadCols][kLoadRows];
                 for (int r0 = static_cast<int>(begin); r0 < static_cast<int>(end); r0 += kLoadRows) {
                   const int height = std::min(static_cast<int>(end) - r0, kLoadRows);
                   for (int c0 = 0; c0 < cols; c0 += kLoadCols) {
                     const int width = std::min(cols - c0, kLoadCols);
                     for (int r = 0; r < height; ++r)
                       for (int c = 0; c < width; ++c)
                         tile[c][r] = value(c0 + c, r0 + r);
                     for (int c = 0; c < width; ++c)
                       std::copy(tile[c], tile[c] + height, columns[c0 + c] + r0);
                   }
                 }
               });
}

namespace ipg_fourier_detail {

// Output pixels [x0, x1) x [y0, y1) from the coefficients [x - dx][y - dy],
// raw(z) each; widens low/high.
template <typename Raw>
void StoreRect(MTH_COMPLEX** columns, int* pixels, std::size_t stride, int x0, int x1, int dx, int y0, int y1, int dy,
               Raw& raw, int& low, int& high)
{
  int tile[kStoreRows][kStoreCols];
  for (int ty = y0; ty < y1; ty += kStoreRows)
    for (int tx = x0; tx < x1; tx += kStoreCols) {
      const int height = std::min(y1 - ty, kStoreRows), width = std::min(x1 - tx, kStoreCols);
      for (int x = 0; x < width; ++x) {
        const MTH_COMPLEX* source = columns[tx + x - dx] + (ty - dy);
        for (int y = 0; y < height; ++y)
          tile[y][x] = raw(source[y]);
      }
      for (int y = 0; y < height; ++y) {
        int* line = pixels + static_cast<std::size_t>(ty + y) * stride + tx;
        for (int x = 0; x < width; ++x) {
          line[x] = tile[y][x];
          low = std::min(low, tile[y][x]);
          high = std::max(high, tile[y][x]);
        }
      }
    }
}

} // namespace ipg_fourier_detail

// The coefficient [c][r] goes to out pixel ((c + shiftCols) mod cols,
// (r + shiftRows) mod rows) as raw(z), a stored value (shifts 0 to cols - 1
// and 0 to rows - 1); pixels beyond the smaller of the two sizes are left
// alone, and the stored extremes widen to the values written.
template <typename Raw>
void Ipg_FourierStoreRaw(IPG_FOURIER_BUFFER& buffer, DCM_DATA& out, int shiftCols, int shiftRows, Raw raw)
{
  const int cols = buffer.GetNbOfCols(), rows = buffer.GetNbOfRows();
  const int width = std::min(cols, static_cast<int>(out.GetNbOfCols()));
  const int height = std::min(rows, static_cast<int>(out.GetNbOfRows()));
  if (width <= 0 || height <= 0)
    return;
  // Along each axis two runs of pixels, each fed by a run of coefficients at a
  // fixed offset: x in [0, shift) from c = x + cols - shift, the rest from c = x - shift.
  const int colRuns[2][3] = {{0, std::min(shiftCols, width), shiftCols - cols}, {std::min(shiftCols, width), width, shiftCols}};
  const int rowRuns[2][3] = {{0, std::min(shiftRows, height), shiftRows - rows}, {std::min(shiftRows, height), height, shiftRows}};
  MTH_COMPLEX** columns = buffer.Get();
  int* pixels = out.GetIDataAddress();
  const std::size_t stride = out.GetNbOfCols();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(height), static_cast<std::size_t>(width));
  std::vector<int> lows(bands.Count, INT_MAX), highs(bands.Count, INT_MIN);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    for (const auto& rowRun : rowRuns) {
      const int y0 = std::max(rowRun[0], static_cast<int>(begin)), y1 = std::min(rowRun[1], static_cast<int>(end));
      for (const auto& colRun : colRuns)
        ipg_fourier_detail::StoreRect(columns, pixels, stride, colRun[0], colRun[1], colRun[2], y0, y1, rowRun[2], raw,
                                      lows[band], highs[band]);
    }
  });
  out.SetMin(std::min(out.GetMin(), *std::min_element(lows.begin(), lows.end())));
  out.SetMax(std::max(out.GetMax(), *std::max_element(highs.begin(), highs.end())));
}

// Ipg_FourierStoreRaw of part(z), as out.SetValue(col, row, part(z)) would write it.
template <typename Part>
void Ipg_FourierStore(IPG_FOURIER_BUFFER& buffer, DCM_DATA& out, int shiftCols, int shiftRows, Part part)
{
  const short precision = out.GetPrecision();
  Ipg_FourierStoreRaw(buffer, out, shiftCols, shiftRows,
                      [&part, precision](const MTH_COMPLEX& z) { return DCM_DATA::ToRaw(part(z), precision); });
}
