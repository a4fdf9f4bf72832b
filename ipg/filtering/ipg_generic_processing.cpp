// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_generic_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_otsu_levels.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

namespace {


int Wrap(long long v) { return static_cast<int>(static_cast<std::uint32_t>(v)); }

// The score of Otsu's criterion from the running sums up to one cut.
double OtsuScore(double count, double weighted, double meanTotal, double pixels)
{
  const double omega = count / pixels;
  const double mu = weighted / pixels;
  if (omega == 1.0 || omega == 0.0)
    return 0.0;
  const double gap = meanTotal * omega - mu;
  return gap * gap / ((1.0 - omega) * omega);
}

} // namespace

IPG_GENERIC_PROCESSING::IPG_GENERIC_PROCESSING(DCM_STRUCT* in) : IPG_GENERIC_PROCESSING(in, -1) {}

IPG_GENERIC_PROCESSING::IPG_GENERIC_PROCESSING(DCM_STRUCT* in, int factor) : ResolutionFactor(factor)
{
  SetImaIn(in);
  SetDefaultParameters();
}

IPG_GENERIC_PROCESSING::IPG_GENERIC_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_GENERIC_PROCESSING::IPG_GENERIC_PROCESSING(const IPG_GENERIC_PROCESSING& source)
    : IPG_ONE_INPUT_ONE_OUTPUT(), SeuilMin(source.SeuilMin), SeuilMax(source.SeuilMax),
      ResolutionFactor(source.ResolutionFactor), BinaryType(source.BinaryType), ThesholdType(source.ThesholdType),
      CheckIterative(source.CheckIterative)
{
}

void IPG_GENERIC_PROCESSING::SetDefaultParameters()
{
  BinaryType = 1;
  ThesholdType = 1;
  SeuilMin = 0;
  SeuilMax = kIpgMaxGrey;
  Tools = 400;
  CheckIterative = false;
}

