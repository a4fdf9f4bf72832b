// SPDX-License-Identifier: Apache-2.0
// IPG_FILTER_PROCESSING: the speckle filters (Lee, Kuan, Frost, the ultrasound
// despeckling filters and the sigma filter) and the public helpers of the
// region-based ones. Their kernels are in ipg/internal/ipg_speckle_kernels.h,
// the frame of the despeckling filters in ipg/internal/ipg_speckle_frame.h.
#include "ipg/filtering/ipg_filter_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "ipg/internal/ipg_large_block.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_roi_mask.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/internal/ipg_selected_moments.h"
#include "ipg/internal/ipg_speckle_frame.h"
#include "ipg/internal/ipg_speckle_kernels.h"
#include "ipg/internal/ipg_speckle_windows.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <vector>

// --- Adaptive local-statistics speckle filters: Lee, Kuan, Frost ---
//
// Their shared frame: the input is copied into a work array and into the
// output; each pass over the inner pixels steps the progress window with the
// 1-based pass number. Neither the ROI nor the output mode applies, and the
// output's extremes are left as they are: hosts re-measure them when they need to.

namespace {

constexpr const char* kLabelLee = "LEE FILTER";
constexpr const char* kLabelKuan = "KUAN FILTER";
constexpr const char* kLabelFrost = "FROST FILTER";
constexpr double kFrostDefaultDamping = 1.0;

// The noise variance of Lee's filter: that of the whole input, as the basic
// statistics (IPG_STATISTIC1 code 6) give it, message on a flat input included.
// A monochrome input skips their signal-to-noise ratio, which Lee does not use
// and which shows no message there; a colour one goes through them for theirs.
double LeeNoiseVariance(DCM_STRUCT* in)
{
  const DCM_HEADER header = in->GetHeader();
  if (header.PhotometricInterpretation != 0 && header.PhotometricInterpretation != 1) {
    IPG_STATISTIC1 statistics(in);
    statistics.SetTools(6);
    statistics.Apply();
    return statistics.GetVariance();
  }
  IPG_SELECTED_MOMENTS moments;
  if (!Ipg_SelectedMoments(in->Data->GetIDataAddress(), in->Data->GetSize(), in->Data->GetNbOfCols(), nullptr, 0,
                           moments))
    return 0.0;
  if (moments.Variance <= 0.0)
    Ipg_Inform(kIpgMsgNegativeVariance);
  const short precision = in->Data->GetPrecision();
  // Divided by the precision, not its square, as the statistics store it.
  return precision >= 1 ? moments.Variance / precision : moments.Variance;
}

} // namespace

bool IPG_FILTER_PROCESSING::LeeFilter()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  const double noiseVariance = LeeNoiseVariance(ImaIn);

  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  // The output holds a copy of the input until the passes are done, which is
  // what a refused or stopped run leaves there; the last write covers it.
  const int passes = std::max(0, NbIter);
  if (!Ipg_FilterPassesInRange(passes)) {
    Ipg_CopyPixelsInto(src, size, ImaOut);
    return false;
  }
  IPG_LARGE_BLOCK work(size * sizeof(double));
  if (work.Empty())
    throw std::bad_alloc();
  double* values = work.As<double>();
  // By bands of rows, so that threads share the copies and the first touch
  // of the work array's pages.
  const auto inBands = [&](const auto& copy) {
    const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(rows), static_cast<std::size_t>(cols));
    Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned end) {
      const std::size_t from = std::min(size, std::size_t{begin} * static_cast<std::size_t>(cols));
      const std::size_t to = band + 1 == bands.Count ? size : std::min(size, std::size_t{end} * static_cast<std::size_t>(cols));
      copy(from, to);
    });
  };
  inBands([&](std::size_t from, std::size_t to) { std::copy(src + from, src + to, values + from); });

  Ipg_Progress progress(kLabelLee, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    Ipg_LeePass(values, cols, rows, noiseVariance);
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested()) {
      Ipg_CopyPixelsInto(src, size, ImaOut);
      return false;
    }
  }
  const Ipg_KernelImages out = Ipg_KernelImagesOf(nullptr, ImaOut, nullptr);
  if (out.Out != nullptr)
    inBands([&](std::size_t from, std::size_t to) {
      int* written = out.Out;
      for (std::size_t i = from, end = std::min(to, out.OutSize); i < end; ++i)
        written[i] = Ipg_TruncateTowardZero<double>(values[i]);
    });
  return true;
}

