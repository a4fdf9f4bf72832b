// SPDX-License-Identifier: Apache-2.0
// IPG_FILTER_PROCESSING: dispatch, chains, convolution, Deriche, Gaussian and
// Laplacian-of-Gaussian, median, mean, edge, Nagao and chi-square filters. The
// speckle filters of the class are in ipg_speckle.cpp. Each method validates,
// prepares the output, runs its kernel (ipg/internal/) on the raw rows and
// applies the output mode.
#include "ipg/filtering/ipg_filter_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_output_mode.h"
#include "ipg/internal/ipg_convolution_kernel.h"
#include "ipg/internal/ipg_derivative_kernels.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_kernel_images.h"
#include "ipg/internal/ipg_large_block.h"
#include "ipg/internal/ipg_local_kernels.h"
#include "ipg/internal/ipg_median_kernel.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_pixel_values.h"
#include "ipg/internal/ipg_point_kernel.h"
#include "ipg/internal/ipg_row_bands.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr const char* kLabelMedian = "filtrage Médian";
constexpr const char* kLabelMean = "AVREAGING FILTER";
constexpr const char* kLabelEdge = "EDGE FILTER DETECTION";
constexpr int kMedianChunkRows = 64; // rows between two progress reports of the median

// Largest kernel side the kernel class can hold.
constexpr int kMaxKernelSide = 32767;

// A whole-number setting given as a real: the fraction dropped, held to int's
// range; not-a-number gives 0, the setting's default.
int WholeSetting(double value)
{
  if (std::isnan(value))
    return 0;
  return static_cast<int>(std::clamp(value, static_cast<double>(INT_MIN), static_cast<double>(INT_MAX)));
}

// AdaptatifFiltreParameters as first, second, real; a missing value is 0, the default.
void SetAdaptiveParameters(IPG_FILTER_PROCESSING& op, const IPG_VALUE& value)
{
  const std::vector<double>& values = std::get<std::vector<double>>(value);
  auto at = [&](std::size_t k) { return k < values.size() ? values[k] : 0.0; };
  op.SetAdaptatifFiltreParameters(WholeSetting(at(0)), WholeSetting(at(1)), at(2));
}

Ipg_ConvolutionTaps TapsOf(const IPG_FILTER& kernel)
{
  Ipg_ConvolutionTaps taps;
  const std::size_t n = static_cast<std::size_t>(kernel.GetSizeX()) * kernel.GetSizeY();
  taps.Coef.assign(n, 0.0);
  if (kernel.GetDatadFilter() != nullptr)
    std::copy(kernel.GetDatadFilter(), kernel.GetDatadFilter() + n, taps.Coef.begin());
  else if (kernel.GetDataFilter() != nullptr)
    std::copy(kernel.GetDataFilter(), kernel.GetDataFilter() + n, taps.Coef.begin());
  taps.HalfX = kernel.GetSizeX() / 2;
  taps.HalfY = kernel.GetSizeY() / 2;
  taps.Factor = kernel.GetFactor();
  return taps;
}

void RecomputeExtremes(DCM_STRUCT* image) { Ipg_MeasureExtremes(*image->Data); }

// The output mode after RecomputeExtremes: a mode that only re-measures takes
// the extremes just measured.
bool ApplyModeToMeasured(DCM_STRUCT* out, short mode)
{
  IPG_BAND_EXTREMES measured;
  measured.Min = out->Data->GetMin();
  measured.Max = out->Data->GetMax();
  return Ipg_ApplyModeToImage(out, mode, measured);
}

