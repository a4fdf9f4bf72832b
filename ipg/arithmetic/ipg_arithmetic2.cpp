// SPDX-License-Identifier: Apache-2.0
#include "ipg/arithmetic/ipg_arithmetic2.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_streamed_writes.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace {

// The integer arithmetic of this class wraps around in 32-bit two's complement.
int WrappedMagnitude(int v) { return Ipg_WrapToInt(v < 0 ? -static_cast<long long>(v) : v); }

// f(v) for the grey levels lo..hi, tabulated when the range is no larger than
// the image (a speed choice only: the values are the same either way).
template <typename T>
class LevelTable {
public:
  LevelTable(int lo, int hi, std::size_t pixels, std::function<T(int)> f) : Lo(lo), F(std::move(f))
  {
    const long long levels = static_cast<long long>(hi) - lo + 1;
    if (levels > 0 && static_cast<unsigned long long>(levels) <= pixels)
      for (long long v = lo; v <= hi; ++v)
        Table.push_back(F(static_cast<int>(v)));
  }
  T operator()(int v) const
  {
    const long long at = static_cast<long long>(v) - Lo;
    return at >= 0 && at < static_cast<long long>(Table.size()) ? Table[static_cast<std::size_t>(at)] : F(v);
  }

private:
  int Lo;
  std::function<T(int)> F;
  std::vector<T> Table;
};

} // namespace

// The pixel buffers of one run, walked in step.
struct IPG_ARITHMETIC2::Frame {
  const int* A = nullptr;
  const int* B = nullptr;
  int* Out = nullptr;
  std::size_t Count = 0;    // pixels of a and b
  std::size_t OutCount = 0; // pixels of the output; a smaller output is written where it exists
  unsigned Cols = 0;
  unsigned Rows = 0;

  void Write(std::size_t k, int v) const
  {
    if (k < OutCount)
      Out[k] = v;
  }
};