bool IPG_FILTER_PROCESSING::KuanFilter()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  // The input is read as it was: a copy of it when the output is the input.
  const bool inPlace = ImaOut->Data->GetIDataAddress() == src;
  const std::vector<int> work = inPlace ? std::vector<int>(src, src + size) : std::vector<int>();
  Ipg_CopyPixelsInto(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!Ipg_FilterPassesInRange(passes))
    return false;
  Ipg_KernelImages images = Ipg_KernelImagesOf(ImaIn, ImaOut, nullptr);
  images.In = inPlace ? work.data() : src;
  Ipg_Progress progress(kLabelKuan, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    // The work array is never updated, so every pass gives the same pixels:
    // the first computes them; hosts count on the pass count only for the
    // progress they show.
    if (pass == 1) {
      const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(std::max(0, images.Rows)),
                                                static_cast<std::size_t>(std::max(0, images.Cols)) * 8);
      Ipg_RunBands(bands, [&](unsigned, unsigned begin, unsigned end) {
        Ipg_KuanRows(images, {static_cast<int>(begin), static_cast<int>(end)});
      });
    }
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested())
      return false;
  }
  return true;
}

bool IPG_FILTER_PROCESSING::FrostFilter()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  const double damping =
      std::isfinite(AdaptatifReal) && AdaptatifReal > 0.0 ? AdaptatifReal : kFrostDefaultDamping;
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  std::vector<int> work(src, src + size);
  Ipg_CopyPixelsInto(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!Ipg_FilterPassesInRange(passes))
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  Ipg_Progress progress(kLabelFrost, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    Ipg_FrostPass(work.data(), cols, rows, damping);
    // The output follows every pass: a cancelled run leaves the passes made.
    Ipg_CopyPixelsInto(work.data(), size, ImaOut);
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested())
      return false;
  }
  return true;
}

// --- Ultrasound despeckling: thin wrappers over the speckle kernels ---

namespace {

constexpr const char* kLabelAdaptive = "filtrage adaptatif";
constexpr const char* kLabelSbf = "filtrage SBF";
constexpr const char* kLabelNeighbourhood = "Ultrasound Images Filter";
constexpr const char* kLabelSrad = "Speckle Reducing Anisotropic Diffusion";
constexpr const char* kLabelAwmf = "Adaptative Weighted Median Filter";
constexpr const char* kLabelSbfDvw = "SBF-DVW (using Dynamically Varying Window)";
constexpr const char* kLabelWsbf = "Weighted Squeeze Box Filter (WSBF)";
constexpr const char* kLabelDespeckling = "ADAPTATIVE DESPECKLING";
// The impulse filter shows the squeeze box label: hosts match on it.
constexpr const char* kLabelImpulse = "filtrage SBF";

// Half-width of the speckle-level windows (5x5).
constexpr int kSpeckleHalf = 2;

int OrDefault(int value, int fallback) { return value == 0 ? fallback : value; }
double OrDefault(double value, double fallback) { return value == 0.0 ? fallback : value; }

// An odd, positive window side; otherwise the window message.
bool WindowSideValid(int side, const char* method)
{
  if (side >= 1 && side % 2 == 1)
    return true;
  Ipg_Inform(Ipg_SpeckleMsgWindow(method));
  return false;
}

bool ParameterValid(bool valid, const char* method)
{
  if (!valid)
    Ipg_Inform(Ipg_SpeckleMsgParameter(method));
  return valid;
}

} // namespace

bool IPG_FILTER_PROCESSING::SBF()
{
  const int side = OrDefault(AdaptatifFirst, 3);
  if (!WindowSideValid(side, "SBF"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelSbf, "SBF", side, side / 2},
                           [half = side / 2](const double* in, double* out, int cols, int rows) {
                             Ipg_SbfPass(in, out, cols, rows, half);
                           });
}

