// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_morpho_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_morpho_runs.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_summed_area.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace {

constexpr double kSkeletonStopShare = 5.0; // percent of pixels changed by a pass
constexpr int kThinningTurns = 8;
// Below this element area the plain scan is as fast as the running extremes.
constexpr int kRunsTallestRectangle = 9;
constexpr double kHighestContrast = 1.0 - 1e-7; // keeps E (1 + C') / (1 - C') finite

std::size_t At(int col, int row, int cols)
{
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(col);
}

// The output mode on an output whose stored extremes were just measured.
int ApplyModeWithStoredExtremes(DCM_STRUCT* out, short mode)
{
  IPG_BAND_EXTREMES measured;
  measured.Min = out->Data->GetMin();
  measured.Max = out->Data->GetMax();
  return Ipg_ApplyModeToImage(out, mode, measured) ? 1 : 0;
}

bool SameGeometry(const DCM_STRUCT& a, const DCM_STRUCT& b)
{
  return a.GetNbOfCols() == b.GetNbOfCols() && a.GetNbOfRows() == b.GetNbOfRows();
}

// Only the computed interior is written; the margin keeps its prepared value.
void CopyInterior(const std::vector<int>& result, int cols, int rows, int hx, int hy, DCM_STRUCT& out)
{
  const int outCols = static_cast<int>(out.GetNbOfCols());
  const int lastCol = std::min(cols - hx, outCols), lastRow = std::min(rows - hy, static_cast<int>(out.GetNbOfRows()));
  int* to = out.Data->GetIDataAddress();
  for (int row = hy; row < lastRow; ++row)
    for (int col = hx; col < lastCol; ++col)
      to[At(col, row, outCols)] = result[At(col, row, cols)];
}

int Cols(const DCM_STRUCT& image) { return static_cast<int>(image.Data->GetNbOfCols()); }
int Rows(const DCM_STRUCT& image) { return static_cast<int>(image.Data->GetNbOfRows()); }

// A copy of image (pixels included), or null when it cannot be made.
std::unique_ptr<DCM_STRUCT> CopyOf(DCM_STRUCT& image)
{
  try {
    return std::make_unique<DCM_STRUCT>(image, true);
  } catch (const std::exception&) {
    return nullptr;
  }
}

// Copies the pixels that both images have (the output may differ in size).
void CopyOverlap(const DCM_STRUCT& from, DCM_STRUCT& to)
{
  const int cols = std::min(Cols(from), Cols(to)), rows = std::min(Rows(from), Rows(to));
  const int* src = from.Data->GetIDataAddress();
  int* dst = to.Data->GetIDataAddress();
  for (int row = 0; row < rows; ++row)
    std::copy_n(src + At(0, row, Cols(from)), cols, dst + At(0, row, Cols(to)));
}

// The element's flags as GetFilterValue reads them, row-major.
std::vector<unsigned char> ElementFlags(IPG_FILTER& element)
{
  const short sizeX = element.GetSizeX(), sizeY = element.GetSizeY();
  std::vector<unsigned char> flags(static_cast<std::size_t>(sizeX) * sizeY);
  for (short y = 0; y < sizeY; ++y)
    for (short x = 0; x < sizeX; ++x)
      flags[At(x, y, sizeX)] = element.GetFilterValue(x, y) != 0 ? 1 : 0;
  return flags;
}

bool OddAndPositive(int side) { return side > 0 && side % 2 == 1; }

} // namespace

IPG_MORPHO_PROCESSING::IPG_MORPHO_PROCESSING(DCM_STRUCT* in) : IPG_MORPHO_PROCESSING(in, nullptr) {}

IPG_MORPHO_PROCESSING::IPG_MORPHO_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_MORPHO_PROCESSING::IPG_MORPHO_PROCESSING(const IPG_MORPHO_PROCESSING& source) : IPG_FILTER_VIRTUAL(source) {}