const IPG_CLASS_INFO<IPG_GENERIC_PROCESSING>& IPG_GENERIC_PROCESSING::ClassInfo()
{
  using C = IPG_GENERIC_PROCESSING;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {400, "MakeBinary", [](C& op) -> int { return op.MakeBinary(op.SeuilMin, op.BinaryType); }},
      {401, "MakeBinary", [](C& op) -> int { return op.MakeBinary(op.SeuilMin, op.SeuilMax, op.BinaryType); }},
      {402, "Resample", [](C& op) -> int { return op.Resample(); }},
      {403, "DoubleThreshold", [](C& op) -> int { return op.DoubleThreshold(op.SeuilMin, op.SeuilMax, op.ThesholdType); }},
      {404, "BinarizeByOtsu", [](C& op) -> int { return op.BinarizeByOtsu(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetSeuilMin>("SeuilMin", "0", "lower (or only) threshold"),
      Ipg_Parameter<C, &C::SetSeuilMax>("SeuilMax", "16777216", "upper threshold"),
      Ipg_Parameter<C, &C::SetBinaryType>("BinaryType", "1", "1: set above (or inside) the thresholds, -1 / other: the reverse"),
      Ipg_Parameter<C, &C::SetThesholdType>("ThesholdType", "1", "DoubleThreshold: 1 clamp, -1 zero outside, other mark outside"),
      Ipg_Parameter<C, &C::SetCheckIterative>("CheckIterative", "false", "stored only"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_GENERIC_PROCESSING", operations, parameters};
  return info;
}

int IPG_GENERIC_PROCESSING::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_GENERIC_PROCESSING"))
    return 0;
  return Ipg_Dispatch(ClassInfo(), *this, Tools);
}

bool IPG_GENERIC_PROCESSING::InsideRoi(unsigned col, unsigned row) const
{
  return Ipg_InsideRoi(Roi, col, row);
}

int IPG_GENERIC_PROCESSING::FinishOutput()
{
  Ipg_MeasureExtremes(*ImaOut->Data);
  return ApplyModeToOutImage() ? 1 : 0;
}

// The output mode on an output whose stored extremes are those of its pixels.
int IPG_GENERIC_PROCESSING::FinishMeasuredOutput()
{
  IPG_BAND_EXTREMES stored;
  stored.Add(ImaOut->Data->GetMin());
  stored.Add(ImaOut->Data->GetMax());
  return Ipg_ApplyModeToImage(ImaOut, Mode, stored) ? 1 : 0;
}

int IPG_GENERIC_PROCESSING::MakeBinary(int threshold, short type)
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  if (ImaIn == nullptr)
    return 0;
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  const int scaledThreshold = Wrap(static_cast<long long>(type) * threshold); // an integer product
  const short outPrecision = out.GetPrecision();
  // type * v compared as a 64-bit integer: the same comparison as in doubles,
  // where the product is exact too.
  auto binary = [scaledThreshold, type](int v) {
    return scaledThreshold <= static_cast<long long>(type) * v ? kIpgMaskValue : 0;
  };
  // With the usual type 1 the product is the level itself: a 32-bit
  // comparison, which keeps the walk in 32-bit lanes.
  auto above = [threshold](int v) { return threshold <= v ? kIpgMaskValue : 0; };
  auto binarise = [&](auto copy) {
    const auto walk = [&](auto set) {
      return Ipg_MapPixels(in, Roi, out, in.GetNbOfCols(), in.GetNbOfRows(), [=](int v, bool inside) {
        const int copied = copy(v), binarised = set(v); // both computed: the loop stays branch-free
        return (Ipg_IsMark(v) | !inside) ? copied : binarised;
      });
    };
    return type == 1 ? walk(above) : walk(binary);
  };
  // Copied levels go through the output's precision, as a real value would; at
  // a precision of 1 or less that leaves them as they are.
  const IPG_WRITTEN written =
      outPrecision <= 1 ? binarise([](int v) { return v; })
                        : binarise([outPrecision](int v) { return DCM_DATA::ToRaw(static_cast<double>(v), outPrecision); });
  if (!written.WholeOutput)
    return FinishOutput();
  out.SetMin(written.Extremes.Min);
  out.SetMax(written.Extremes.Max);
  return Ipg_ApplyModeToImage(ImaOut, Mode, written.Extremes) ? 1 : 0;
}

// Raw walk shared by the band operations: marks (above 16777216) and pixels
// outside the ROI are copied, the others get map(v). When the walk writes the
// whole output, the extremes it wrote are the output's: stored, and true.
template <typename Map>
bool IPG_GENERIC_PROCESSING::MapSelectedPixels(Map map) const
{
  const DCM_DATA& in = *ImaIn->Data;
  DCM_DATA& out = *ImaOut->Data;
  const int* src = in.GetIDataAddress();
  int* dst = out.GetIDataAddress();
  const std::size_t count = std::min(in.GetSize(), out.GetSize());
  const unsigned cols = in.GetNbOfCols();
  if (cols == 0 || count == 0)
    return false;
  // map(v) is computed for every pixel, so that the walk has no branch.
  auto select = [map](int v, bool inside) {
    const int mapped = map(v);
    return (Ipg_IsGreyLevel(v) & inside) ? mapped : v;
  };
  // Row-major positions of the input, written at the same position of the
  // output's pixel array (up to its size).
  const IPG_BAND_EXTREMES all = Ipg_MapLinearPixels(src, dst, cols, count, Roi, select);
  if (count != out.GetSize())
    return false;
  out.SetMin(all.Min);
  out.SetMax(all.Max);
  return true;
}

int IPG_GENERIC_PROCESSING::MakeBinary(int low, int high, short type)
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  if (ImaIn == nullptr)
    return 0;
  const bool measured = MapSelectedPixels([low, high, type](int v) {
    const bool inBand = low <= v && v <= high;
    return (type == 1 ? inBand : !inBand) ? kIpgMaskValue : 0;
  });
  return measured ? FinishMeasuredOutput() : FinishOutput();
}

int IPG_GENERIC_PROCESSING::DoubleThreshold(int low, int high, short type)
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  if (ImaIn == nullptr)
    return 0;
  const bool measured = MapSelectedPixels([low, high, type](int v) {
    const bool outside = v < low || v > high;
    if (type == 1)
      return v < low ? low : v > high ? high : v;
    if (type == -1)
      return outside ? 0 : v;
    return outside ? kIpgMaskValue : v;
  });
  DCM_DATA& out = *ImaOut->Data;
  if (!measured)
    Ipg_MeasureExtremes(out);
  out.SetDynMax(static_cast<unsigned>(static_cast<long long>(out.GetMax()) - out.GetMin() + 1));
  return FinishMeasuredOutput();
}