bool IPG_FILTER_PROCESSING::WSBF()
{
  const int side = OrDefault(AdaptatifFirst, 3);
  if (!WindowSideValid(side, "WSBF"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelWsbf, "WSBF", side, side / 2},
                           [half = side / 2](const double* in, double* out, int cols, int rows) {
                             Ipg_WsbfPass(in, out, cols, rows, half);
                           });
}

bool IPG_FILTER_PROCESSING::SBF_DVW()
{
  const int side = OrDefault(AdaptatifFirst, 7);
  const double factor = OrDefault(AdaptatifReal, 1.5);
  if (!WindowSideValid(side, "SBF_DVW") || !ParameterValid(factor > 0.0 && std::isfinite(factor), "SBF_DVW"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelSbfDvw, "SBF_DVW", side, std::max(1, side / 2)},
                           [half = side / 2, factor](const double* in, double* out, int cols, int rows) {
                             const double cu2 = Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf);
                             Ipg_SbfDvwPass(in, out, cols, rows, half, factor, cu2);
                           });
}

bool IPG_FILTER_PROCESSING::SRAD()
{
  const double dt = OrDefault(AdaptatifReal, 0.2);
  if (!ParameterValid(dt > 0.0 && dt <= 1.0, "SRAD"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelSrad, "SRAD", 1, 2},
                           [dt](const double* in, double* out, int cols, int rows) {
                             const double q0sq = Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf);
                             Ipg_SradPass(in, out, cols, rows, dt, q0sq);
                           });
}

bool IPG_FILTER_PROCESSING::AWMF()
{
  const int side = OrDefault(AdaptatifFirst, 5);
  const int centreWeight = OrDefault(AdaptatifSecond, 99);
  const double scale = AdaptatifReal;
  if (!WindowSideValid(side, "AWMF") || !ParameterValid(centreWeight > 0 && scale >= 0.0 && std::isfinite(scale), "AWMF"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelAwmf, "AWMF", side, side / 2},
                           [half = side / 2, centreWeight, scale](const double* in, double* out, int cols, int rows) {
                             const double b = scale > 0.0 ? scale
                                                          : Ipg_AwmfAutoScale(in, cols, rows, half, centreWeight);
                             Ipg_AwmfPass(in, out, cols, rows, half, centreWeight, b);
                           });
}

bool IPG_FILTER_PROCESSING::N_B_Filter()
{
  const int area = OrDefault(AdaptatifFirst, 49);
  const double k = OrDefault(AdaptatifReal, 2.0);
  // A region cannot outgrow the image: a larger one is refused, not clipped.
  const long long pixels = ImaIn == nullptr ? 0 : static_cast<long long>(ImaIn->Data->GetSize());
  if (!ParameterValid(area > 0 && (ImaIn == nullptr || area <= pixels) && k > 0.0 && std::isfinite(k), "N_B_Filter"))
    return false;
  Ipg_SpeckleBuffers buffers;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelNeighbourhood, "N_B_Filter", 1, area},
                           [area, k, &buffers](const double* in, double* out, int cols, int rows) {
                             const double cu2 = Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf);
                             Ipg_AdaptiveNeighbourhoodPass(in, out, cols, rows, area, k, cu2, &buffers);
                           });
}

bool IPG_FILTER_PROCESSING::ADespeckling()
{
  const int side = OrDefault(AdaptatifFirst, 5);
  const double dt = OrDefault(AdaptatifReal, 0.2);
  if (!WindowSideValid(side, "ADespeckling") || !ParameterValid(dt > 0.0 && dt <= 1.0, "ADespeckling"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelDespeckling, "ADespeckling", side, side / 2 + 1},
                           [half = side / 2, dt](const double* in, double* out, int cols, int rows) {
                             const double cu2 = Ipg_SpeckleCu2(in, cols, rows, half);
                             Ipg_DpadPass(in, out, cols, rows, half, dt, cu2);
                           });
}

bool IPG_FILTER_PROCESSING::Filtre_Impuls()
{
  const int side = OrDefault(AdaptatifFirst, 7);
  if (!WindowSideValid(side, "Filtre_Impuls") || !ParameterValid(side >= 3, "Filtre_Impuls"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelImpulse, "Filtre_Impuls", side, side / 2},
                           [half = side / 2](const double* in, double* out, int cols, int rows) {
                             Ipg_AdaptiveMedianPass(in, out, cols, rows, half);
                           });
}

