// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_data.h"
#include "ipg/internal/ipg_fourier_buffer.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <functional>
#include <mutex>

// Loads the Fourier buffer from row-major images and stores its coefficients
// into them while the transform runs (Mth_FFT2DStreamed): a group of columns
// is loaded just before its transforms read it, and rows of coefficients are
// stored as the transform finishes them, so that neither walks the whole
// buffer apart. Every coefficient and every pixel is computed on its own, so
// the pieces run on several threads with the same result.

// A Load for IPG_FOURIER_BUFFER::Transform: buffer[c][r] = value(c, r), eight
// rows at a time across each group of columns (a line of each image row), so
// that each column receives whole cache lines rather than one value in turn.
template <typename Value>
std::function<void(int, int)> Ipg_FourierColumnsLoad(IPG_FOURIER_BUFFER& buffer, Value value)
{
  MTH_COMPLEX** columns = buffer.Get();
  const int rows = buffer.GetNbOfRows();
  return [columns, rows, value](int first, int last) {
    constexpr int kBlock = 8;
    for (int top = 0; top < rows; top += kBlock) {
      const int bottom = std::min(rows, top + kBlock);
      for (int c = first; c < last; ++c)
        for (int r = top; r < bottom; ++r)
          columns[c][r] = value(c, r);
    }
  };
}

namespace ipg_fourier_detail {

// The Take of Ipg_FourierTransformInto; Finish() widens the stored extremes
// once the transform is done.
template <typename Raw>
class IPG_FOURIER_TAKE {
public:
  IPG_FOURIER_TAKE(const IPG_FOURIER_BUFFER& buffer, DCM_DATA& out, int shiftCols, int shiftRows, Raw raw)
      : Cols(buffer.GetNbOfCols()), Rows(buffer.GetNbOfRows()),
        Width(std::min(Cols, static_cast<int>(out.GetNbOfCols()))),
        Height(std::min(Rows, static_cast<int>(out.GetNbOfRows()))), ShiftCols(shiftCols), ShiftRows(shiftRows),
        Out(out), ToRaw(raw)
  {
  }

  std::function<void(int, int, const MTH_COMPLEX*, std::size_t)> Stream()
  {
    return [this](int first, int last, const MTH_COMPLEX* values, std::size_t stride) {
      Take(first, last, values, stride);
    };
  }

  void Finish()
  {
    if (Low > High)
      return; // nothing written
    Out.SetMin(std::min(Out.GetMin(), Low));
    Out.SetMax(std::max(Out.GetMax(), High));
  }

private:
  // Rows [first, last) of coefficients, [c][r] at values[c * stride + r - first].
  void Take(int first, int last, const MTH_COMPLEX* values, std::size_t stride)
  {
    int low = INT_MAX, high = INT_MIN;
    int* pixels = Out.GetIDataAddress();
    const std::size_t outStride = Out.GetNbOfCols();
    // Along a row, two runs of pixels: x = c + shift up to the last column,
    // then x = c + shift - cols.
    const int wrap = Cols - ShiftCols;
    const int runs[2][3] = {{0, std::min(wrap, Width - ShiftCols), ShiftCols}, {wrap, std::min(Cols, Width + wrap), -wrap}};
    for (int r = first; r < last; ++r) {
      const int y = r < Rows - ShiftRows ? r + ShiftRows : r + ShiftRows - Rows;
      if (y >= Height)
        continue;
      int* line = pixels + static_cast<std::size_t>(y) * outStride;
      const MTH_COMPLEX* column = values + (r - first);
      for (const auto& run : runs)
        for (int c = run[0]; c < run[1]; ++c) {
          const int v = ToRaw(column[static_cast<std::size_t>(c) * stride]);
          line[c + run[2]] = v;
          low = std::min(low, v);
          high = std::max(high, v);
        }
    }
    std::lock_guard lock(Merge);
    Low = std::min(Low, low);
    High = std::max(High, high);
  }

  int Cols, Rows, Width, Height, ShiftCols, ShiftRows;
  DCM_DATA& Out;
  Raw ToRaw;
  std::mutex Merge;
  int Low = INT_MAX;
  int High = INT_MIN;
};

} // namespace ipg_fourier_detail

// Transforms the buffer (dir 1 forward, -1 inverse), its values loaded through
// load (empty: the buffer holds them), and stores the coefficients into out
// as they are finished, the coefficient [c][r] to pixel ((c + shiftCols) mod
// cols, (r + shiftRows) mod rows) as raw(z), pixels beyond the smaller of the
// two sizes left alone; the stored extremes widen to the values written. The
// buffer's values are left unspecified. False when the transform fails.
template <typename Raw>
bool Ipg_FourierTransformInto(IPG_FOURIER_BUFFER& buffer, int dir, std::function<void(int, int)> load, DCM_DATA& out,
                              int shiftCols, int shiftRows, Raw raw)
{
  ipg_fourier_detail::IPG_FOURIER_TAKE<Raw> take(buffer, out, shiftCols, shiftRows, raw);
  if (!buffer.Transform(dir, MTH_FFT_STREAMS{std::move(load), take.Stream()}))
    return false;
  take.Finish();
  return true;
}