void IPG_MORPHO_PROCESSING::SetDefaultParameters()
{
  SetDefinedFilter(200);
  Tools = 1101;
  SetImageBorderType(0);
}

const IPG_CLASS_INFO<IPG_MORPHO_PROCESSING>& IPG_MORPHO_PROCESSING::ClassInfo()
{
  using C = IPG_MORPHO_PROCESSING;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1100, "Dilate", [](C& op) -> int { return op.Dilate(op.GetDefineFilter()); }},
      {1101, "Erode", [](C& op) -> int { return op.Erode(op.GetDefineFilter()); }},
      {1102, "Open", [](C& op) -> int { return op.Open(op.GetDefineFilter()); }},
      {1103, "Close", [](C& op) -> int { return op.Close(op.GetDefineFilter()); }},
      {1104, "Erode", [](C& op) -> int { return op.UserElementCode(&C::Erode); }},
      {1105, "Dilate", [](C& op) -> int { return op.UserElementCode(&C::Dilate); }},
      {1106, "Open", [](C& op) -> int { return op.UserElementCode(&C::Open); }},
      {1107, "Close", [](C& op) -> int { return op.UserElementCode(&C::Close); }},
      {1108, "Skeleton", [](C& op) -> int { return op.Skeleton(); }},
      {1109, "Thinning", [](C& op) -> int { return op.Thinning(); }},
      {1110, "EnhancedImage", [](C& op) -> int { return op.EnhancedImage(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetDefinedFilter>("DefinedFilter", "200", "predefined structuring element (200 3x3 square, 201 cross, 203 5x5, 206 7x7, 209 11x11 disc...)"),
      Ipg_Parameter<C>("UserFilter", IPG_VALUE_TYPE::Kernel, "", "user structuring element, row-major, non-zero = part of it",
                        Ipg_SetUserKernel<C>),
      Ipg_Parameter<C, &C::SetImageBorderType>("ImageBorderType", "0", "margin the element does not reach: 0/1 zero, 2 kept, 3 17000000"),
      Ipg_Parameter<C, &C::SetTypeFunction>("TypeFunction", "3", "enhancement contrast function: 0 1-exp(-p1 c), 1 ln(p1 c+1), 2 tanh(p1 c), 3 c^(p2/p1)"),
      Ipg_Parameter<C, &C::SetWindowSize>("WindowSize", "7", "enhancement window side, in pixels"),
      Ipg_Parameter<C, &C::SetParamFct1>("ParamFct1", "2", "enhancement function parameter p1"),
      Ipg_Parameter<C, &C::SetParamFct2>("ParamFct2", "1", "enhancement function parameter p2"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_MORPHO_PROCESSING", operations, parameters};
  return info;
}

int IPG_MORPHO_PROCESSING::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_MORPHO_PROCESSING"))
    return 0;
  return Ipg_Dispatch(ClassInfo(), *this, Tools);
}

int IPG_MORPHO_PROCESSING::UserElementCode(int (IPG_MORPHO_PROCESSING::*operation)(IPG_FILTER*))
{
  IPG_FILTER* element = GetUserFilter();
  if (element == nullptr) {
    Ipg_Inform(kIpgMsgNoUserFilter);
    return 0;
  }
  return (this->*operation)(element);
}

int IPG_MORPHO_PROCESSING::Erode(IPG_FILTER* element) { return RunScan(ImaIn, element, Ipg_MorphoKind::Erosion); }

int IPG_MORPHO_PROCESSING::Dilate(IPG_FILTER* element) { return RunScan(ImaIn, element, Ipg_MorphoKind::Dilation); }

int IPG_MORPHO_PROCESSING::Open(IPG_FILTER* element)
{
  return RunTwoSteps(element, Ipg_MorphoKind::Erosion, Ipg_MorphoKind::Dilation);
}

int IPG_MORPHO_PROCESSING::Close(IPG_FILTER* element)
{
  return RunTwoSteps(element, Ipg_MorphoKind::Dilation, Ipg_MorphoKind::Erosion);
}

int IPG_MORPHO_PROCESSING::RunScan(const DCM_STRUCT* in, IPG_FILTER* element, Ipg_MorphoKind kind)
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  if (element == nullptr || !OddAndPositive(element->GetSizeX()) || !OddAndPositive(element->GetSizeY()))
    return 0;
  if (in == nullptr)
    return 0;
  const int sizeX = element->GetSizeX(), sizeY = element->GetSizeY();
  const std::vector<unsigned char> flags = ElementFlags(*element);
  // Under a ROI both scans start at the top grey level: a dilation there never
  // yields less than 16777216, which ROI-driven callers rely on.
  const int init = Roi != nullptr ? kIpgMaxGrey : (kind == Ipg_MorphoKind::Erosion ? kIpgMarginValue : 0);
  const int hx = sizeX / 2, hy = sizeY / 2;
  // Tall rectangles take van Herk / Gil-Werman (constant cost per pixel); other
  // elements cost two comparisons per element row, read straight from the input.
  if (sizeY <= kRunsTallestRectangle || !Ipg_MorphoIsFullRectangle(flags)) {
    // In place, rows would be read after being written: the scan goes to a copy.
    if (SameGeometry(*in, *ImaOut) && in->Data->GetIDataAddress() != ImaOut->Data->GetIDataAddress()) {
      // The scan writes every pixel of the interior: only the frame needs the
      // border type's value. The rows are measured as they are written; only
      // the frame rows are read again.
      PrepareOutputFrame(ImaOut, hx, hy);
      IPG_BAND_EXTREMES seen;
      const bool scanned =
          Ipg_MorphoScanRuns(*in, Roi, flags, sizeX, sizeY, kind, init, ImaOut->Data->GetIDataAddress(), &seen);
      const int rows = static_cast<int>(Rows(*in));
      Ipg_StoreExtremes(*ImaOut->Data, scanned ? hy : 0, scanned ? rows - hy : 0, seen);
      return ApplyModeWithStoredExtremes(ImaOut, Mode);
    } else {
      PrepareOutputBorder(ImaOut);
      std::vector<int> result(in->Data->GetSize());
      Ipg_MorphoScanRuns(*in, Roi, flags, sizeX, sizeY, kind, init, result.data());
      CopyInterior(result, Cols(*in), Rows(*in), hx, hy, *ImaOut);
    }
  } else {
    PrepareOutputBorder(ImaOut);
    const Ipg_MorphoField field = Ipg_MorphoPrepare(*in, Roi, kind);
    std::vector<int> result(field.Values.size());
    Ipg_MorphoScanRectangle(field, sizeX, sizeY, kind, init, result.data());
    CopyInterior(result, field.Cols, field.Rows, hx, hy, *ImaOut);
  }
  Ipg_MeasureExtremes(*ImaOut->Data);
  return ApplyModeWithStoredExtremes(ImaOut, Mode);
}

int IPG_MORPHO_PROCESSING::RunTwoSteps(IPG_FILTER* element, Ipg_MorphoKind first, Ipg_MorphoKind second)
{
  if (RunScan(ImaIn, element, first) == 0)
    return 0;
  const std::unique_ptr<DCM_STRUCT> intermediate = CopyOf(*ImaOut);
  if (!intermediate)
    return 0;
  return RunScan(intermediate.get(), element, second);
}

DCM_STRUCT* IPG_MORPHO_PROCESSING::ThinningFunction(DCM_STRUCT* image, IPG_FILTER* mask)
{
  if (image == nullptr || mask == nullptr || mask->GetSizeX() < 1 || mask->GetSizeY() < 1)
    return nullptr;
  std::unique_ptr<DCM_STRUCT> result = CopyOf(*image);
  if (!result)
    return nullptr;
  const int cols = Cols(*image), rows = Rows(*image);
  const int sizeX = mask->GetSizeX(), sizeY = mask->GetSizeY();
  const int hx = sizeX / 2, hy = sizeY / 2;
  std::vector<int> marks(static_cast<std::size_t>(sizeX) * static_cast<std::size_t>(sizeY));
  for (int y = 0; y < sizeY; ++y)
    for (int x = 0; x < sizeX; ++x)
      marks[At(x, y, sizeX)] = mask->GetFilterValue(static_cast<short>(x), static_cast<short>(y));
  const int* in = image->Data->GetIDataAddress();
  int* out = result->Data->GetIDataAddress();
  for (int row = hy; row < rows - hy; ++row)
    for (int col = hx; col < cols - hx; ++col) {
      const int c = in[At(col, row, cols)];
      if (Ipg_IsMark(c) || !Ipg_InsideRoi(Roi, static_cast<unsigned>(col), static_cast<unsigned>(row)))
        continue;
      int background = 0, foreground = kIpgMaxGrey;
      for (int y = 0; y < sizeY; ++y)
        for (int x = 0; x < sizeX; ++x) {
          const int v = in[At(col + x - hx, row + y - hy, cols)];
          const int mark = marks[At(x, y, sizeX)];
          if (mark == 0)
            background = std::max(background, v);
          else if (mark == 1)
            foreground = std::min(foreground, v);
        }
      if (background < c && c <= foreground)
        out[At(col, row, cols)] = background; // lowered to its background level
    }
  result->Data->SetMin();
  result->Data->SetMax();
  return result.release();
}

DCM_STRUCT* IPG_MORPHO_PROCESSING::Thinning(DCM_STRUCT* image)
{
  if (image == nullptr)
    return nullptr;
  int topEdge[9] = {0, 0, 0, 2, 2, 2, 1, 1, 1};
  int corner[9] = {2, 0, 0, 1, 2, 0, 1, 1, 2};
  IPG_FILTER maskA(topEdge, 3, 3);
  IPG_FILTER maskB(corner, 3, 3);
  std::unique_ptr<DCM_STRUCT> work = CopyOf(*image);
  for (int turn = 0; work && turn < kThinningTurns; ++turn) {
    work.reset(ThinningFunction(work.get(), &maskA));
    if (work)
      work.reset(ThinningFunction(work.get(), &maskB));
    // The masks turn in opposite senses: the passes rely on this order of directions.
    maskB.RotateFilter(true);
    maskA.RotateFilter(false);
  }
  return work.release();
}

int IPG_MORPHO_PROCESSING::Thinning()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  std::unique_ptr<DCM_STRUCT> work(Thinning(ImaIn));
  if (!work)
    return 0;
  CopyOverlap(*work, *ImaOut);
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return ApplyModeToOutImage() ? 1 : 0;
}

