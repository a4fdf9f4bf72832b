// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_region.h"

#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_histo.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <vector>

namespace {

constexpr int kTaken = kIpgMaskValue; // accepted pixels are marked in the working image
constexpr int kVarianceStartMin = 1410065408;
constexpr int kExpansionStartMin = 1000000;

// The sums wrap in 32-bit two's complement (Ipg_WrapToInt) as they always
// have; means and bounds truncate with the x86 conversion's INT_MIN (Ipg_TruncateOrIntMin).

// Statistics of every positive pixel of an image: the smallest of them (or
// startMin when it is smaller), their count, sum and sum of wrapped squares.
struct PositivePixels {
  int minimum;
  int count = 0;
  double sum = 0.0;
  double sumOfSquares = 0.0;
};
PositivePixels GatherPositivePixels(const DCM_STRUCT& image, int startMin)
{
  PositivePixels p{startMin};
  const int* pixels = image.Data->GetIDataAddress();
  for (std::size_t i = 0; i < image.Data->GetSize(); ++i)
    if (pixels[i] > 0) {
      p.minimum = std::min(p.minimum, pixels[i]);
      ++p.count;
      p.sum += pixels[i];
      p.sumOfSquares += Ipg_WrappedSquare(pixels[i]);
    }
  return p;
}

// max(seed - half, low) and min(seed + half, high), without overflowing.
int Lower(int seed, int half, int low)
{
  return static_cast<int>(std::max<std::int64_t>(static_cast<std::int64_t>(seed) - half, low));
}
int Upper(int seed, int half, int high)
{
  return static_cast<int>(std::min<std::int64_t>(static_cast<std::int64_t>(seed) + half, high));
}

// The range searches may step over two billion grey levels and fill at each:
// they poll for cancellation every 256 levels.
bool GreyLevelStepCancelled(long long step)
{
  return step % 256 == 0 && Ipg_StopRequested();
}

} // namespace

IPG_REGION::IPG_REGION(DCM_STRUCT* in)
{
  SetImaIn(in);
  Tools = 900;
  if (in != nullptr) {
    Cols = static_cast<int>(in->GetNbOfCols());
    Rows = static_cast<int>(in->GetNbOfRows());
    Working = std::make_unique<DCM_STRUCT>(*in, true);
  }
}

IPG_REGION::IPG_REGION(const IPG_REGION& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), MinGL(source.MinGL), MaxGL(source.MaxGL), XSeed(source.XSeed),
      YSeed(source.YSeed), Connectedness(source.Connectedness), Tolerance(source.Tolerance), Cols(source.Cols),
      Rows(source.Rows), RegionCount(source.RegionCount), RegionSumOfSquares(source.RegionSumOfSquares),
      ColumnOffsets(source.ColumnOffsets), RowOffsets(source.RowOffsets), FirstDirection(source.FirstDirection),
      DirectionStep(source.DirectionStep), Depth(source.Depth), DepthLimit(source.DepthLimit),
      CheckIterative(source.CheckIterative), SeedValue(source.SeedValue), RegionMean(source.RegionMean),
      RegionVariance(source.RegionVariance), RegionDeviation(source.RegionDeviation)
{
  if (source.Working)
    Working = std::make_unique<DCM_STRUCT>(const_cast<DCM_STRUCT&>(*source.Working), true);
}

void IPG_REGION::SetSeed(int x, int y)
{
  XSeed = x;
  YSeed = y;
}