namespace {

// What a combination walk tracks: the lowest value computed inside the ROI, the
// highest value of any pixel (both before thresholding), and what was written.
struct CombineExtremes {
  int InsideMin = kIpgMaxGrey;
  int Max = -kIpgMaxGrey;
  IPG_BAND_EXTREMES Written;
};

// min(current, v) where cond holds, else current; written as a bit mask, the
// form the vectoriser takes for a conditional minimum.
inline int MinWhere(int current, int v, bool cond)
{
  const int keep = -static_cast<int>(cond);
  return std::min(current, (v & keep) | (INT_MAX & ~keep));
}

// How a row reads its ROI: none, a row covering every column, or bounds-checked.
enum class RoiKind { None, Full, Checked };

// Columns [first, end) of one row; Write: the output has these positions.
// Inlined into a plain and an AVX2 copy.
template <bool Write, RoiKind Kind, typename Combine>
[[gnu::always_inline]] inline void CombineColumns(const int* a, const int* b, int* out, unsigned first, unsigned end,
                                                  IPG_ROI_ROW roi, Combine& combine, CombineExtremes& seen)
{
  CombineExtremes local = seen;
  for (unsigned col = first; col < end; ++col) {
    const bool inRoi = Kind == RoiKind::None   ? true
                       : Kind == RoiKind::Full ? Ipg_InsideRoi(roi.Values[col])
                                               : roi.Inside(col);
    // A mark is any level above the grey range, so either is one when the
    // larger is; bitwise on purpose: no branch per pixel.
    const bool inside = (static_cast<int>(!Ipg_IsMark(std::max(a[col], b[col]))) & static_cast<int>(inRoi)) != 0;
    const int v = combine(a[col], b[col], inside, local);
    if (Write) {
      out[col] = v;
      local.Written.Add(v);
    }
  }
  seen = local;
}

// The first n columns, all written.
template <typename Combine>
[[gnu::always_inline]] inline void CombineWritten(const int* a, const int* b, int* out, unsigned n, IPG_ROI_ROW roi,
                                                  Combine& combine, CombineExtremes& seen)
{
  if (roi.Values == nullptr)
    CombineColumns<true, RoiKind::None>(a, b, out, 0, n, roi, combine, seen);
  else if (roi.Cols >= n)
    CombineColumns<true, RoiKind::Full>(a, b, out, 0, n, roi, combine, seen);
  else
    CombineColumns<true, RoiKind::Checked>(a, b, out, 0, n, roi, combine, seen);
}

template <typename Combine>
[[gnu::always_inline]] inline void CombineRow(const int* a, const int* b, int* out, unsigned cols, unsigned written,
                                              IPG_ROI_ROW roi, Combine& combine, CombineExtremes& seen, bool stream)
{
  if (stream)
    Ipg_WriteRowStreamed(out, written, [&](unsigned first, unsigned n, int* stage) __attribute__((always_inline)) {
      CombineWritten(a + first, b + first, stage, n, roi.From(first), combine, seen);
    });
  else
    CombineWritten(a, b, out, written, roi, combine, seen);
  CombineColumns<false, RoiKind::Checked>(a, b, out, written, cols, roi, combine, seen);
}

template <typename Combine>
void CombineRowPlain(const int* a, const int* b, int* out, unsigned cols, unsigned written, IPG_ROI_ROW roi,
                     Combine& combine, CombineExtremes& seen, bool stream)
{
  CombineRow(a, b, out, cols, written, roi, combine, seen, stream);
}

#if defined(__x86_64__)
template <typename Combine>
[[gnu::target("avx2")]] void CombineRowAvx2(const int* a, const int* b, int* out, unsigned cols, unsigned written,
                                            IPG_ROI_ROW roi, Combine& combine, CombineExtremes& seen, bool stream)
{
  CombineRow(a, b, out, cols, written, roi, combine, seen, stream);
}
#endif

// Runs combine(a, b, inside, extremes) -> written value over the pixel pairs in
// row bands; inside: neither is a mark and the pixel is inside the ROI.
template <typename Combine>
CombineExtremes CombineInBands(const int* a, const int* b, int* out, std::size_t outCount, unsigned cols,
                               unsigned rows, const DCM_STRUCT* roi, Combine combine)
{
  const IPG_ROW_BANDS bands = Ipg_SplitRows(rows, cols);
  std::vector<CombineExtremes> perBand(bands.Count);
  const bool avx2 = Ipg_UseAvx2();
  const bool stream = Ipg_StreamsWrites((2 * std::size_t{rows} * cols + outCount) * sizeof(int));
  Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
    CombineExtremes seen;
    for (unsigned row = begin; row < end; ++row) {
      const std::size_t first = std::size_t{row} * cols;
      const unsigned written = first >= outCount ? 0 : static_cast<unsigned>(std::min<std::size_t>(cols, outCount - first));
      const IPG_ROI_ROW roiRow = Ipg_RoiRow(roi, row);
#if defined(__x86_64__)
      if (avx2) {
        CombineRowAvx2(a + first, b + first, out + first, cols, written, roiRow, combine, seen, stream);
        continue;
      }
#endif
      CombineRowPlain(a + first, b + first, out + first, cols, written, roiRow, combine, seen, stream);
    }
    if (stream)
      Ipg_StreamFence();
    perBand[band] = seen;
  });
  CombineExtremes all;
  for (const CombineExtremes& e : perBand) {
    all.InsideMin = std::min(all.InsideMin, e.InsideMin);
    all.Max = std::max(all.Max, e.Max);
    all.Written.Add(e.Written.Min);
    all.Written.Add(e.Written.Max);
  }
  return all;
}

// The extremes the walk tracked become the output's, then the output mode; when
// every output pixel was written, a mode that only re-measures takes what the
// walk saw.
bool FinishCombination(DCM_STRUCT* out, short mode, bool wholeOutput, const CombineExtremes& e)
{
  out->Data->SetMin(e.InsideMin);
  out->Data->SetMax(e.Max);
  return wholeOutput ? Ipg_ApplyModeToImage(out, mode, e.Written) : Ipg_ApplyModeToImage(out, mode);
}

} // namespace

IPG_ARITHMETIC2::IPG_ARITHMETIC2() { SetDefaultParameters(); }

IPG_ARITHMETIC2::IPG_ARITHMETIC2(DCM_STRUCT* a, DCM_STRUCT* b) : IPG_ARITHMETIC2(a, b, nullptr) {}