int IPG_MORPHO_PROCESSING::Skeleton()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  if (ImaIn == nullptr)
    return 0;
  CopyOverlap(*ImaIn, *ImaOut);
  const double pixels = static_cast<double>(ImaOut->Data->GetSize());
  for (;;) {
    if (Ipg_StopRequested())
      return 0;
    std::unique_ptr<DCM_STRUCT> thinned(Thinning(ImaOut));
    if (!thinned)
      return 0;
    const int* before = ImaOut->Data->GetIDataAddress();
    const int* after = thinned->Data->GetIDataAddress();
    const std::size_t size = ImaOut->Data->GetSize();
    std::size_t changed = 0;
    for (std::size_t i = 0; i < size; ++i)
      changed += before[i] != after[i] ? 1 : 0;
    CopyOverlap(*thinned, *ImaOut);
    const double share = pixels > 0 ? 100.0 * static_cast<double>(changed) / pixels : 0.0;
    if (share <= kSkeletonStopShare)
      break;
  }
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return ApplyModeToOutImage() ? 1 : 0;
}

int* IPG_MORPHO_PROCESSING::MidGreyOfImage(int* data, int rows, int cols)
{
  if (data == nullptr || rows <= 0 || cols <= 0)
    return nullptr;
  int* mid = new (std::nothrow) int[static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols)];
  if (mid == nullptr)
    return nullptr;
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      std::int64_t sum = 0;
      int count = 0;
      for (int dy = -1; dy <= 1; dy += 2)
        for (int dx = -1; dx <= 1; dx += 2) {
          const int r = row + dy, c = col + dx;
          if (r < 0 || r >= rows || c < 0 || c >= cols)
            continue;
          sum += data[At(c, r, cols)];
          ++count;
        }
      mid[At(col, row, cols)] =
          count == 0 ? data[At(col, row, cols)]
                     : static_cast<int>(std::floor(static_cast<double>(sum) / static_cast<double>(count)));
    }
  return mid;
}

