#pragma once

#include "dcm/dcm_data.h"
#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"

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

// The point-operation walk: for each pixel (col, row) of the first cols x rows of
// in, writes fn(value, inside ROI) to the same position of out, where value is
// the pixel as GetValueReal reads it and the result is stored as
// SetValue(double) stores it (positions outside out are skipped). Rows run in
// parallel bands; the result does not depend on the order.
template <typename Fn>
void Ipg_MapRealPixels(const DCM_DATA& in, const DCM_STRUCT* roi, DCM_DATA& out, unsigned cols, unsigned rows, Fn fn)
{
  const unsigned inCols = in.GetNbOfCols();
  const unsigned outCols = out.GetNbOfCols();
  const unsigned usedRows = std::min({rows, in.GetNbOfRows(), out.GetNbOfRows()});
  const unsigned usedCols = std::min({cols, inCols, outCols});
  const short inPrecision = in.GetPrecision();
  const short outPrecision = out.GetPrecision();
  const int* src = in.GetIDataAddress();
  int* dst = out.GetIDataAddress();
  const IPG_ROW_BANDS bands = Ipg_SplitRows(usedRows, usedCols);
  std::vector<IPG_BAND_EXTREMES> extremes(bands.Count);
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    IPG_BAND_EXTREMES written;
    for (unsigned row = begin; row < end; ++row) {
      const int* s = src + static_cast<std::size_t>(row) * inCols;
      int* d = dst + static_cast<std::size_t>(row) * outCols;
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
      for (unsigned col = 0; col < usedCols; ++col) {
        const double raw = s[col];
        const double value = inPrecision > 0 ? raw / inPrecision : raw;
        const int stored = DCM_DATA::ToRaw(fn(value, roiRow.Inside(col)), outPrecision);
        d[col] = stored;
        written.Add(stored);
      }
    }
    extremes[band] = written;
  });
  Ipg_WidenExtremes(out, extremes);
}