int IPG_GENERIC_PROCESSING::Resample()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return 0;
  }
  const int n = ResolutionFactor;
  if (n <= 0) {
    Ipg_Inform(kIpgMsgResolution);
    return 0;
  }
  if (ImaIn == nullptr)
    return 0;
  // A block larger than the image both ways leaves no pixel at all: refused.
  // (One side shorter than the block gives an empty strip, as callers expect.)
  if (!Ipg_ParameterInRange(static_cast<unsigned>(n) <= std::max(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()),
                            "ResolutionFactor", "IPG_GENERIC_PROCESSING"))
    return 0;
  const DCM_DATA& in = *ImaIn->Data;
  const unsigned newCols = in.GetNbOfCols() / static_cast<unsigned>(n);
  const unsigned newRows = in.GetNbOfRows() / static_cast<unsigned>(n);
  const long long blockArea = static_cast<long long>(n) * n;
  std::vector<int> means(static_cast<std::size_t>(newCols) * newRows);
  // Each block mean is an exact integer sum of its own pixels: rows of blocks
  // go to parallel bands.
  const int* pixels = in.GetIDataAddress();
  const std::size_t stride = in.GetNbOfCols();
  Ipg_RunBands(Ipg_SplitRows(newRows, static_cast<std::size_t>(newCols) * n * n), [&](unsigned, unsigned begin, unsigned end) {
    std::vector<long long> sums(newCols);
    for (unsigned j = begin; j < end; ++j) {
      std::fill(sums.begin(), sums.end(), 0);
      for (unsigned r = j * n; r < (j + 1) * n; ++r) {
        const int* line = pixels + r * stride;
        for (unsigned i = 0; i < newCols; ++i)
          for (unsigned c = i * n; c < (i + 1) * n; ++c)
            sums[i] += line[c];
      }
      for (unsigned i = 0; i < newCols; ++i)
        means[static_cast<std::size_t>(j) * newCols + i] = static_cast<int>(sums[i] / blockArea);
    }
  });

  // The output takes the new size: a new pixel store, the input's header.
  auto* store = new DCM_DATA(newCols, newRows);
  store->SetPrecision(ImaOut->Data->GetPrecision());
  std::copy(means.begin(), means.end(), store->GetIDataAddress());
  DCM_HEADER header = ImaIn->GetHeader();
  header.PixelSpacing[0] *= n;
  header.PixelSpacing[1] *= n;
  delete ImaOut->Data;
  ImaOut->Data = store;
  ImaOut->SetHeader(header);
  return FinishOutput();
}

