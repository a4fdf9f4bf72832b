// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "dcm/dcm_data.h"
#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_simd.h"
#include "ipg/internal/ipg_streamed_writes.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

// Extremes of the raw values written by one band.
struct IPG_BAND_EXTREMES {
  int Min = INT_MAX;
  int Max = INT_MIN;
  void Add(int v)
  {
    Min = v < Min ? v : Min;
    Max = v > Max ? v : Max;
  }
};

inline void Ipg_MergeExtremes(IPG_BAND_EXTREMES& into, const IPG_BAND_EXTREMES& from)
{
  into.Min = std::min(into.Min, from.Min);
  into.Max = std::max(into.Max, from.Max);
}

// Merges the extremes of cols values of a row into seen (vectorised where inlined).
[[gnu::always_inline]] inline void Ipg_AddRowExtremes(const int* row, int cols, IPG_BAND_EXTREMES& seen)
{
  int mn = seen.Min, mx = seen.Max;
  for (int c = 0; c < cols; ++c) {
    mn = std::min(mn, row[c]);
    mx = std::max(mx, row[c]);
  }
  seen.Min = mn;
  seen.Max = mx;
}

// Widens out's stored extremes to cover what the bands wrote, as writing each
// pixel through SetValue would have.
inline void Ipg_WidenExtremes(DCM_DATA& out, const std::vector<IPG_BAND_EXTREMES>& bands)
{
  int mn = out.GetMin();
  int mx = out.GetMax();
  for (const IPG_BAND_EXTREMES& b : bands) {
    mn = std::min(mn, b.Min);
    mx = std::max(mx, b.Max);
  }
  out.SetMin(mn);
  out.SetMax(mx);
}

// Row `row` of a ROI as raw values, with how many of its columns exist (a ROI of
// another size than the image: what lies outside it is outside the ROI).
struct IPG_ROI_ROW {
  const int* Values = nullptr; // null: no ROI, everything inside
  unsigned Cols = 0;
  bool Inside(unsigned col) const { return Values == nullptr || (col < Cols && Ipg_InsideRoi(Values[col])); }
  // The same row seen from column `first` on.
  IPG_ROI_ROW From(unsigned first) const
  {
    if (Values == nullptr || first >= Cols)
      return {Values, 0};
    return {Values + first, Cols - first};
  }
};

inline IPG_ROI_ROW Ipg_RoiRow(const DCM_STRUCT* roi, unsigned row)
{
  static const int kNothing = 0;
  if (roi == nullptr)
    return {};
  const DCM_DATA& data = *roi->Data;
  if (row >= data.GetNbOfRows() || data.GetNbOfCols() == 0)
    return {&kNothing, 0};
  return {data.GetIDataAddress() + static_cast<std::size_t>(row) * data.GetNbOfCols(), data.GetNbOfCols()};
}

namespace ipg_point_kernel {

// One row of the walk; FullRoi: a ROI whose row covers every column, read
// without bounds checks. Inlined into a plain and an AVX2 copy.
template <bool FullRoi, typename Fn>
[[gnu::always_inline]] inline void MapRow(const int* s, int* d, IPG_ROI_ROW roi, unsigned cols, Fn& fn,
                                          IPG_BAND_EXTREMES& written)
{
  int mn = written.Min, mx = written.Max;
  for (unsigned col = 0; col < cols; ++col) {
    const bool inside = FullRoi ? Ipg_InsideRoi(roi.Values[col]) : roi.Inside(col);
    const int stored = fn(s[col], inside);
    d[col] = stored;
    mn = stored < mn ? stored : mn;
    mx = stored > mx ? stored : mx;
  }
  written.Min = mn;
  written.Max = mx;
}

template <typename Fn>
[[gnu::always_inline]] inline void MapRowAnyRoi(const int* s, int* d, IPG_ROI_ROW roi, unsigned cols, Fn& fn,
                                                IPG_BAND_EXTREMES& written)
{
  if (roi.Values != nullptr && roi.Cols >= cols)
    MapRow<true>(s, d, roi, cols, fn, written);
  else
    MapRow<false>(s, d, roi, cols, fn, written);
}

// stream: the row goes out through a stage with streaming stores.
template <typename Fn>
[[gnu::always_inline]] inline void MapRowOut(const int* s, int* d, IPG_ROI_ROW roi, unsigned cols, Fn& fn,
                                             IPG_BAND_EXTREMES& written, bool stream)
{
  if (stream)
    Ipg_WriteRowStreamed(d, cols, [&](unsigned first, unsigned n, int* stage) __attribute__((always_inline)) {
      MapRowAnyRoi(s + first, stage, roi.From(first), n, fn, written);
    });
  else
    MapRowAnyRoi(s, d, roi, cols, fn, written);
}

template <typename Fn>
void MapRowPlain(const int* s, int* d, IPG_ROI_ROW roi, unsigned cols, Fn& fn, IPG_BAND_EXTREMES& written,
                 bool stream)
{
  MapRowOut(s, d, roi, cols, fn, written, stream);
}

#if defined(__x86_64__)
template <typename Fn>
[[gnu::target("avx2")]] void MapRowAvx2(const int* s, int* d, IPG_ROI_ROW roi, unsigned cols, Fn& fn,
                                        IPG_BAND_EXTREMES& written, bool stream)
{
  MapRowOut(s, d, roi, cols, fn, written, stream);
}
#endif

} // namespace ipg_point_kernel

