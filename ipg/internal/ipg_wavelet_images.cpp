// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_wavelet_images.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/tlist.h"
#include "ipg/internal/ipg_discrete_wavelet.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_wavelet_denoise.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "mth/mth_matrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

const MTH_MATRIX* MatrixAt(const TList* list, int k)
{
  return list != nullptr ? static_cast<const MTH_MATRIX*>(list->Get(k)) : nullptr;
}

bool HasShape(const MTH_MATRIX* m, long long rows, long long cols)
{
  return m != nullptr && m->GetNbRows() == rows && m->GetNbCols() == cols;
}

std::vector<double> ValuesOf(const MTH_MATRIX& m)
{
  return std::vector<double>(m.GetData(), m.GetData() + static_cast<std::size_t>(m.GetNbRows()) * m.GetNbCols());
}

// The frame keeps four images of doubles per scale: at most 2^27 doubles (1 GiB).
constexpr double kMaxFrameDoubles = 134217728.0;
constexpr int kMaxWindowSize = 65535;

bool Refuse(const std::string& parameter, const std::string& where)
{
  return Ipg_InformAndFail(Ipg_MsgParameterRangeAt(parameter, where));
}

void Keep(IPG_OWNED_MATRICES& owned, TList& list, std::unique_ptr<MTH_MATRIX> matrix)
{
  owned.push_back(std::move(matrix));
  list.Add(owned.back().get());
}

void CopyBlock(const std::vector<double>& image, int cols, int col, int row, MTH_MATRIX& matrix)
{
  const int w = matrix.GetNbCols(), h = matrix.GetNbRows();
  double* to = matrix.GetData();
  for (int r = 0; r < h; ++r) {
    const double* from = image.data() + static_cast<std::size_t>(row + r) * cols + col;
    std::copy(from, from + w, to + static_cast<std::size_t>(r) * w);
  }
}

std::unique_ptr<MTH_MATRIX> BlockMatrix(const std::vector<double>& image, int cols, int col, int row, int w, int h)
{
  auto matrix = std::make_unique<MTH_MATRIX>(h, w);
  CopyBlock(image, cols, col, row, *matrix);
  return matrix;
}

void Empty(IPG_OWNED_MATRICES& owned, TList& list)
{
  list.Clear();
  owned.clear();
}

} // namespace

std::string Ipg_MsgWaveletSides(const std::string& where)
{
  return "Dimensions de l'image non divisibles par 2^NbScale : " + where;
}

bool Ipg_WaveletImagesValid(const DCM_STRUCT* in, const DCM_STRUCT* out, const std::string& where)
{
  if (in == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (out == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoOutput);
  if (out->GetNbOfCols() != in->GetNbOfCols() || out->GetNbOfRows() != in->GetNbOfRows())
    return Ipg_InformAndFail(Ipg_MsgSizes(where));
  return true;
}

bool Ipg_WaveletScalesValid(int name, int scales, int cols, int rows, const std::string& where)
{
  IPG_WAVELET_BANK unused;
  if (!Ipg_WaveletBank(name, unused))
    return Refuse("NameWavelet", where);
  if (scales < 1 || scales > 30 || (1 << scales) > std::min(cols, rows))
    return Refuse("NbScale", where);
  return true;
}

bool Ipg_FrameFitsMemory(int scales, int cols, int rows, const std::string& where)
{
  return 4.0 * scales * cols * rows <= kMaxFrameDoubles || Refuse("NbScale", where);
}

bool Ipg_DenoiseSettingsValid(const IPG_DENOISE_SETTINGS& settings, int cols, int rows, const std::string& where)
{
  if (!std::isfinite(settings.Factor) || settings.Factor < 0)
    return Refuse("ThrFactor", where);
  if (settings.Window < 1 || settings.Window % 2 == 0 || settings.Window > kMaxWindowSize)
    return Refuse("WindowSize", where);
  return Ipg_FrameFitsMemory(settings.Scales, cols, rows, where);
}

std::vector<double> Ipg_WaveletInput(const DCM_STRUCT& in)
{
  const int* pixels = in.Data->GetIDataAddress();
  const std::size_t n = in.Data->GetSize();
  double sum = 0.0, count = 0.0;
  for (std::size_t k = 0; k < n; ++k)
    if (Ipg_IsGreyLevel(pixels[k])) {
      sum += pixels[k];
      count += 1.0;
    }
  const double fill = count > 0.0 ? sum / count : 0.0;
  std::vector<double> values(n);
  for (std::size_t k = 0; k < n; ++k)
    values[k] = Ipg_IsGreyLevel(pixels[k]) ? pixels[k] : fill;
  return values;
}

void Ipg_WaveletWriteImage(const std::vector<double>& values, const DCM_STRUCT& in, const DCM_STRUCT* roi,
                           DCM_STRUCT& out)
{
  const unsigned cols = in.GetNbOfCols(), rows = in.GetNbOfRows();
  const int* source = in.Data->GetIDataAddress();
  int* target = out.Data->GetIDataAddress();
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c) {
      const std::size_t k = static_cast<std::size_t>(r) * cols + c;
      const bool keep = !Ipg_InsideRoi(roi, c, r) || Ipg_IsMark(source[k]);
      target[k] = keep ? source[k] : Ipg_RoundHalfAwayFromZero(values[k]);
    }
  out.Data->SetMin();
  out.Data->SetMax();
}