namespace {

// Otsu brings the grey levels into about 0..255 by dividing them; callers read
// the divided input back.
int OtsuDivisor(const DCM_DATA& in) { return in.GetMax() > 256 ? in.GetMax() / 256 + 1 : 1; }

// Zeroed bins for the levels mn..mx; false when there are none or too many (as
// IPG_HISTO: a far negative outlier must not zero-fill gigabytes of bins).
bool AllocateBins(int mn, int mx, std::vector<int>& bins)
{
  const long long binCount = static_cast<long long>(mx) - mn + 1;
  if (binCount <= 0 || binCount > (1LL << 25))
    return false;
  try {
    bins.assign(static_cast<std::size_t>(binCount), 0);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// A square image: every pixel divided once, in row order, and counted in the
// same pass. Division toward zero keeps the order of levels, so the extremes
// divide too. The input is divided even when no bins can be made.
bool DivideAndCountSquareLevels(DCM_DATA& in, std::vector<int>& bins)
{
  const int divisor = OtsuDivisor(in);
  const int mn = in.GetMin(), mx = in.GetMax();
  const bool haveBins = AllocateBins(mn / divisor, mx / divisor, bins);
  if (!haveBins)
    bins.clear();
  if (divisor > 1 || haveBins)
    Ipg_DivideAndCountSquare(in.GetIDataAddress(), in.GetNbOfCols(), mn, mx, divisor, mn / divisor, bins);
  in.SetMin(mn / divisor);
  in.SetMax(mx / divisor);
  return haveBins;
}

// Any other shape: the row * rows + col walk divides some pixels twice and
// misses others, so the extremes are measured again before counting.
bool DivideAndCountWalkedLevels(DCM_DATA& in, std::vector<int>& bins)
{
  const unsigned cols = in.GetNbOfCols(), rows = in.GetNbOfRows();
  int* pixels = in.GetIDataAddress();
  const int divisor = OtsuDivisor(in);
  if (divisor > 1) {
    Ipg_ForSquareIndex(cols, rows, in.GetSize(), [&](std::size_t k, unsigned, unsigned) { pixels[k] /= divisor; });
    Ipg_MeasureExtremes(in);
  }
  if (!AllocateBins(in.GetMin(), in.GetMax(), bins))
    return false;
  Ipg_CountOtsuLevels(pixels, cols, rows, in.GetSize(), in.GetMin(), in.GetMax(), bins);
  return true;
}

} // namespace

double IPG_GENERIC_PROCESSING::sig(int k, double meanTotal, int cols, int rows, int* bins)
{
  const double pixels = static_cast<double>(cols) * rows;
  if (bins == nullptr || k < 0 || pixels <= 0)
    return 0.0;
  double count = 0.0, weighted = 0.0;
  for (int i = 0; i <= k; ++i) {
    count += bins[i];
    weighted += static_cast<double>(i) * bins[i];
  }
  return OtsuScore(count, weighted, meanTotal, pixels);
}

int IPG_GENERIC_PROCESSING::BinarizeByOtsu()
{
  if (ImaOut == nullptr || ImaIn == nullptr || ImaIn->Data == nullptr)
    return 0;
  DCM_DATA& in = *ImaIn->Data;
  const unsigned cols = in.GetNbOfCols();
  const unsigned rows = in.GetNbOfRows();
  int* pixels = in.GetIDataAddress();
  Ipg_MeasureExtremes(in);
  std::vector<int> bins;
  const bool counted = cols == rows ? DivideAndCountSquareLevels(in, bins) : DivideAndCountWalkedLevels(in, bins);
  if (!counted)
    return 0;
  const double pixelCount = static_cast<double>(cols) * rows;
  double weightedTotal = 0.0;
  for (std::size_t i = 0; i < bins.size(); ++i)
    weightedTotal += static_cast<double>(i) * bins[i];
  const double meanTotal = pixelCount > 0 ? weightedTotal / pixelCount : 0.0;
  // Running sums give the scores of sig() cut after cut without re-summing.
  double best = 0.0, count = 0.0, weighted = 0.0;
  long long cut = 0;
  for (std::size_t k = 0; k < bins.size(); ++k) {
    count += bins[k];
    weighted += static_cast<double>(k) * bins[k];
    const double score = pixelCount > 0 ? OtsuScore(count, weighted, meanTotal, pixelCount) : 0.0;
    if (score > best) {
      best = score;
      cut = static_cast<long long>(k);
    }
  }

  DCM_DATA& out = *ImaOut->Data;
  const std::size_t outSize = std::min(out.GetSize(), in.GetSize());
  const IPG_BAND_EXTREMES written = Ipg_WriteOtsuMask(pixels, out.GetIDataAddress(), cols, rows, outSize, cut, Roi);
  if (outSize == 0 || outSize != out.GetSize())
    return FinishOutput();
  // Every pixel of the output was written: its extremes are known.
  out.SetMin(written.Min);
  out.SetMax(written.Max);
  return Ipg_ApplyModeToImage(ImaOut, Mode, written) ? 1 : 0;
}