IPG_ARITHMETIC2::IPG_ARITHMETIC2(DCM_STRUCT* a, DCM_STRUCT* b, DCM_STRUCT* roi)
{
  SetImaIn(a);
  SetInSecond(b);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_ARITHMETIC2::IPG_ARITHMETIC2(const IPG_ARITHMETIC2& source) : IPG_TWO_INPUTS_ONE_OUTPUT()
{
  ThresholdMin = source.ThresholdMin;
  ThresholdMax = source.ThresholdMax;
}

IPG_ARITHMETIC2::~IPG_ARITHMETIC2()
{
  ThresholdMin = -1;
  ThresholdMax = -1;
}

void IPG_ARITHMETIC2::SetDefaultParameters()
{
  Tools = 303;
  Mode = 301;
  ThresholdMin = -1;
  ThresholdMax = -1;
}

const IPG_CLASS_INFO<IPG_ARITHMETIC2>& IPG_ARITHMETIC2::ClassInfo()
{
  using C = IPG_ARITHMETIC2;
  // Every code reports success whatever the operation returned: hosts rely on it.
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {300, "MakeLogDifferenceImage", [](C& op) -> int { op.MakeLogDifferenceImage(); return 1; }},
      {301, "MakeOptimalDifferenceImage", [](C& op) -> int { op.MakeOptimalDifferenceImage(op.OptimisationParameter); return 1; }},
      {302, "MakeSumImage", [](C& op) -> int { op.MakeSumImage(); return 1; }},
      {303, "MakeDifferenceImage", [](C& op) -> int { op.MakeDifferenceImage(); return 1; }},
      {304, "MakeAbsoluteSubstraction", [](C& op) -> int { op.MakeAbsoluteSubstraction(); return 1; }},
      {305, "DivideImage", [](C& op) -> int { op.DivideImage(); return 1; }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetThresholdMin>("ThresholdMin", "-1", "lower bound of the difference window (-1: off)"),
      Ipg_Parameter<C, &C::SetThresholdMax>("ThresholdMax", "-1", "upper bound of the difference window (-1: off)"),
      // The model that code 301 hands to MakeOptimalDifferenceImage; no public setter reaches it.
      {"OptimalModel", IPG_VALUE_TYPE::Integer, INT_MIN, INT_MAX, 0.0, "0",
       "model of code 301: 0 gain and gamma fit (default), 1 histogram specification",
       [](C& op, const IPG_VALUE& value) { op.OptimisationParameter = static_cast<int>(std::get<long long>(value)); }},
  };
  static const IPG_CLASS_INFO<C> info{"IPG_ARITHMETIC2", operations, parameters};
  return info;
}

bool IPG_ARITHMETIC2::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_ARITHMETIC2"))
    return false;
  return Ipg_Dispatch(ClassInfo(), *this, Tools) != 0;
}

bool IPG_ARITHMETIC2::OpenFrame(Frame& frame) const
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr || InSecond == nullptr)
    return false;
  DCM_DATA& a = *ImaIn->Data;
  DCM_DATA& b = *InSecond->Data;
  if (a.GetNbOfCols() != b.GetNbOfCols() || a.GetNbOfRows() != b.GetNbOfRows())
    return false;
  frame.A = a.GetIDataAddress();
  frame.B = b.GetIDataAddress();
  frame.Out = ImaOut->Data->GetIDataAddress();
  frame.Count = a.GetSize();
  frame.OutCount = ImaOut->Data->GetSize();
  frame.Cols = a.GetNbOfCols();
  frame.Rows = a.GetNbOfRows();
  return true;
}

bool IPG_ARITHMETIC2::Inside(const Frame& frame, std::size_t k, int a, int b) const
{
  if (Ipg_IsMark(a) || Ipg_IsMark(b))
    return false;
  return Ipg_InsideRoi(Roi, static_cast<unsigned>(k % frame.Cols), static_cast<unsigned>(k / frame.Cols));
}

bool IPG_ARITHMETIC2::OutsideWindow(int a, int b) const
{
  return ThresholdMax <= a || ThresholdMax <= b || ThresholdMin >= a || ThresholdMin >= b;
}

template <typename F>
bool IPG_ARITHMETIC2::CombineWithMaxForOthers(F formula)
{
  Frame f;
  if (!OpenFrame(f))
    return false;
  const CombineExtremes e =
      CombineInBands(f.A, f.B, f.Out, f.OutCount, f.Cols, f.Rows, Roi, [&](int a, int b, bool inside, CombineExtremes& seen) {
        const int v = inside ? formula(a, b) : std::max(a, b);
        seen.InsideMin = MinWhere(seen.InsideMin, v, inside);
        seen.Max = std::max(seen.Max, v);
        return v;
      });
  return FinishCombination(ImaOut, Mode, f.OutCount == f.Count && f.Count > 0, e);
}

bool IPG_ARITHMETIC2::MakeSumImage()
{
  return CombineWithMaxForOthers([](int a, int b) { return Ipg_WrapToInt(static_cast<long long>(a) + b); });
}