void Ipg_WaveletWriteMosaic(const std::vector<double>& values, DCM_STRUCT& out)
{
  int* target = out.Data->GetIDataAddress();
  for (std::size_t k = 0; k < values.size() && k < out.Data->GetSize(); ++k)
    target[k] = Ipg_RoundHalfAwayFromZero(values[k]);
  out.Data->SetMin();
  out.Data->SetMax();
}

MTH_MATRIX Ipg_MatrixOfBlock(const std::vector<double>& image, int cols, int col, int row, int w, int h)
{
  MTH_MATRIX matrix(h, w);
  CopyBlock(image, cols, col, row, matrix);
  return matrix;
}

void Ipg_BlockOfMatrix(const MTH_MATRIX& matrix, std::vector<double>& image, int cols, int col, int row)
{
  const int w = matrix.GetNbCols(), h = matrix.GetNbRows();
  const double* from = matrix.GetData();
  for (int r = 0; r < h; ++r)
    for (int c = 0; c < w; ++c)
      image[static_cast<std::size_t>(row + r) * cols + col + c] = from[static_cast<std::size_t>(r) * w + c];
}

void Ipg_ListOfDwt(const std::vector<double>& layout, int cols, int rows, int scales, IPG_OWNED_MATRICES& owned,
                   TList& list)
{
  Empty(owned, list);
  for (int s = 0; s < scales; ++s) {
    const int w = cols >> (s + 1), h = rows >> (s + 1);
    Keep(owned, list, BlockMatrix(layout, cols, 0, h, w, h)); // horizontal, below
    Keep(owned, list, BlockMatrix(layout, cols, w, 0, w, h)); // vertical, on the right
    Keep(owned, list, BlockMatrix(layout, cols, w, h, w, h)); // diagonal
  }
  Keep(owned, list, BlockMatrix(layout, cols, 0, 0, cols >> scales, rows >> scales));
}

bool Ipg_DwtOfList(const TList* list, std::vector<double>& layout, int& cols, int& rows, int& scales)
{
  const int count = list != nullptr ? list->Count() : 0;
  scales = (count - 1) / 3;
  const MTH_MATRIX* approximation = MatrixAt(list, count - 1);
  if (count < 4 || count % 3 != 1 || scales > 16 || approximation == nullptr || approximation->IsEmpty())
    return false;
  const long long c = static_cast<long long>(approximation->GetNbCols()) << scales;
  const long long r = static_cast<long long>(approximation->GetNbRows()) << scales;
  if (c > 65535 || r > 65535)
    return false;
  for (int k = 0; k < count - 1; ++k)
    if (!HasShape(MatrixAt(list, k), r >> (k / 3 + 1), c >> (k / 3 + 1)))
      return false;
  cols = static_cast<int>(c);
  rows = static_cast<int>(r);
  layout.assign(static_cast<std::size_t>(cols) * rows, 0.0);
  for (int s = 0; s < scales; ++s) {
    const int w = cols >> (s + 1), h = rows >> (s + 1);
    Ipg_BlockOfMatrix(*MatrixAt(list, 3 * s), layout, cols, 0, h);
    Ipg_BlockOfMatrix(*MatrixAt(list, 3 * s + 1), layout, cols, w, 0);
    Ipg_BlockOfMatrix(*MatrixAt(list, 3 * s + 2), layout, cols, w, h);
  }
  Ipg_BlockOfMatrix(*approximation, layout, cols, 0, 0);
  return true;
}

bool Ipg_ListOfFrame(const IPG_WAVELET_BANK& bank, const MTH_MATRIX& image, int scales, IPG_OWNED_MATRICES& owned,
                     TList& list)
{
  Empty(owned, list);
  const int cols = image.GetNbCols(), rows = image.GetNbRows();
  std::vector<double> current = ValuesOf(image);
  IPG_FRAME_BANDS bands;
  for (int level = 0; level < scales; ++level) {
    if (Ipg_StopRequested()) {
      Empty(owned, list);
      return false;
    }
    Ipg_SwtForwardLevel(bank, current.data(), cols, rows, level, bands);
    for (const auto* band : {&bands.Approximation, &bands.Horizontal, &bands.Vertical, &bands.Diagonal})
      Keep(owned, list, BlockMatrix(*band, cols, 0, 0, cols, rows));
    current.swap(bands.Approximation);
  }
  return true;
}

bool Ipg_ImageOfFrameList(const IPG_WAVELET_BANK& bank, const TList* list, MTH_MATRIX& image)
{
  const int count = list != nullptr ? list->Count() : 0, scales = count / 4;
  const MTH_MATRIX* first = MatrixAt(list, 0);
  if (count < 4 || count % 4 != 0 || scales > 30 || first == nullptr || first->IsEmpty())
    return false;
  for (int k = 1; k < count; ++k)
    if (!HasShape(MatrixAt(list, k), first->GetNbRows(), first->GetNbCols()))
      return false;
  const int cols = first->GetNbCols(), rows = first->GetNbRows();
  std::vector<double> current = ValuesOf(*MatrixAt(list, 4 * (scales - 1)));
  for (int level = scales - 1; level >= 0; --level) {
    IPG_FRAME_BANDS bands;
    bands.Approximation.swap(current);
    bands.Horizontal = ValuesOf(*MatrixAt(list, 4 * level + 1));
    bands.Vertical = ValuesOf(*MatrixAt(list, 4 * level + 2));
    bands.Diagonal = ValuesOf(*MatrixAt(list, 4 * level + 3));
    current.resize(bands.Horizontal.size());
    Ipg_SwtInverseLevel(bank, bands, cols, rows, level, current.data());
  }
  image = Ipg_MatrixOfBlock(current, cols, 0, 0, cols, rows);
  return true;
}