double IPG_MORPHO_PROCESSING::ApplyFunction(double value, int type, int p1, int p2)
{
  switch (type) {
  case 0: return 1.0 - std::exp(-p1 * value);
  case 1: return std::log(p1 * value + 1.0);
  case 2: return std::tanh(p1 * value);
  case 3: return p1 == 0 ? 0.0 : std::pow(value, static_cast<double>(p2) / static_cast<double>(p1));
  default: return 0.0;
  }
}

int IPG_MORPHO_PROCESSING::EnhancedImage()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  if (ImaIn == nullptr)
    return 0;
  const int cols = Cols(*ImaIn), rows = Rows(*ImaIn);
  int* in = ImaIn->Data->GetIDataAddress();
  std::unique_ptr<int[]> mid(MidGreyOfImage(in, rows, cols));
  if (!mid && cols > 0 && rows > 0)
    return 0;
  const int* grey = mid.get();
  const auto table = Ipg_SummedArea<std::int64_t>::ByRowRuns(
      grey ? cols : 0, grey ? rows : 0, [grey, cols](int c, int r) { return std::int64_t{grey[At(c, r, cols)]}; });
  const int half = std::max(WindowSize, 1) / 2;
  const int outCols = Cols(*ImaOut);
  const int usedCols = std::min(cols, outCols), usedRows = std::min(rows, Rows(*ImaOut));
  int* out = ImaOut->Data->GetIDataAddress();
  for (int row = 0; row < usedRows; ++row)
    for (int col = 0; col < usedCols; ++col) {
      const int value = in[At(col, row, cols)];
      int& target = out[At(col, row, outCols)];
      target = value;
      if (Ipg_IsMark(value) || value < 0 || !Ipg_InsideRoi(Roi, static_cast<unsigned>(col), static_cast<unsigned>(row)))
        continue;
      const int c0 = std::max(col - half, 0), c1 = std::min(col + half, cols - 1);
      const int r0 = std::max(row - half, 0), r1 = std::min(row + half, rows - 1);
      const double area = static_cast<double>(c1 - c0 + 1) * (r1 - r0 + 1);
      const double background = static_cast<double>(table.Over({c0, r0, c1 + 1, r1 + 1})) / area;
      if (background <= 0.0)
        continue;
      const double contrast = std::fabs(value - background) / (value + background);
      double enhanced = ApplyFunction(contrast, TypeFunction, ParamFct1, ParamFct2);
      if (std::isnan(enhanced))
        enhanced = contrast;
      enhanced = std::clamp(enhanced, 0.0, kHighestContrast);
      const double level = value <= background ? background * (1.0 - enhanced) / (1.0 + enhanced)
                                               : background * (1.0 + enhanced) / (1.0 - enhanced);
      target = static_cast<int>(std::floor(std::min(level, static_cast<double>(kIpgMaxGrey)) + 0.5));
    }
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return ApplyModeToOutImage() ? 1 : 0;
}