const IPG_CLASS_INFO<IPG_REGION>& IPG_REGION::ClassInfo()
{
  using C = IPG_REGION;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {900, "FillRangeInImage",
       [](C& op) -> int {
         op.SeedValue = op.ImaIn->Data->GetValue(static_cast<unsigned>(op.XSeed), static_cast<unsigned>(op.YSeed));
         op.FillRangeInImage();
         return 1;
       }},
      // The automatic ranges try fill after fill: a cancelled search reports failure.
      {901, "ManageRegionGrowingSegmentation",
       [](C& op) -> int {
         op.ManageRegionGrowingSegmentation();
         return !Ipg_CancelRequested();
       }},
      {902, "CustomFill",
       [](C& op) -> int {
         op.CustomFill();
         return !Ipg_CancelRequested();
       }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C>("Seed", IPG_VALUE_TYPE::Point, "0,0", "seed column and row",
                       [](C& op, const IPG_VALUE& value) {
                         const IPG_POINT& seed = std::get<IPG_POINT>(value);
                         op.SetSeed(seed.X, seed.Y);
                       }),
      Ipg_Parameter<C, &C::SetMinGL>("MinGL", "0", "lowest accepted grey value"),
      Ipg_Parameter<C, &C::SetMaxGL>("MaxGL", "0", "highest accepted grey value"),
      Ipg_Parameter<C, &C::SetConnectedness>("Connectedness", "403", "401 sides, 402 diagonals, 403 all eight"),
      Ipg_Parameter<C, &C::SetTolerance>("Tolerance", "20", "stopping threshold of the automatic modes (20)"),
      Ipg_Parameter<C, &C::SetCheckIterative>("CheckIterative", "false", "stored only"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_REGION", operations, parameters};
  return info;
}

bool IPG_REGION::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_REGION"))
    return false;
  if (ImaIn == nullptr)
    return false;
  switch (Connectedness) {
  case 401: FirstDirection = 0; DirectionStep = 2; break; // left, down, right, up
  case 402: FirstDirection = 1; DirectionStep = 2; break; // the diagonals
  case 403: FirstDirection = 0; DirectionStep = 1; break; // all eight
  default: return false;
  }
  Cols = static_cast<int>(ImaIn->GetNbOfCols());
  Rows = static_cast<int>(ImaIn->GetNbOfRows());
  // A seed off the image has no grey level to grow from: refused, not moved.
  if ((Tools == 900 || Tools == 901 || Tools == 902) &&
      !Ipg_ParameterInRange(Ipg_PointOnImage(ImaIn, XSeed, YSeed), "Seed", "IPG_REGION"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_REGION::PrepareWorkingImage()
{
  if (ImaIn == nullptr)
    return false;
  if (!Working || Working->GetNbOfCols() != ImaIn->GetNbOfCols() || Working->GetNbOfRows() != ImaIn->GetNbOfRows())
    Working = std::make_unique<DCM_STRUCT>(*ImaIn, true);
  else
    std::copy_n(ImaIn->Data->GetIDataAddress(), ImaIn->Data->GetSize(), Working->Data->GetIDataAddress());
  return true;
}

void IPG_REGION::Accept(int x, int y)
{
  DCM_DATA* work = Working->Data;
  const int v = work->GetValue(static_cast<unsigned>(x), static_cast<unsigned>(y)); // a seed off the image reads 0
  RegionSumOfSquares = Ipg_WrapToInt(static_cast<std::int64_t>(RegionSumOfSquares) + Ipg_WrappedSquare(v));
  RegionMean += v;
  RegionVariance += static_cast<double>(v) * v;
  ++RegionCount;
  work->SetValue(static_cast<unsigned>(x), static_cast<unsigned>(y), kTaken);
}

// Depth-first fill, one stack frame per pixel on the current path, each frame
// remembering the next direction it will try: the visiting order of the
// recursive fill. The depth is raised on every entry and lowered only when a
// frame finishes; an entry refused at the limit is not lowered again, so each
// refusal leaves the counter one higher and growth near the end of long paths
// stays refused. Callers' region sizes depend on this exact counting.
void IPG_REGION::SurfaceRangeIteration(int x, int y)
{
  struct Frame {
    int x, y, next;
  };
  std::vector<Frame> path;
  const int workCols = static_cast<int>(Working->GetNbOfCols());
  const int workRows = static_cast<int>(Working->GetNbOfRows());
  const int* work = Working->Data->GetIDataAddress();
  auto enter = [&](int cx, int cy) {
    if (!Ipg_InsideAnyNonZeroMask(Roi, static_cast<unsigned>(cx), static_cast<unsigned>(cy)))
      return;
    if (++Depth >= DepthLimit)
      return;
    Accept(cx, cy);
    path.push_back({cx, cy, FirstDirection});
  };
  enter(x, y);
  while (!path.empty()) {
    Frame& frame = path.back();
    if (frame.next >= 8) {
      path.pop_back();
      --Depth;
      continue;
    }
    const int k = frame.next;
    frame.next += DirectionStep;
    // Wide arithmetic: a seed given to the operation methods may lie anywhere.
    const long long nx = static_cast<long long>(frame.x) + ColumnOffsets[k];
    const long long ny = static_cast<long long>(frame.y) + RowOffsets[k];
    if (ny < 0 || ny >= Rows || nx < 0 || nx >= Cols || nx >= workCols || ny >= workRows)
      continue;
    const int w = work[static_cast<std::size_t>(ny) * workCols + nx];
    if (MinGL <= w && w <= MaxGL)
      enter(static_cast<int>(nx), static_cast<int>(ny));
  }
}

bool IPG_REGION::FillRangeInImage()
{
  Depth = 0;
  DepthLimit = 32000;
  if (!PrepareWorkingImage())
    return false;
  RegionCount = 0;
  RegionSumOfSquares = 0;
  RegionMean = RegionVariance = RegionDeviation = 0.0;
  if (MinGL <= SeedValue && SeedValue <= MaxGL)
    SurfaceRangeIteration(XSeed, YSeed);
  if (ImaOut != nullptr) {
    const DCM_DATA* work = Working->Data;
    for (int row = 0; row < Rows; ++row)
      for (int col = 0; col < Cols; ++col) {
        const unsigned c = static_cast<unsigned>(col), r = static_cast<unsigned>(row);
        // An input pixel that already held 16777217 shows as region too.
        ImaOut->Data->SetValue(c, r, work->GetValue(c, r) == kTaken ? kTaken : 0);
      }
  }
  if (RegionCount != 0) {
    RegionMean /= RegionCount;
    RegionVariance = RegionVariance / RegionCount - RegionMean * RegionMean;
    RegionDeviation = RegionVariance > 0.0 ? std::sqrt(RegionVariance) : 0.0;
  }
  return true;
}

void IPG_REGION::FillWithHalfWidth(int half, int low, int high)
{
  MinGL = Lower(SeedValue, half, low);
  MaxGL = Upper(SeedValue, half, high);
  FillRangeInImage();
}

// |(32-bit sum of squares / count) - seed value squared|, in the wrapping 32-bit
// arithmetic of the stopping tests.
double IPG_REGION::SquareDeviationFromSeed() const
{
  const int meanSquare = RegionCount != 0 ? RegionSumOfSquares / RegionCount : RegionSumOfSquares;
  const int difference = Ipg_WrapToInt(static_cast<std::int64_t>(meanSquare) - Ipg_WrappedSquare(SeedValue));
  return difference == INT_MIN ? static_cast<double>(INT_MIN) : std::abs(difference);
}

bool IPG_REGION::ManageRegionGrowingSegmentation()
{
  return VarianceControlRegionGrowing();
}

bool IPG_REGION::VarianceControlRegionGrowing()
{
  if (ImaIn == nullptr)
    return false;
  IPG_HISTO histo(ImaIn);
  histo.SetTools(1400);
  if (!histo.Apply())
    return false; // a range too wide to count: the widening would visit every level
  const PositivePixels positive = GatherPositivePixels(*ImaIn, kVarianceStartMin);
  int m = positive.minimum;
  const int count = positive.count;
  const double sum = positive.sum, sumOfSquares = positive.sumOfSquares;
  if (count == 0)
    return false; // no usable statistics
  const double mean = sum / count;
  Tolerance = static_cast<float>(20.0 * std::sqrt(sumOfSquares / count - mean * mean));
  if (m < 1)
    m = 1;
  const int M = ImaIn->Data->GetMax();
  SeedValue = ImaIn->Data->GetValue(static_cast<unsigned>(XSeed), static_cast<unsigned>(YSeed));
  if (M <= m)
    return false;
  // Only half-widths that are themselves grey levels of the image are tried, so
  // the walk starts at the image's lowest level and spans at most the histogram.
  for (int d = std::max(m, histo.GetMinHisto()); d < M; ++d) {
    if (GreyLevelStepCancelled(d - m))
      return false;
    if (histo.GetHistoValueFromGreyLevel(d) == 0)
      continue;
    FillWithHalfWidth(d, m, M);
    if (SquareDeviationFromSeed() > Tolerance) {
      FillWithHalfWidth(d - 1, m, M);
      return true;
    }
  }
  return false;
}

// Statistics of the positive pixels of a block, clamped to the input image: a
// pixel off the image would read as 0 and is never positive, so clamping keeps
// the values a seed near the edge has always given.
IPG_REGION::BlockStats IPG_REGION::PositiveStats(long long firstCol, long long firstRow, long long lastCol,
                                                 long long lastRow) const
{
  BlockStats s;
  const long long cols = ImaIn->GetNbOfCols(), rows = ImaIn->GetNbOfRows();
  for (long long row = std::max(firstRow, 0LL); row <= std::min(lastRow, rows - 1); ++row)
    for (long long col = std::max(firstCol, 0LL); col <= std::min(lastCol, cols - 1); ++col) {
      const int v = ImaIn->Data->GetValue(static_cast<unsigned>(col), static_cast<unsigned>(row));
      if (v > 0) {
        ++s.count;
        s.sum += v;
        s.sumOfSquares += static_cast<double>(v) * v;
      }
    }
  return s;
}

bool IPG_REGION::CustomFill()
{
  if (ImaIn == nullptr)
    return false;
  // The block is one pixel shorter on the far side; hosts tuned seeds on it.
  const BlockStats s = PositiveStats(XSeed - 7LL, YSeed - 7LL, XSeed + 6LL, YSeed + 6LL);
  if (s.count > 0) {
    const double mean = s.sum / s.count;
    const double variance = s.sumOfSquares / s.count - mean * mean;
    if (variance <= mean)
      return CustomFillByExpansion() || CustomFillByVariance(2.5f);
  }
  return CustomFillByVariance(2.5f);
}

bool IPG_REGION::CustomFillByVariance(float k)
{
  if (ImaIn == nullptr)
    return false;
  const BlockStats s = PositiveStats(XSeed - 7LL, YSeed - 7LL, XSeed + 6LL, YSeed + 6LL);
  if (s.count == 0)
    return false;
  const double mean = s.sum / s.count;
  const double variance = s.sumOfSquares / s.count - mean * mean;
  if (variance <= 0.0)
    return false;
  const double sigma = std::sqrt(variance);
  SeedValue = Ipg_TruncateOrIntMin(mean);
  const int M = ImaIn->Data->GetMax(), m = ImaIn->Data->GetMin();
  // Past the image's extremes the range falls back to one sigma, not k.
  MaxGL = Ipg_TruncateOrIntMin(mean + k * sigma);
  if (MaxGL > M)
    MaxGL = Ipg_TruncateOrIntMin(std::min(static_cast<double>(M), mean + sigma));
  MinGL = Ipg_TruncateOrIntMin(mean - k * sigma);
  if (MinGL < m)
    MinGL = Ipg_TruncateOrIntMin(std::max(static_cast<double>(m), mean - sigma));
  const int atSeed = ImaIn->Data->GetValue(static_cast<unsigned>(XSeed), static_cast<unsigned>(YSeed));
  if (atSeed <= MinGL || atSeed >= MaxGL) {
    // The seed moves for good to the leftmost in-range pixel of its row near it;
    // columns off the image are not looked at.
    const int lastCol = static_cast<int>(ImaIn->GetNbOfCols()) - 1;
    const bool rowInside = YSeed >= 0 && YSeed < static_cast<int>(ImaIn->GetNbOfRows());
    const long long from = std::min<long long>(XSeed + 7LL, lastCol), to = std::max<long long>(XSeed - 6LL, 0);
    for (long long col = from; rowInside && col >= to; --col) {
      const int v = ImaIn->Data->GetValue(static_cast<unsigned>(col), static_cast<unsigned>(YSeed));
      if (MinGL <= v && v <= MaxGL)
        XSeed = static_cast<int>(col);
    }
  }
  FillRangeInImage();
  return RegionCount != 0;
}

bool IPG_REGION::CustomFillByExpansion()
{
  if (ImaIn == nullptr)
    return false;
  IPG_HISTO histo(ImaIn);
  histo.SetTools(1400);
  if (!histo.Apply())
    return false; // a range too wide to count: the widening would visit every level
  const PositivePixels positive = GatherPositivePixels(*ImaIn, kExpansionStartMin);
  int m = positive.minimum;
  const int count = positive.count;
  const double sum = positive.sum, sumOfSquares = positive.sumOfSquares;
  if (count == 0)
    return false;
  const double mean = sum / count;
  const double variance = sumOfSquares / count - mean * mean;
  if (variance <= 0.0)
    return false;
  const double sigma = std::sqrt(variance);
  if (m < 1)
    m = 1;
  const int M = ImaIn->Data->GetMax();
  const float upperBound = static_cast<float>(mean) + 2.0f * static_cast<float>(sigma);
  const int U = Ipg_TruncateOrIntMin(std::min(static_cast<float>(M), upperBound));

  const BlockStats block = PositiveStats(XSeed - 5LL, YSeed - 5LL, XSeed + 4LL, YSeed + 4LL);
  SeedValue = block.count == 0 ? ImaIn->Data->GetValue(static_cast<unsigned>(XSeed), static_cast<unsigned>(YSeed))
                               : Ipg_TruncateOrIntMin(block.sum / block.count);
  Tolerance = static_cast<float>(5.0 * sigma);
  for (int d = m; d < U; ++d) {
    if (GreyLevelStepCancelled(d - m))
      return false;
    if (histo.GetHistoValueFromGreyLevel(d) <= 1)
      continue;
    FillWithHalfWidth(d, m, U);
    if (RegionCount != 0 && SquareDeviationFromSeed() > Tolerance) {
      FillWithHalfWidth(d - 1, m, U);
      break;
    }
  }
  // A tenth of the image, cut to 16 bits with sign: on images above 327,670
  // pixels the threshold wraps, and hosts' acceptance depends on it.
  const short tenth = static_cast<short>(static_cast<int>(Cols * 0.1 * Rows));
  return RegionCount > tenth;
}