std::optional<std::unique_ptr<IPG_FILTER>> RealKernel(const std::vector<double>& coef, int size)
{
  try {
    std::vector<double> copy(coef);
    return std::make_unique<IPG_FILTER>(copy.data(), static_cast<short>(size), static_cast<short>(size));
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

} // namespace

IPG_FILTER_PROCESSING::IPG_FILTER_PROCESSING(DCM_STRUCT* in) : IPG_FILTER_PROCESSING(in, nullptr) {}

IPG_FILTER_PROCESSING::IPG_FILTER_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_FILTER_PROCESSING::IPG_FILTER_PROCESSING(const IPG_FILTER_PROCESSING& source) : IPG_FILTER_VIRTUAL()
{
  GradientFlagDirection = source.GradientFlagDirection;
  GradientDirectionMatrix = source.GradientDirectionMatrix;
  GradientX = source.GradientX;
  GradientY = source.GradientY;
  LaplacianGaussianSigmaType = source.LaplacianGaussianSigmaType;
  LaplacianGaussianSize = source.LaplacianGaussianSize;
  LaplacianGaussianSigma = source.LaplacianGaussianSigma;
}

IPG_FILTER_PROCESSING::~IPG_FILTER_PROCESSING() = default;

void IPG_FILTER_PROCESSING::SetDefaultParameters()
{
  Tools = 500;
  SetDefinedFilter(0);
  ImageBorderType = 0;
  GradientFlagDirection = false;
  GradientDirectionMatrix.reset();
  GradientX.reset();
  GradientY.reset();
}

const IPG_CLASS_INFO<IPG_FILTER_PROCESSING>& IPG_FILTER_PROCESSING::ClassInfo()
{
  using C = IPG_FILTER_PROCESSING;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {500, "ApplyFilter (defined kernel)", [](C& op) -> int { op.ApplyFilter(op.DefineFilter.get()); return 1; }},
      {501, "ApplyFilter (user kernel)",
       [](C& op) -> int {
         if (op.UserFilter == nullptr) {
           Ipg_Inform(kIpgMsgNoUserFilter);
           return 0;
         }
         op.ApplyFilter(op.UserFilter.get());
         return 1;
       }},
      {502, "DericheSmooth", [](C& op) -> int { op.DericheSmooth(); return 1; }},
      {503, "DericheDerivative", [](C& op) -> int { op.DericheDerivative(); return 1; }},
      {505, "MedianFilter, then Nagao_5_x_5", [](C& op) -> int { return op.MedianThenNagao(op.ImaIn) ? 1 : 0; }},
      {506, "Nagao_5_x_5", [](C& op) -> int { op.Nagao_5_x_5(); return 1; }},
      {507, "LaplacianGaussian", [](C& op) -> int { return op.LaplacianGaussian() ? 1 : 0; }},
      {508, "Chi2", [](C& op) -> int { op.Chi2(); return 1; }},
      {513, "LeeFilter", [](C& op) -> int { return op.LeeFilter() ? 1 : 0; }},
      {514, "EdgeDetection", [](C& op) -> int { return op.EdgeDetection() ? 1 : 0; }},
      {515, "MeanFilter", [](C& op) -> int { return op.MeanFilter() ? 1 : 0; }},
      {516, "FrostFilter", [](C& op) -> int { return op.FrostFilter() ? 1 : 0; }},
      {517, "KuanFilter", [](C& op) -> int { return op.KuanFilter() ? 1 : 0; }},
      {504, "AdaptativeDenoise, then MedianFilter, then Nagao_5_x_5", [](C& op) -> int { return op.RunChain504() ? 1 : 0; }},
      {509, "SBF", [](C& op) -> int { return op.SBF() ? 1 : 0; }},
      {510, "N_B_Filter", [](C& op) -> int { return op.N_B_Filter() ? 1 : 0; }},
      {511, "SRAD", [](C& op) -> int { return op.SRAD() ? 1 : 0; }},
      {512, "AWMF", [](C& op) -> int { return op.AWMF() ? 1 : 0; }},
      {518, "SBF_DVW", [](C& op) -> int { return op.SBF_DVW() ? 1 : 0; }},
      {519, "WSBF", [](C& op) -> int { return op.WSBF() ? 1 : 0; }},
      {520, "ADespeckling", [](C& op) -> int { return op.ADespeckling() ? 1 : 0; }},
      {521, "Filtre_Impuls", [](C& op) -> int { return op.Filtre_Impuls() ? 1 : 0; }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetDefinedFilter>("DefinedFilter", "0", "number of the predefined kernel (code 500)"),
      Ipg_Parameter<C>("UserFilter", IPG_VALUE_TYPE::Kernel, "", "user kernel WxH:c1,c2,... row by row (code 501; window of the median)",
                        Ipg_SetUserKernel<C>),
      Ipg_Parameter<C, &C::SetImageBorderType>("ImageBorderType", "0", "0/1 clear the margin, 2 keep it, 3 mark it with 17000000"),
      Ipg_Parameter<C, &C::SetGradientFlagDirection>("GradientFlagDirection", "false", "DericheDerivative also computes the gradient direction"),
      Ipg_Parameter<C, &C::SetLaplacianGaussianSize>("LaplacianGaussianSize", "13", "Laplacian-of-Gaussian kernel size (odd)"),
      Ipg_Parameter<C, &C::SetLaplacianGaussianSigma>("LaplacianGaussianSigma", "1.4", "Laplacian-of-Gaussian sigma"),
      Ipg_Parameter<C, &C::SetLaplacianGaussianSigmaType>("LaplacianGaussianSigmaType", "0", "0 marks the negative lobe, otherwise the positive one"),
      Ipg_Parameter<C, &C::setWaitbarVisible>("WaitbarVisible", "true", "show the median filter's progress"),
      Ipg_Parameter<C, &C::SetNbIter>("NbIter", "1", "passes of the mean, edge and speckle filters"),
      Ipg_RealsParameter<C>("AdaptatifFiltreParameters", 3, "0,0,0",
                            "speckle filter parameters first,second,real, 0 = default: window or region size; second "
                            "integer (AWMF centre weight, AdaptativeDenoise fewest neighbours); real (Frost damping, "
                            "time step, tolerance)",
                            SetAdaptiveParameters),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_FILTER_PROCESSING", operations, parameters};
  return info;
}

int IPG_FILTER_PROCESSING::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_FILTER_PROCESSING"))
    return 0;
  if (ImaOut == nullptr || ImaIn == nullptr)
    return 0;
  // Both dimensions must differ to be refused: hosts pass strips of the input's width.
  if (ImaOut->GetNbOfCols() != ImaIn->GetNbOfCols() && ImaOut->GetNbOfRows() != ImaIn->GetNbOfRows()) {
    Ipg_Inform(Ipg_MsgSizes("IPG_FILTER_PROCESSING::Apply()"));
    return 0;
  }
  ImaOut->Data->Init(0);
  return Ipg_Dispatch(ClassInfo(), *this, Tools);
}

// The median of in, then the Nagao filter over the median's result; the chain
// reports the median's outcome, as callers of code 505 expect.
bool IPG_FILTER_PROCESSING::MedianThenNagao(const DCM_STRUCT* in)
{
  return NagaoOfMedian(MedianInto(in, ImaOut));
}

// The Nagao filter from the median in the output, into the output.
bool IPG_FILTER_PROCESSING::NagaoOfMedian(bool median)
{
  if (ImaOut == nullptr || Ipg_CancelRequested())
    return median;
  const DCM_STRUCT medianResult(*ImaOut, true);
  NagaoInto(&medianResult, ImaOut);
  return median;
}

// The adaptive denoiser, then the median and the Nagao filter from the denoised image.
bool IPG_FILTER_PROCESSING::RunChain504()
{
  if (!AdaptativeDenoise())
    return false;
  // The later steps want images, not the denoiser's kept working block, and
  // each needs only the step before it: the memory held stays that of two
  // images besides the input and output.
  IPG_LARGE_BLOCK::ReleaseKept();
  bool median = false;
  {
    const DCM_STRUCT denoised(*ImaOut, true);
    median = MedianInto(&denoised, ImaOut);
  }
  return NagaoOfMedian(median);
}

bool IPG_FILTER_PROCESSING::KernelUsable(const IPG_FILTER* kernel) const
{
  return kernel != nullptr && kernel->GetSizeX() > 0 && kernel->GetSizeY() > 0 && kernel->GetSizeX() % 2 == 1 &&
         kernel->GetSizeY() % 2 == 1;
}

bool IPG_FILTER_PROCESSING::ApplyFilter(IPG_FILTER* kernel)
{
  return ConvolveInto(ImaIn, ImaOut, kernel, true);
}

bool IPG_FILTER_PROCESSING::ApplyFilterPlain(IPG_FILTER* kernel)
{
  return ConvolveInto(ImaIn, ImaOut, kernel, false);
}

bool IPG_FILTER_PROCESSING::ConvolveInto(const DCM_STRUCT* in, DCM_STRUCT* out, const IPG_FILTER* kernel, bool fast)
{
  if (!KernelUsable(kernel))
    return false;
  if (out == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (in == nullptr)
    return false;
  const Ipg_ConvolutionTaps taps = TapsOf(*kernel);
  const bool sameGeometry = out->GetNbOfCols() == in->GetNbOfCols() && out->GetNbOfRows() == in->GetNbOfRows();
  const bool inPlace = in->Data->GetIDataAddress() == out->Data->GetIDataAddress();
  // The fast path writes every pixel of the interior: only the frame needs the
  // border type's value (the extremes are measured at the end).
  if (fast && sameGeometry && !inPlace)
    PrepareOutputFrame(out, taps.HalfX, taps.HalfY);
  else
    PrepareOutputBorder(out);
  const Ipg_KernelImages images = Ipg_KernelImagesOf(in, out, Roi);
  if (fast && sameGeometry && !inPlace) {
    // The rows are measured as they are written; only the frame rows are read again.
    IPG_BAND_EXTREMES seen;
    const Ipg_RowSpan measured = Ipg_ConvolveFast(images, taps, Ipg_ConvolutionRows(images, taps), &seen);
    Ipg_StoreExtremes(*out->Data, measured.Begin, measured.End, seen);
    return ApplyModeToMeasured(out, Mode);
  }
  if (fast && sameGeometry)
    Ipg_ConvolveFast(images, taps, Ipg_ConvolutionRows(images, taps));
  else
    Ipg_ConvolvePlain(images, taps, Ipg_ConvolutionRows(images, taps));
  RecomputeExtremes(out);
  return ApplyModeToMeasured(out, Mode);
}

bool IPG_FILTER_PROCESSING::DericheSmooth()
{
  std::vector<double> coef = Ipg_DericheSmoothCoefficients();
  IPG_FILTER kernel(coef.data(), 3, 3);
  return ApplyFilter(&kernel);
}

bool IPG_FILTER_PROCESSING::DericheDerivative()
{
  if (!DericheSmooth()) {
    Ipg_Inform(kIpgMsgSmoothingFailed);
    return false;
  }
  DCM_STRUCT* smoothed = ImaOut;
  DCM_STRUCT work(*smoothed, false);
  std::vector<double> x = Ipg_DericheDerivativeCoefficients(true);
  std::vector<double> y = Ipg_DericheDerivativeCoefficients(false);
  IPG_FILTER kernelX(x.data(), 5, 5);
  IPG_FILTER kernelY(y.data(), 5, 5);

  Mode = 304; // the gradients keep their signed values; callers read Mode 304 afterwards
  ConvolveInto(smoothed, &work, &kernelX, true);
  GradientX = std::make_shared<DCM_STRUCT>(work, true);
  ConvolveInto(smoothed, &work, &kernelY, true);
  GradientY = std::make_shared<DCM_STRUCT>(work, true);

  const std::size_t n = smoothed->Data->GetSize();
  const int* gx = GradientX->Data->GetIDataAddress();
  const int* gy = GradientY->Data->GetIDataAddress();
  Ipg_GradientMagnitude(gx, gy, smoothed->Data->GetIDataAddress(), n);
  RecomputeExtremes(smoothed);

  if (GradientFlagDirection) {
    GradientDirectionMatrix = std::shared_ptr<double[]>(new double[n]);
    Ipg_GradientDirection(gx, gy, GradientDirectionMatrix.get(), n);
  }
  return true;
}

bool IPG_FILTER_PROCESSING::GaussianFilter(int size)
{
  if (size <= 0 || size % 2 == 0 || size > kMaxKernelSide)
    return false;
  if (ImaIn != nullptr && static_cast<unsigned>(size) > std::min(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()))
    return false; // wider than the image: no pixel to filter, size^2 coefficients to build
  const auto coef = Ipg_GaussianCoefficients(size);
  if (!coef)
    return false;
  auto kernel = RealKernel(*coef, size);
  if (!kernel)
    return false;
  ApplyFilter(kernel->get());
  return true;
}

bool IPG_FILTER_PROCESSING::LaplacianGaussian()
{
  if (!(LaplacianGaussianSigma > 0.0)) {
    Ipg_Inform(kIpgMsgSigma);
    return false;
  }
  if (LaplacianGaussianSize <= 0) {
    Ipg_Inform(kIpgMsgFilterSize);
    return false;
  }
  const int size = LaplacianGaussianSize;
  if (size > kMaxKernelSide || size % 2 == 0)
    return false; // no kernel of that size can be centred
  // A kernel wider than the image filters no pixel but would cost size^2
  // coefficients: refused.
  if (ImaIn != nullptr &&
      !Ipg_ParameterInRange(static_cast<unsigned>(size) <= std::min(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()),
                            "LaplacianGaussianSize", "IPG_FILTER_PROCESSING"))
    return false;
  const auto coef = Ipg_LaplacianGaussianCoefficients(size, LaplacianGaussianSigma);
  if (!coef)
    return false;
  auto kernel = RealKernel(*coef, size);
  if (!kernel || !ApplyFilter(kernel->get()))
    return false;
  Ipg_MarkLaplacianLobe(Ipg_KernelImagesOf(ImaOut, ImaOut, Roi), LaplacianGaussianSigmaType == 0);
  return true;
}

bool IPG_FILTER_PROCESSING::MedianFilter()
{
  return MedianInto(ImaIn, ImaOut);
}

bool IPG_FILTER_PROCESSING::MedianInto(const DCM_STRUCT* in, DCM_STRUCT* out)
{
  if (out == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (UserFilter == nullptr) {
    Ipg_Inform(kIpgMsgNoUserFilter);
    return false;
  }
  const int sx = UserFilter->GetSizeX();
  const int sy = UserFilter->GetSizeY();
  if (sx < 1 || sy < 1 || sx % 2 == 0 || sy % 2 == 0) {
    Ipg_Inform(kIpgMsgMedianParity);
    return false;
  }
  if (in == nullptr)
    return false;
  const Ipg_KernelImages images = Ipg_KernelImagesOf(in, out, nullptr);
  const int hx = sx / 2, hy = sy / 2;
  std::optional<Ipg_Progress> progress;
  if (WaitbarVisible)
    progress.emplace(kLabelMedian, std::max(0, images.Rows - 2 * hy));
  // Rows go in chunks, each cut into parallel bands; the progress and the stop
  // request are seen between chunks. Filtering in place reads rows already
  // written, so it keeps the serial order.
  const bool inPlace = images.In == images.Out;
  const int chunk = inPlace ? 1 : kMedianChunkRows;
  // With the input's geometry, each output row is measured as soon as it is written.
  const bool measureRows =
      !inPlace && out->GetNbOfCols() == in->GetNbOfCols() && out->GetNbOfRows() == in->GetNbOfRows();
  IPG_BAND_EXTREMES seen;
  for (int first = hy; first < images.Rows - hy; first += chunk) {
    const int end = std::min(first + chunk, images.Rows - hy);
    const IPG_ROW_BANDS bands = Ipg_SplitRows(static_cast<unsigned>(end - first), static_cast<std::size_t>(images.Cols));
    std::vector<IPG_BAND_EXTREMES> seenByBand(bands.Count);
    Ipg_RunBands(bands, [&](unsigned band, unsigned begin, unsigned stop) {
      Ipg_MedianKernel kernel(sx, sy);
      kernel.Rows(images, {first + static_cast<int>(begin), first + static_cast<int>(stop)},
                  measureRows ? &seenByBand[band] : nullptr);
    });
    for (const IPG_BAND_EXTREMES& b : seenByBand)
      Ipg_MergeExtremes(seen, b);
    for (int row = first; row < end; ++row) {
      if (progress)
        progress->Step("");
      if (Ipg_StopRequested())
        return false;
    }
  }
  Ipg_MedianKernel kernel(sx, sy);
  // The user kernel's array holds the last window, sorted: callers read it back.
  if (images.Rows - hy > hy && images.Cols - hx > hx && UserFilter->GetDataFilter() != nullptr) {
    const std::vector<int>& window = kernel.SortedWindow(images, images.Cols - hx - 1, images.Rows - hy - 1);
    std::copy(window.begin(), window.end(), UserFilter->GetDataFilter());
  }
  if (measureRows)
    Ipg_StoreExtremes(*out->Data, hy, images.Rows - hy, seen);
  else
    RecomputeExtremes(out);
  return true;
}

// The frame of the mean and edge filters: the input is copied into a work
// array and into the output; each pass runs the in-place kernel over the work
// array, and the output receives the work array at the end.
bool IPG_FILTER_PROCESSING::RunShearedWindowFilter(const char* label, ShearedKernel kernel)
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  std::vector<int> work(src, src + size);
  Ipg_CopyPixelsInto(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!Ipg_FilterPassesInRange(passes))
    return false;
  Ipg_KernelImages images = Ipg_KernelImagesOf(ImaIn, nullptr, nullptr);
  images.In = images.Out = work.data();
  images.OutSize = size;
  Ipg_Progress progress(label, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    kernel(images, {0, images.Rows});
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested())
      return false;
  }
  Ipg_CopyPixelsInto(work.data(), size, ImaOut);
  RecomputeExtremes(ImaOut);
  return true;
}

bool IPG_FILTER_PROCESSING::MeanFilter()
{
  return RunShearedWindowFilter(kLabelMean, Ipg_ShearedMeanRows);
}

bool IPG_FILTER_PROCESSING::EdgeDetection()
{
  return RunShearedWindowFilter(kLabelEdge, Ipg_ShearedEdgeRows);
}

// The two-pixel frame is prepared by the image border type; ends with the output mode.
bool IPG_FILTER_PROCESSING::Nagao_5_x_5()
{
  return NagaoInto(ImaIn, ImaOut);
}

bool IPG_FILTER_PROCESSING::NagaoInto(const DCM_STRUCT* in, DCM_STRUCT* out)
{
  if (out == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (in == nullptr)
    return false;
  PrepareOutputBorder(out);
  const Ipg_KernelImages images = Ipg_KernelImagesOf(in, out, Roi);
  Ipg_NagaoRows(images, {0, images.Rows});
  RecomputeExtremes(out);
  return Ipg_ApplyModeToImage(out, Mode);
}

// Texture-deviation map: for each pixel, the chi-square distance
//   sum over bins of (p - q)^2 / (p + q)   (MTH_XY_PLOT::GetChi2)
// between the grey-level histogram p of its neighbourhood and the histogram q
// of the whole image, both as relative frequencies over 32 equal bins spanning
// the image's unmarked grey levels (inside the ROI when there is one). The
// neighbourhood is the support (non-zero coefficients) of the defined kernel,
// 3x3 by default; marked neighbours, and neighbours outside the ROI whose grey
// level lies outside the bins, are left out. The distance is 0 where the
// neighbourhood looks like the image as a whole and at most 2 where their grey
// levels do not overlap. GetChi2InFloat() receives the distances (0 where
// nothing is computed); the output receives distance x 8388608, truncated, so
// that 2 maps to 16777216. Pixels outside the ROI or marked copy the input,
// the frame is prepared by the image border type. Ends with ApplyModeToOutImage().
bool IPG_FILTER_PROCESSING::Chi2()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr || !KernelUsable(DefineFilter.get()))
    return false;
  const Ipg_KernelImages images = Ipg_KernelImagesOf(ImaIn, ImaOut, Roi);
  Ipg_Chi2Kernel kernel(images, TapsOf(*DefineFilter));
  Chi2InFloat = std::make_unique<float[]>(ImaIn->Data->GetSize());
  PrepareOutputBorder(ImaOut);
  kernel.Rows(images, {0, images.Rows}, Chi2InFloat.get());
  RecomputeExtremes(ImaOut);
  return ApplyModeToOutImage();
}
