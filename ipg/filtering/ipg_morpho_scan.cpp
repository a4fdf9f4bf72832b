// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_morpho_scan.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_morpho_runs.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"

#include <algorithm>
#include <climits>
#include <cstddef>

namespace {

struct Lower {
  int operator()(int a, int b) const { return std::min(a, b); }
};
struct Higher {
  int operator()(int a, int b) const { return std::max(a, b); }
};

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

template <class Pick>
void ScanPlain(const Ipg_MorphoField& field, const std::vector<unsigned char>& element, int sizeX, int sizeY,
               int init, int* out, Pick pick)
{
  const int hx = sizeX / 2, hy = sizeY / 2, cols = field.Cols;
  std::vector<std::ptrdiff_t> offsets; // element positions taking part, row by row
  for (int y = 0; y < sizeY; ++y)
    for (int x = 0; x < sizeX; ++x)
      if (element[At(x, y, sizeX)] != 0)
        offsets.push_back(static_cast<std::ptrdiff_t>(y - hy) * cols + (x - hx));
  const int* values = field.Values.data();
  for (int row = hy; row < field.Rows - hy; ++row)
    for (int col = hx; col < cols - hx; ++col) {
      const std::ptrdiff_t centre = static_cast<std::ptrdiff_t>(At(col, row, cols));
      int m = init;
      for (const std::ptrdiff_t offset : offsets)
        m = pick(m, values[centre + offset]);
      out[centre] = m;
    }
}

// dst[i] = extreme of src[(i - h) * stride ... (i + h) * stride] for i in [h, n - h - 1],
// with the block prefix / suffix scheme; prefix and suffix are scratch of n entries.
template <class Pick>
void RunningExtreme(const int* src, int* dst, int n, int length, std::ptrdiff_t stride, std::vector<int>& prefix,
                    std::vector<int>& suffix, Pick pick)
{
  const int h = length / 2;
  if (n < length)
    return;
  for (int start = 0; start < n; start += length) {
    const int end = std::min(start + length, n) - 1;
    prefix[start] = src[start * stride];
    for (int i = start + 1; i <= end; ++i)
      prefix[i] = pick(prefix[i - 1], src[i * stride]);
    suffix[end] = src[end * stride];
    for (int i = end - 1; i >= start; --i)
      suffix[i] = pick(suffix[i + 1], src[i * stride]);
  }
  for (int i = h; i < n - h; ++i)
    dst[i * stride] = pick(suffix[i - h], prefix[i + h]);
}

template <class Pick>
void ScanRectangle(const Ipg_MorphoField& field, int sizeX, int sizeY, int init, int* out, Pick pick)
{
  const int cols = field.Cols, rows = field.Rows, hx = sizeX / 2, hy = sizeY / 2;
  if (cols < sizeX || rows < sizeY)
    return;
  // Horizontal pass over every row (the vertical pass needs the rows of the margin).
  std::vector<int> across(field.Values.size());
  std::vector<int> prefix(static_cast<std::size_t>(std::max(cols, rows)));
  std::vector<int> suffix(prefix.size());
  for (int row = 0; row < rows; ++row)
    RunningExtreme(field.Values.data() + At(0, row, cols), across.data() + At(0, row, cols), cols, sizeX, 1, prefix,
                   suffix, pick);
  // Vertical pass, whole rows at a time so that memory is read in order.
  std::vector<int> down(across.size()), up(across.size());
  for (int row = 0; row < rows; ++row) {
    const bool start = row % sizeY == 0;
    for (int col = hx; col < cols - hx; ++col) {
      const std::size_t i = At(col, row, cols);
      down[i] = start ? across[i] : pick(down[i - cols], across[i]);
    }
  }
  for (int row = rows - 1; row >= 0; --row) {
    const bool end = row % sizeY == sizeY - 1 || row == rows - 1;
    for (int col = hx; col < cols - hx; ++col) {
      const std::size_t i = At(col, row, cols);
      up[i] = end ? across[i] : pick(up[i + cols], across[i]);
    }
  }
  for (int row = hy; row < rows - hy; ++row)
    for (int col = hx; col < cols - hx; ++col)
      out[At(col, row, cols)] = pick(init, pick(up[At(col, row - hy, cols)], down[At(col, row + hy, cols)]));
}

} // namespace

Ipg_MorphoField Ipg_MorphoPrepare(const DCM_STRUCT& in, const DCM_STRUCT* roi, Ipg_MorphoKind kind)
{
  Ipg_MorphoField field;
  field.Cols = static_cast<int>(in.Data->GetNbOfCols());
  field.Rows = static_cast<int>(in.Data->GetNbOfRows());
  const int neutral = kind == Ipg_MorphoKind::Erosion ? INT_MAX : INT_MIN;
  const int* pixels = in.Data->GetIDataAddress();
  field.Values.resize(in.Data->GetSize());
  const int cols = field.Cols;
  Ipg_RunBands(Ipg_SplitRows(static_cast<unsigned>(field.Rows), static_cast<std::size_t>(cols)),
               [&](unsigned, unsigned begin, unsigned end) {
                 for (unsigned row = begin; row < end; ++row) {
                   const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
                   const int* from = pixels + At(0, static_cast<int>(row), cols);
                   int* to = field.Values.data() + At(0, static_cast<int>(row), cols);
                   for (int col = 0; col < cols; ++col)
                     to[col] = roiRow.Inside(static_cast<unsigned>(col)) && Ipg_MorphoTakesPart(from[col]) ? from[col] : neutral;
                 }
               });
  return field;
}

void Ipg_MorphoScanPlain(const Ipg_MorphoField& field, const std::vector<unsigned char>& element, int sizeX,
                         int sizeY, Ipg_MorphoKind kind, int init, int* out)
{
  if (sizeX < 1 || sizeY < 1 || element.size() < static_cast<std::size_t>(sizeX) * sizeY)
    return;
  if (kind == Ipg_MorphoKind::Erosion)
    ScanPlain(field, element, sizeX, sizeY, init, out, Lower{});
  else
    ScanPlain(field, element, sizeX, sizeY, init, out, Higher{});
}

void Ipg_MorphoScanRectangle(const Ipg_MorphoField& field, int sizeX, int sizeY, Ipg_MorphoKind kind, int init,
                             int* out)
{
  if (sizeX < 1 || sizeY < 1)
    return;
  if (kind == Ipg_MorphoKind::Erosion)
    ScanRectangle(field, sizeX, sizeY, init, out, Lower{});
  else
    ScanRectangle(field, sizeX, sizeY, init, out, Higher{});
}

bool Ipg_MorphoIsFullRectangle(const std::vector<unsigned char>& element)
{
  return std::all_of(element.begin(), element.end(), [](unsigned char flag) { return flag != 0; });
}