bool IPG_FILTER_PROCESSING::AdaptativeDenoise()
{
  const int side = OrDefault(AdaptatifFirst, 5);
  const int fewest = OrDefault(AdaptatifSecond, 3);
  const double range = OrDefault(AdaptatifReal, 2.0);
  if (!WindowSideValid(side, "AdaptativeDenoise") ||
      !ParameterValid(fewest > 0 && range > 0.0 && std::isfinite(range), "AdaptativeDenoise"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelAdaptive, "AdaptativeDenoise", side, std::max(1, side / 2)},
                           [roi = Ipg_RoiRowsOf(Roi), half = side / 2, fewest, range](const double* in, double* out,
                                                                                      int cols, int rows) {
                             Ipg_SigmaFilterPass(in, out, cols, rows, roi, half, fewest, range);
                           });
}

double IPG_FILTER_PROCESSING::SNR(int col, int row, int halfX, int halfY, int* data, int cols, int rows)
{
  if (data == nullptr || cols <= 0 || rows <= 0 || halfX < 0 || halfY < 0)
    return 0.0;
  double sum = 0.0, squares = 0.0, count = 0.0;
  for (int y = std::max(0, row - halfY); y <= std::min(rows - 1, row + halfY); ++y)
    for (int x = std::max(0, col - halfX); x <= std::min(cols - 1, col + halfX); ++x) {
      const double v = data[static_cast<std::size_t>(y) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(x)];
      sum += v;
      squares += v * v;
      count += 1.0;
    }
  if (count == 0.0)
    return 0.0;
  const double mean = sum / count;
  const double variance = std::max(0.0, squares / count - mean * mean);
  if (variance == 0.0)
    return mean > 0.0 ? std::numeric_limits<double>::max() : 0.0;
  return mean / std::sqrt(variance);
}

bool IPG_FILTER_PROCESSING::N_Existe_Region(int col, int row, TList* region)
{
  if (region == nullptr)
    return false;
  for (int i = 0; i < region->Count(); ++i) {
    const auto* point = static_cast<const MTH_2D_INTEGER*>(region->Get(i));
    if (point != nullptr && point->GetX() == col && point->GetY() == row)
      return true;
  }
  return false;
}

bool IPG_FILTER_PROCESSING::IsTreatedPixel(int col, int row, bool useRoi)
{
  if (ImaIn == nullptr || col < 0 || row < 0 || col >= static_cast<int>(ImaIn->GetNbOfCols()) ||
      row >= static_cast<int>(ImaIn->GetNbOfRows()))
    return false;
  if (Ipg_IsMark(ImaIn->Data->GetValue(static_cast<unsigned>(col), static_cast<unsigned>(row))))
    return false;
  return !useRoi || Ipg_InsideRoi(Roi, static_cast<unsigned>(col), static_cast<unsigned>(row));
}

bool IPG_FILTER_PROCESSING::AddPixel(int col, int row, int tolerance, TLinkedList<MTH_2D_INTEGER*>* list)
{
  if (list == nullptr || !IsTreatedPixel(col, row, true))
    return false;
  if (list->Count() > 0) {
    const MTH_2D_INTEGER* reference = list->Get(0);
    if (reference == nullptr)
      return false;
    const long difference =
        static_cast<long>(ImaIn->Data->GetValue(static_cast<unsigned>(col), static_cast<unsigned>(row))) -
        ImaIn->Data->GetValue(static_cast<unsigned>(reference->GetX()), static_cast<unsigned>(reference->GetY()));
    if (std::labs(difference) > tolerance)
      return false;
  }
  list->Add(new MTH_2D_INTEGER(col, row));
  return true;
}

double IPG_FILTER_PROCESSING::GetNeighboorsMeanGreyLevel(TLinkedList<MTH_2D_INTEGER*>* list)
{
  if (list == nullptr || list->Count() == 0 || ImaIn == nullptr)
    return 0.0;
  double sum = 0.0;
  for (int i = 0; i < list->Count(); ++i) {
    const MTH_2D_INTEGER* point = list->Get(i);
    sum += ImaIn->Data->GetValue(static_cast<unsigned>(point->GetX()), static_cast<unsigned>(point->GetY()));
  }
  return sum / list->Count();
}