bool IPG_ARITHMETIC2::MakeSumSquaredImages()
{
  return CombineWithMaxForOthers(
      [](int a, int b) { return Ipg_WrapToInt(static_cast<long long>(Ipg_WrappedSquare(a)) + Ipg_WrappedSquare(b)); });
}

bool IPG_ARITHMETIC2::MakeDifferenceSquaredImages()
{
  // The difference of the squares, not the square of the difference.
  return CombineWithMaxForOthers(
      [](int a, int b) { return Ipg_WrapToInt(static_cast<long long>(Ipg_WrappedSquare(a)) - Ipg_WrappedSquare(b)); });
}

bool IPG_ARITHMETIC2::MakeDifferenceImage()
{
  Frame f;
  if (!OpenFrame(f))
    return false;
  const bool thresholds = ThresholdsActive();
  const CombineExtremes e =
      CombineInBands(f.A, f.B, f.Out, f.OutCount, f.Cols, f.Rows, Roi, [&](int a, int b, bool inside, CombineExtremes& seen) {
        const int v = inside ? Ipg_WrapToInt(static_cast<long long>(a) - b) : std::max(a, b);
        seen.InsideMin = MinWhere(seen.InsideMin, v, inside);
        seen.Max = std::max(seen.Max, v);
        // Tracked before thresholding: zeroed pixels do not enter the extremes.
        return thresholds && OutsideWindow(a, b) ? 0 : v;
      });
  return FinishCombination(ImaOut, Mode, f.OutCount == f.Count && f.Count > 0, e);
}

bool IPG_ARITHMETIC2::MakeAbsoluteSubstraction()
{
  Frame f;
  if (!OpenFrame(f))
    return false;
  const bool thresholds = ThresholdsActive();
  // No ROI here; over-range pixels take the smaller value, unlike the others.
  const CombineExtremes e =
      CombineInBands(f.A, f.B, f.Out, f.OutCount, f.Cols, f.Rows, nullptr, [&](int a, int b, bool, CombineExtremes& seen) {
        int v = Ipg_IsGreyLevel(a) && Ipg_IsGreyLevel(b) ? WrappedMagnitude(Ipg_WrapToInt(static_cast<long long>(a) - b))
                                                       : std::min(a, b);
        v = thresholds && OutsideWindow(a, b) ? 0 : v;
        seen.InsideMin = std::min(seen.InsideMin, v); // every pixel: the lowest value
        seen.Max = std::max(seen.Max, v);
        return v;
      });
  // The stored extremes start from kIpgMaxGrey and 0, as they always have.
  ImaOut->Data->SetMin(std::min(kIpgMaxGrey, e.InsideMin));
  ImaOut->Data->SetMax(std::max(0, e.Max));
  const bool wholeOutput = f.OutCount == f.Count && f.Count > 0;
  return wholeOutput ? Ipg_ApplyModeToImage(ImaOut, Mode, e.Written) : ApplyModeToOutImage();
}

bool IPG_ARITHMETIC2::MakeLogDifferenceImage()
{
  Frame f;
  if (!OpenFrame(f))
    return false;
  // A read past the end of an input (after the slips below) gives 0, the value of
  // any read outside an image.
  auto at = [&f](const int* p, std::size_t i) { return i < f.Count ? p[i] : 0; };
  std::size_t ia = 0, ib = 0;
  for (unsigned row = 0; row < f.Rows; ++row)
    for (unsigned col = 0; col < f.Cols; ++col, ++ia, ++ib) {
      int a = at(f.A, ia), b = at(f.B, ib);
      double v;
      if (Inside(f, static_cast<std::size_t>(row) * f.Cols + col, a, b)) {
        // A zero moves that image's walk one pixel ahead for good: results
        // recorded with this library were produced that way and are compared
        // against new runs.
        if (a == 0)
          a = at(f.A, ++ia);
        if (b == 0)
          b = at(f.B, ++ib);
        v = std::log10(static_cast<double>(a)) - std::log10(static_cast<double>(b));
      } else {
        v = std::max(a, b);
      }
      ImaOut->Data->SetValue(col, row, v);
    }
  ImaOut->Data->SetPrecision(1);
  ImaOut->Data->SetMin();
  ImaOut->Data->SetMax();
  return ApplyModeToOutImage();
}