// Extremes of what a walk wrote, and whether it wrote every pixel of the output
// (then they are the output's extremes and need no second pass).
struct IPG_WRITTEN {
  IPG_BAND_EXTREMES Extremes;
  bool WholeOutput = false;
};

// The point walk on raw values: for each pixel (col, row) of the first
// cols x rows of in, writes fn(raw value, inside ROI) to the same position of
// out (positions outside out are skipped) and widens out's stored extremes as
// SetValue would. Rows run in parallel bands, each in the AVX2 copy when the
// processor has it; fn must give a result that depends only on its arguments.
template <typename Fn>
IPG_WRITTEN Ipg_MapPixels(const DCM_DATA& in, const DCM_STRUCT* roi, DCM_DATA& out, unsigned cols, unsigned rows, Fn fn)
{
  const unsigned inCols = in.GetNbOfCols();
  const unsigned outCols = out.GetNbOfCols();
  const unsigned usedRows = std::min({rows, in.GetNbOfRows(), out.GetNbOfRows()});
  const unsigned usedCols = std::min({cols, inCols, outCols});
  const int* src = in.GetIDataAddress();
  int* dst = out.GetIDataAddress();
  const bool avx2 = Ipg_UseAvx2();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(usedRows, usedCols);
  std::vector<IPG_BAND_EXTREMES> extremes(bands.Count);
  // In place, each chunk of a row is read before it is streamed back.
  const std::size_t rowBytes = static_cast<std::size_t>(usedRows) * usedCols * sizeof(int);
  const bool stream = Ipg_StreamsWrites(src == dst ? rowBytes : 2 * rowBytes);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    IPG_BAND_EXTREMES written;
    for (unsigned row = begin; row < end; ++row) {
      const int* s = src + static_cast<std::size_t>(row) * inCols;
      int* d = dst + static_cast<std::size_t>(row) * outCols;
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
#if defined(__x86_64__)
      if (avx2) {
        ipg_point_kernel::MapRowAvx2(s, d, roiRow, usedCols, fn, written, stream);
        continue;
      }
#endif
      ipg_point_kernel::MapRowPlain(s, d, roiRow, usedCols, fn, written, stream);
    }
    if (stream)
      Ipg_StreamFence();
    extremes[band] = written;
  });
  Ipg_WidenExtremes(out, extremes);
  IPG_WRITTEN result;
  for (const IPG_BAND_EXTREMES& e : extremes) {
    result.Extremes.Add(e.Min);
    result.Extremes.Add(e.Max);
  }
  result.WholeOutput = usedRows == out.GetNbOfRows() && usedCols == outCols && out.GetSize() > 0;
  return result;
}

// The point walk on linear positions: the first count values of src, cols to
// a row, each written as fn(raw value, inside the ROI at its column and row)
// to the same position of dst. Rows run in parallel bands, in the AVX2 copy
// when the processor has it; returns the extremes written.
template <typename Fn>
IPG_BAND_EXTREMES Ipg_MapLinearPixels(const int* src, int* dst, unsigned cols, std::size_t count,
                                      const DCM_STRUCT* roi, Fn fn)
{
  IPG_BAND_EXTREMES all;
  if (cols == 0 || count == 0)
    return all;
  const unsigned rows = static_cast<unsigned>((count + cols - 1) / cols);
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, cols);
  std::vector<IPG_BAND_EXTREMES> extremes(bands.Count);
  const bool avx2 = Ipg_UseAvx2();
  const bool stream = Ipg_StreamsWrites((src == dst ? 1 : 2) * count * sizeof(int));
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    IPG_BAND_EXTREMES written;
    for (unsigned row = begin; row < end; ++row) {
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
      const std::size_t first = std::size_t{row} * cols;
      const unsigned n = static_cast<unsigned>(std::min<std::size_t>(cols, count - first));
#if defined(__x86_64__)
      if (avx2) {
        ipg_point_kernel::MapRowAvx2(src + first, dst + first, roiRow, n, fn, written, stream);
        continue;
      }
#endif
      ipg_point_kernel::MapRowPlain(src + first, dst + first, roiRow, n, fn, written, stream);
    }
    if (stream)
      Ipg_StreamFence();
    extremes[band] = written;
  });
  for (const IPG_BAND_EXTREMES& e : extremes)
    Ipg_MergeExtremes(all, e);
  return all;
}

// The same walk on real values: fn(value, inside ROI) gets the pixel as
// GetValueReal reads it, and its result is stored as SetValue(double) stores it.
template <typename Fn>
IPG_WRITTEN Ipg_MapRealPixels(const DCM_DATA& in, const DCM_STRUCT* roi, DCM_DATA& out, unsigned cols, unsigned rows,
                              Fn fn)
{
  const short inPrecision = in.GetPrecision();
  const short outPrecision = out.GetPrecision();
  if (inPrecision <= 1 && outPrecision <= 1) // nothing to scale: the common case, kept free of divisions
    return Ipg_MapPixels(in, roi, out, cols, rows,
                         [fn](int raw, bool inside) { return DCM_DATA::ToRaw(fn(static_cast<double>(raw), inside), 1); });
  return Ipg_MapPixels(in, roi, out, cols, rows, [fn, inPrecision, outPrecision](int raw, bool inside) {
    const double value = inPrecision > 0 ? static_cast<double>(raw) / inPrecision : static_cast<double>(raw);
    return DCM_DATA::ToRaw(fn(value, inside), outPrecision);
  });
}