bool IPG_ARITHMETIC2::DivideImage()
{
  Frame f;
  if (!OpenFrame(f))
    return false;
  const bool withRoi = Roi != nullptr;
  CombineInBands(f.A, f.B, f.Out, f.OutCount, f.Cols, f.Rows, Roi, [withRoi](int a, int b, bool inside, CombineExtremes&) {
    if (!withRoi) {
      const long long q = b == 0 ? 0 : static_cast<long long>(a) / (b == 0 ? 1 : b);
      return q > kIpgMaxGrey ? 0 : static_cast<int>(q);
    }
    // A subtraction under a ROI: kept for existing callers.
    return b != 0 && inside ? Ipg_WrapToInt(static_cast<long long>(a) - b) : std::max(a, b);
  });
  // No extremes stored: the post-processing uses the output's previous ones.
  return ApplyModeToOutImage();
}

bool IPG_ARITHMETIC2::MakeOptimalDifferenceImage(int model)
{
  if (model != kGainGammaModel && model != kHistogramSpecificationModel)
    return false;
  Frame f;
  if (!OpenFrame(f))
    return false;
  const int aMin = ImaIn->Data->GetMin(), aMax = std::min(ImaIn->Data->GetMax(), kIpgMaxGrey);
  const int bMin = InSecond->Data->GetMin(), bMax = std::min(InSecond->Data->GetMax(), kIpgMaxGrey);
  std::vector<char> computed(f.Count);
  for (std::size_t k = 0; k < f.Count; ++k) {
    const int a = f.A[k], b = f.B[k];
    computed[k] = Inside(f, k, a, b) && a >= aMin && a <= aMax && b >= bMin && b <= bMax;
  }

  std::function<int(int)> mapped;
  if (model == kGainGammaModel) {
    // ln of levels shifted to start at 1 when the stored minimum is below 1.
    const double shiftA = aMin < 1 ? 1.0 - aMin : 0.0;
    const double shiftB = bMin < 1 ? 1.0 - bMin : 0.0;
    const LevelTable<double> lnA(aMin, aMax, f.Count, [shiftA](int v) { return std::log(v + shiftA); });
    const LevelTable<double> lnB(bMin, bMax, f.Count, [shiftB](int v) { return std::log(v + shiftB); });
    double n = 0, su = 0, sw = 0, suw = 0, sww = 0;
    for (std::size_t k = 0; k < f.Count; ++k) {
      if (!computed[k])
        continue;
      const double u = lnA(f.A[k]), w = lnB(f.B[k]);
      n += 1;
      su += u;
      sw += w;
      suw += u * w;
      sww += w * w;
    }
    const double denominator = n * sww - sw * sw;
    const double beta = n > 0 && denominator > 1e-12 * n * n ? (n * suw - su * sw) / denominator : 0.0;
    const double alpha = n > 0 ? (su - beta * sw) / n : 0.0;
    auto toA = [alpha, beta, shiftA, lnB](int v) {
      return Ipg_RoundHalfAwayFromZero<double>(std::exp(alpha + beta * lnB(v)) - shiftA);
    };
    mapped = [table = std::make_shared<LevelTable<int>>(bMin, bMax, f.Count, toA)](int v) { return (*table)(v); };
  } else {
    std::vector<int> sortedA, sortedB;
    for (std::size_t k = 0; k < f.Count; ++k)
      if (computed[k]) {
        sortedA.push_back(f.A[k]);
        sortedB.push_back(f.B[k]);
      }
    std::sort(sortedA.begin(), sortedA.end());
    std::sort(sortedB.begin(), sortedB.end());
    // The level of a whose cumulative count first reaches that of v in b.
    mapped = [a = std::move(sortedA), b = std::move(sortedB)](int v) {
      const auto reached = std::upper_bound(b.begin(), b.end(), v) - b.begin();
      return reached > 0 ? a[static_cast<std::size_t>(reached - 1)] : v;
    };
  }

  int mn = kIpgMaxGrey, mx = -kIpgMaxGrey;
  for (std::size_t k = 0; k < f.Count; ++k) {
    const int a = f.A[k], b = f.B[k];
    int v;
    if (computed[k]) {
      v = Ipg_WrapToInt(static_cast<long long>(a) - mapped(b));
      mn = std::min(mn, v);
    } else {
      v = std::max(a, b);
    }
    mx = std::max(mx, v);
    f.Write(k, v);
  }
  ImaOut->Data->SetMin(mn);
  ImaOut->Data->SetMax(mx);
  return ApplyModeToOutImage();
}
