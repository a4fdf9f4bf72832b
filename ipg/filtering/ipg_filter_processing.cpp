#include "ipg/filtering/ipg_filter_processing.h"

#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_speckle.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"
#include "mth/mth_xy_plot.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr const char* kMsgSizeMismatch =
    "Les images n'ont pas les mêmes dimensions : IPG_FILTER_PROCESSING::Apply()";
constexpr const char* kMsgNoUserFilter = "Le filtre utilisateur n'est pas défini";
constexpr const char* kMsgSmoothingFailed = "Erreur d'application du lissage";
constexpr const char* kMsgSigma = "Erreur : sigma négatif ou nul";
constexpr const char* kMsgLogSize = "Erreur : taile du filtre négative ou nulle";
constexpr const char* kMsgMedianParity = "Erreur de parité du filtre médian !";
constexpr const char* kLabelMedian = "filtrage Médian";
constexpr const char* kLabelMean = "AVREAGING FILTER";
constexpr const char* kLabelEdge = "EDGE FILTER DETECTION";

constexpr float kPiF = 3.14159265358979f;

// Real to pixel, truncated toward zero; NaN gives 0 and the 32-bit bounds saturate.
int TruncateToInt(double q)
{
  if (std::isnan(q))
    return 0;
  if (q >= 2147483647.0)
    return INT_MAX;
  if (q <= -2147483648.0)
    return INT_MIN;
  return static_cast<int>(q);
}

bool IsMark(int v) { return v > kIpgMaxGrey; }

// The pass count of the iterative filters: more than kIpgMaxPasses is refused.
bool PassesInRange(int passes) { return Ipg_ParameterInRange(passes <= kIpgMaxPasses, "NbIter", "IPG_FILTER_PROCESSING"); }

// Inside the region: no ROI image, or its pixel holds exactly 16777217.
bool InsideRoi(const DCM_STRUCT* roi, int col, int row)
{
  return roi == nullptr || roi->Data->GetValue(static_cast<unsigned>(col), static_cast<unsigned>(row)) == kIpgRoiValue;
}

// Everything the convolution reads, laid out for the pixel loops.
struct Convolution {
  const int* src;
  int* dst;
  int cols;
  int rows;
  std::size_t dstSize;
  const DCM_STRUCT* roi;
  std::vector<double> coef; // row-major, the real coefficients when present
  int hx;
  int hy;
  float factor;

  // The weighted sum of the unmarked neighbours over the magnitude of their
  // weights, all in single precision (existing results were computed that way).
  int Pixel(int col, int row) const
  {
    float sum = 0.0f;
    float norm = factor;
    std::size_t k = 0;
    for (int dy = -hy; dy <= hy; ++dy) {
      const int* line = src + static_cast<std::ptrdiff_t>(row + dy) * cols + col;
      for (int dx = -hx; dx <= hx; ++dx) {
        const int p = line[dx];
        const double c = coef[k++];
        if (p <= kIpgMaxGrey)
          sum += p * c;
        else
          norm -= c; // a marked neighbour's weight leaves the normaliser
      }
    }
    norm = std::fabs(norm);
    if (norm < 0.001)
      norm = 1.0f; // zero-sum kernels (derivatives) are not normalised
    return TruncateToInt(sum / norm);
  }

  int Result(int col, int row) const
  {
    const int v = src[static_cast<std::size_t>(row) * cols + col];
    if (!InsideRoi(roi, col, row) || IsMark(v))
      return v;
    return Pixel(col, row);
  }

  void PlainRow(int row) const
  {
    for (int col = hx; col < cols - hx; ++col) {
      const std::size_t idx = static_cast<std::size_t>(row) * cols + col;
      const int value = Result(col, row);
      if (idx < dstSize) // an output narrower in one dimension is written as far as it goes
        dst[idx] = value;
    }
  }

  void RunPlain() const
  {
    for (int row = hy; row < rows - hy; ++row)
      PlainRow(row);
  }

  // Rows whose window holds no mark take a vectorisable pass, tap by tap over
  // the whole row, with the very operations of Pixel() in the same order for
  // each pixel: the pixels are identical. Rows near a mark take the plain path.
  // When the kernel is integer and no partial sum can reach 2^24, single
  // precision holds every partial sum exactly, so integer accumulation gives
  // the same sums.
  void RunFast() const
  {
    const int width = cols - 2 * hx;
    if (width <= 0 || rows - 2 * hy <= 0)
      return;
    std::vector<int> markedRowsBefore(static_cast<std::size_t>(rows) + 1, 0);
    std::int64_t largest = 0; // of the unmarked magnitudes
    for (int r = 0; r < rows; ++r) {
      const int* line = src + static_cast<std::size_t>(r) * cols;
      bool marked = false;
      for (int c = 0; c < cols; ++c) {
        marked = marked || IsMark(line[c]);
        if (!IsMark(line[c]))
          largest = std::max<std::int64_t>(largest, std::llabs(static_cast<long long>(line[c])));
      }
      markedRowsBefore[r + 1] = markedRowsBefore[r] + (marked ? 1 : 0);
    }
    const bool exact = SumsStayExact(largest);
    float cleanNorm = factor;
    cleanNorm = std::fabs(cleanNorm);
    if (cleanNorm < 0.001)
      cleanNorm = 1.0f;

    std::vector<float> acc(static_cast<std::size_t>(width));
    std::vector<int> intAcc(static_cast<std::size_t>(width));
    for (int row = hy; row < rows - hy; ++row) {
      if (markedRowsBefore[row + hy + 1] != markedRowsBefore[row - hy]) {
        PlainRow(row);
        continue;
      }
      if (exact) {
        AccumulateRowExact(row, width, intAcc.data());
        for (int j = 0; j < width; ++j)
          acc[j] = static_cast<float>(intAcc[j]);
      } else {
        AccumulateRow(row, width, acc.data());
      }
      const std::size_t start = static_cast<std::size_t>(row) * cols + hx;
      int* out = dst + start;
      const int* centre = src + start;
      if (roi == nullptr) {
        for (int j = 0; j < width; ++j)
          out[j] = TruncateToInt(acc[j] / cleanNorm);
      } else {
        for (int j = 0; j < width; ++j)
          out[j] = InsideRoi(roi, hx + j, row) ? TruncateToInt(acc[j] / cleanNorm) : centre[j];
      }
    }
  }

  // Integer coefficients and largest x sum of |coefficients| below 2^24.
  bool SumsStayExact(std::int64_t largest) const
  {
    constexpr double kExactFloat = 16777216.0;
    double weight = 0.0;
    for (double c : coef) {
      if (c != std::trunc(c) || std::fabs(c) >= kExactFloat)
        return false;
      weight += std::fabs(c);
    }
    return static_cast<double>(largest) * weight < kExactFloat;
  }

  void AccumulateRow(int row, int width, float* acc) const
  {
    std::fill(acc, acc + width, 0.0f);
    std::size_t k = 0;
    for (int dy = -hy; dy <= hy; ++dy) {
      const int* line = src + static_cast<std::ptrdiff_t>(row + dy) * cols;
      for (int dx = -hx; dx <= hx; ++dx) {
        const double c = coef[k++];
        if (c == 0.0)
          continue; // adds only a zero: the truncated result cannot change
        const int* s = line + hx + dx;
        for (int j = 0; j < width; ++j)
          acc[j] = static_cast<float>(static_cast<double>(acc[j]) + static_cast<double>(s[j]) * c);
      }
    }
  }

  void AccumulateRowExact(int row, int width, int* acc) const
  {
    std::fill(acc, acc + width, 0);
    std::size_t k = 0;
    for (int dy = -hy; dy <= hy; ++dy) {
      const int* line = src + static_cast<std::ptrdiff_t>(row + dy) * cols;
      for (int dx = -hx; dx <= hx; ++dx) {
        const int c = static_cast<int>(coef[k++]);
        const int* s = line + hx + dx;
        if (c == 1) {
          for (int j = 0; j < width; ++j)
            acc[j] += s[j];
        } else if (c != 0) {
          for (int j = 0; j < width; ++j)
            acc[j] += s[j] * c;
        }
      }
    }
  }
};

std::vector<double> KernelCoefficients(const IPG_FILTER& kernel)
{
  const std::size_t n = static_cast<std::size_t>(kernel.GetSizeX()) * kernel.GetSizeY();
  std::vector<double> coef(n, 0.0);
  if (kernel.GetDatadFilter() != nullptr)
    std::copy(kernel.GetDatadFilter(), kernel.GetDatadFilter() + n, coef.begin());
  else if (kernel.GetDataFilter() != nullptr)
    std::copy(kernel.GetDataFilter(), kernel.GetDataFilter() + n, coef.begin());
  return coef;
}

// Copies as much of from's pixels as fits into to, at the same linear positions.
void CopyPixels(const int* from, std::size_t fromSize, DCM_STRUCT* to)
{
  const std::size_t n = std::min(fromSize, to->Data->GetSize());
  std::copy(from, from + n, to->Data->GetIDataAddress());
}

void RecomputeExtremes(DCM_STRUCT* image)
{
  image->Data->SetMin();
  image->Data->SetMax();
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

// Largest kernel side the kernel class can hold.
constexpr int kMaxKernelSide = 32767;

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

int IPG_FILTER_PROCESSING::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_FILTER_PROCESSING"))
    return 0;
  if (ImaOut == nullptr || ImaIn == nullptr)
    return 0;
  // Both dimensions must differ to be refused: hosts pass strips of the input's width.
  if (ImaOut->GetNbOfCols() != ImaIn->GetNbOfCols() && ImaOut->GetNbOfRows() != ImaIn->GetNbOfRows()) {
    Ipg_Inform(kMsgSizeMismatch);
    return 0;
  }
  ImaOut->Data->Init(0);
  switch (Tools) {
  case 500: ApplyFilter(DefineFilter); return 1;
  case 501:
    if (UserFilter == nullptr) {
      Ipg_Inform(kMsgNoUserFilter);
      return 0;
    }
    ApplyFilter(UserFilter);
    return 1;
  case 502: DericheSmooth(); return 1;
  case 503: DericheDerivative(); return 1;
  case 505: return RunChain505() ? 1 : 0;
  case 506: Nagao_5_x_5(); return 1;
  case 507: return LaplacianGaussian() ? 1 : 0;
  case 508: Chi2(); return 1;
  case 513: return LeeFilter() ? 1 : 0;
  case 514: return EdgeDetection() ? 1 : 0;
  case 515: return MeanFilter() ? 1 : 0;
  case 516: return FrostFilter() ? 1 : 0;
  case 517: return KuanFilter() ? 1 : 0;
  case 504: return RunChain504() ? 1 : 0;
  case 509: return SBF() ? 1 : 0;
  case 510: return N_B_Filter() ? 1 : 0;
  case 511: return SRAD() ? 1 : 0;
  case 512: return AWMF() ? 1 : 0;
  case 518: return SBF_DVW() ? 1 : 0;
  case 519: return WSBF() ? 1 : 0;
  case 520: return ADespeckling() ? 1 : 0;
  case 521: return Filtre_Impuls() ? 1 : 0;
  default: return 0;
  }
}

// The median, then the Nagao filter over the median's result; the chain reports
// the median's outcome, as callers of code 505 expect.
bool IPG_FILTER_PROCESSING::RunChain505()
{
  const bool median = MedianFilter();
  if (ImaOut == nullptr || Ipg_CancelRequested())
    return median;
  DCM_STRUCT medianResult(*ImaOut, true);
  DCM_STRUCT* input = ImaIn;
  ImaIn = &medianResult;
  Nagao_5_x_5();
  ImaIn = input;
  return median;
}

bool IPG_FILTER_PROCESSING::KernelUsable(const IPG_FILTER* kernel) const
{
  return kernel != nullptr && kernel->GetSizeX() > 0 && kernel->GetSizeY() > 0 && kernel->GetSizeX() % 2 == 1 &&
         kernel->GetSizeY() % 2 == 1;
}

bool IPG_FILTER_PROCESSING::ApplyFilter(IPG_FILTER* kernel)
{
  return ConvolveInto(kernel, true);
}

bool IPG_FILTER_PROCESSING::ApplyFilterPlain(IPG_FILTER* kernel)
{
  return ConvolveInto(kernel, false);
}

bool IPG_FILTER_PROCESSING::ConvolveInto(IPG_FILTER* kernel, bool fast)
{
  if (!KernelUsable(kernel))
    return false;
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  PrepareOutputBorder(ImaOut);

  Convolution job{ImaIn->Data->GetIDataAddress(),
                  ImaOut->Data->GetIDataAddress(),
                  static_cast<int>(ImaIn->GetNbOfCols()),
                  static_cast<int>(ImaIn->GetNbOfRows()),
                  ImaOut->Data->GetSize(),
                  Roi,
                  KernelCoefficients(*kernel),
                  kernel->GetSizeX() / 2,
                  kernel->GetSizeY() / 2,
                  kernel->GetFactor()};
  const bool sameGeometry = ImaOut->GetNbOfCols() == ImaIn->GetNbOfCols() &&
                            ImaOut->GetNbOfRows() == ImaIn->GetNbOfRows();
  if (fast && sameGeometry)
    job.RunFast();
  else
    job.RunPlain();

  RecomputeExtremes(ImaOut);
  return ApplyModeToOutImage();
}

bool IPG_FILTER_PROCESSING::DericheSmooth()
{
  const double alpha = 1.2;
  const double k = alpha / 4.0;
  std::vector<double> coef;
  for (int j = -1; j <= 1; ++j)
    for (int i = -1; i <= 1; ++i) {
      const double ai = std::abs(i) * alpha;
      const double aj = std::abs(j) * alpha;
      coef.push_back(10.0 * k * k * (1.0 + ai) * std::exp(-ai) * (1.0 + aj) * std::exp(-aj));
    }
  IPG_FILTER kernel(coef.data(), 3, 3);
  return ApplyFilter(&kernel);
}

bool IPG_FILTER_PROCESSING::DericheDerivative()
{
  if (!DericheSmooth()) {
    Ipg_Inform(kMsgSmoothingFailed);
    return false;
  }
  DCM_STRUCT* input = ImaIn;
  DCM_STRUCT* smoothed = ImaOut;
  DCM_STRUCT work(*smoothed, false);
  ImaIn = smoothed;
  ImaOut = &work;

  const double alpha = 3.2;
  const double c = -1.25 * alpha * alpha * alpha;
  std::vector<double> x, y;
  for (int j = -2; j <= 2; ++j)
    for (int i = -2; i <= 2; ++i) {
      const double ei = std::exp(-alpha * std::abs(i));
      const double ej = std::exp(-alpha * std::abs(j));
      x.push_back(c * i * ei * (1.0 + alpha * std::abs(j)) * ej);
      y.push_back(c * j * ej * (1.0 + alpha * std::abs(i)) * ei);
    }
  IPG_FILTER kernelX(x.data(), 5, 5);
  IPG_FILTER kernelY(y.data(), 5, 5);

  Mode = 304; // the gradients keep their signed values; callers read Mode 304 afterwards
  ApplyFilter(&kernelX);
  GradientX = std::make_shared<DCM_STRUCT>(work, true);
  ApplyFilter(&kernelY);
  GradientY = std::make_shared<DCM_STRUCT>(work, true);
  ImaIn = input;
  ImaOut = smoothed;

  const std::size_t n = smoothed->Data->GetSize();
  const int* gx = GradientX->Data->GetIDataAddress();
  const int* gy = GradientY->Data->GetIDataAddress();
  int* out = smoothed->Data->GetIDataAddress();
  for (std::size_t i = 0; i < n; ++i) {
    // 32-bit magnitude: where gx^2 + gy^2 wraps negative the smoothed value stays.
    const std::uint32_t wrapped = static_cast<std::uint32_t>(gx[i]) * static_cast<std::uint32_t>(gx[i]) +
                                  static_cast<std::uint32_t>(gy[i]) * static_cast<std::uint32_t>(gy[i]);
    const std::int32_t m = static_cast<std::int32_t>(wrapped);
    if (m >= 0)
      out[i] = static_cast<int>(std::sqrt(static_cast<double>(m)));
  }
  RecomputeExtremes(smoothed);

  if (GradientFlagDirection) {
    GradientDirectionMatrix = std::shared_ptr<double[]>(new double[n]);
    double* angle = GradientDirectionMatrix.get();
    for (std::size_t i = 0; i < n; ++i)
      angle[i] = (gx[i] == 0 && gy[i] == 0) ? 0.0 : std::atan2(static_cast<double>(gy[i]), static_cast<double>(gx[i]));
  }
  return true;
}

bool IPG_FILTER_PROCESSING::GaussianFilter(int size)
{
  if (size <= 0 || size % 2 == 0 || size > kMaxKernelSide)
    return false;
  if (ImaIn != nullptr && static_cast<unsigned>(size) > std::min(ImaIn->GetNbOfCols(), ImaIn->GetNbOfRows()))
    return false; // wider than the image: no pixel to filter, size^2 coefficients to build
  const double sigma = size / 6.0;
  const int h = size / 2;
  std::vector<double> coef;
  double sum = 0.0;
  try {
    coef.reserve(static_cast<std::size_t>(size) * size);
  } catch (const std::bad_alloc&) {
    return false;
  }
  for (int y = -h; y <= h; ++y)
    for (int x = -h; x <= h; ++x) {
      coef.push_back(-(x * x + y * y) / (2.0 * sigma * sigma));
      sum += coef.back();
    }
  if (sum != 0.0) // a 1x1 kernel is the single 0
    for (double& c : coef)
      c /= sum;
  auto kernel = RealKernel(coef, size);
  if (!kernel)
    return false;
  ApplyFilter(kernel->get());
  return true;
}

bool IPG_FILTER_PROCESSING::LaplacianGaussian()
{
  if (!(LaplacianGaussianSigma > 0.0)) {
    Ipg_Inform(kMsgSigma);
    return false;
  }
  if (LaplacianGaussianSize <= 0) {
    Ipg_Inform(kMsgLogSize);
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
  const float sigma2 = static_cast<float>(LaplacianGaussianSigma) * static_cast<float>(LaplacianGaussianSigma);
  const float scale = -1.0f / (2.0f * kPiF * sigma2 * sigma2);
  const int h = size / 2;
  std::vector<double> coef;
  try {
    coef.reserve(static_cast<std::size_t>(size) * size);
  } catch (const std::bad_alloc&) {
    return false;
  }
  for (int y = -h; y <= h; ++y)
    for (int x = -h; x <= h; ++x) {
      const float t = -static_cast<float>(x * x + y * y) / sigma2;
      coef.push_back((t + 2.0f) * scale * std::exp(t / 2.0f));
    }
  auto kernel = RealKernel(coef, size);
  if (!kernel || !ApplyFilter(kernel->get()))
    return false;

  const bool negativeLobe = LaplacianGaussianSigmaType == 0;
  const int cols = static_cast<int>(ImaOut->GetNbOfCols());
  const int rows = static_cast<int>(ImaOut->GetNbOfRows());
  int* out = ImaOut->Data->GetIDataAddress();
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      int& v = out[static_cast<std::size_t>(row) * cols + col];
      if (v > kIpgMaxGrey || !InsideRoi(Roi, col, row))
        continue;
      v = (negativeLobe ? v < 0 : v > 0) ? kIpgRoiValue : 0;
    }
  return true;
}

namespace {

// Exchange networks that leave the median of n values in one position: for
// n = 9 Paeth's 19 exchanges (A. W. Paeth, "Median finding on a 3x3 grid",
// Graphics Gems, 1990, as arranged by N. Devillard, "Fast median search",
// 1998); otherwise Batcher's odd-even merge sort (K. E. Batcher, "Sorting
// networks and their applications", AFIPS 1968) on the next power of two,
// padded with INT_MAX, keeping only the exchanges the median depends on.
struct MedianNetwork {
  int lanes = 0;
  int middle = 0;
  std::vector<std::array<int, 2>> exchanges; // the first position receives the smaller value
};

MedianNetwork MakeMedianNetwork(int n)
{
  MedianNetwork net;
  if (n == 9) {
    net.lanes = 9;
    net.middle = 4;
    net.exchanges = {{1, 2}, {4, 5}, {7, 8}, {0, 1}, {3, 4}, {6, 7}, {1, 2}, {4, 5}, {7, 8}, {0, 3},
                     {5, 8}, {4, 7}, {3, 6}, {1, 4}, {2, 5}, {4, 7}, {4, 2}, {6, 4}, {4, 2}};
    return net;
  }
  int size = 1;
  while (size < n)
    size <<= 1;
  std::vector<std::array<int, 2>> all;
  for (int p = 1; p < size; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < size; j += 2 * k)
        for (int i = 0; i < std::min(k, size - j - k); ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p))
            all.push_back({i + j, i + j + k});
  std::vector<bool> needed(static_cast<std::size_t>(size), false);
  needed[static_cast<std::size_t>(n / 2)] = true;
  for (auto it = all.rbegin(); it != all.rend(); ++it)
    if (needed[(*it)[0]] || needed[(*it)[1]]) {
      net.exchanges.push_back(*it);
      needed[(*it)[0]] = needed[(*it)[1]] = true;
    }
  std::reverse(net.exchanges.begin(), net.exchanges.end());
  net.lanes = size;
  net.middle = n / 2;
  return net;
}

// Medians of the windows of one row, a block of columns at a time: lane k holds
// window element k (row-major) of each pixel of the block, so that every
// exchange is a vectorisable min/max over the block.
template <typename Write>
void MedianRowByNetwork(const int* src, int cols, int row, int sx, int sy, const MedianNetwork& net,
                        std::vector<int>& lanes, Write write)
{
  constexpr int kBlock = 128;
  const int hx = sx / 2, hy = sy / 2, n = sx * sy;
  const int width = cols - 2 * hx;
  lanes.resize(static_cast<std::size_t>(net.lanes) * kBlock);
  for (int j0 = 0; j0 < width; j0 += kBlock) {
    const int w = std::min(kBlock, width - j0);
    for (int k = 0; k < net.lanes; ++k) {
      int* lane = lanes.data() + static_cast<std::size_t>(k) * kBlock;
      if (k < n) {
        const int* from = src + static_cast<std::ptrdiff_t>(row + k / sx - hy) * cols + j0 + k % sx;
        std::copy(from, from + w, lane);
      } else {
        std::fill(lane, lane + w, INT_MAX);
      }
    }
    for (const auto& e : net.exchanges) {
      int* x = lanes.data() + static_cast<std::size_t>(e[0]) * kBlock;
      int* y = lanes.data() + static_cast<std::size_t>(e[1]) * kBlock;
      for (int j = 0; j < w; ++j) {
        const int lo = std::min(x[j], y[j]);
        const int hi = std::max(x[j], y[j]);
        x[j] = lo;
        y[j] = hi;
      }
    }
    const int* medians = lanes.data() + static_cast<std::size_t>(net.middle) * kBlock;
    for (int j = 0; j < w; ++j)
      write(row, hx + j0 + j, medians[j]);
  }
}

// Windows up to this many values go through a network, larger ones through selection.
constexpr int kLargestNetworkWindow = 64;

} // namespace

bool IPG_FILTER_PROCESSING::MedianFilter()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (UserFilter == nullptr) {
    Ipg_Inform(kMsgNoUserFilter);
    return false;
  }
  const int sx = UserFilter->GetSizeX();
  const int sy = UserFilter->GetSizeY();
  if (sx < 1 || sy < 1 || sx % 2 == 0 || sy % 2 == 0) {
    Ipg_Inform(kMsgMedianParity);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const int hx = sx / 2;
  const int hy = sy / 2;
  const std::size_t n = static_cast<std::size_t>(sx) * sy;
  const int* src = ImaIn->Data->GetIDataAddress();
  int* dst = ImaOut->Data->GetIDataAddress();
  const std::size_t dstSize = ImaOut->Data->GetSize();
  std::vector<int> window(n);
  auto gather = [&](int row, int col) {
    std::size_t k = 0;
    for (int dy = -hy; dy <= hy; ++dy) {
      const int* line = src + static_cast<std::size_t>(row + dy) * cols + col - hx;
      std::copy(line, line + sx, window.begin() + static_cast<std::ptrdiff_t>(k));
      k += static_cast<std::size_t>(sx);
    }
  };
  auto write = [&](int row, int col, int value) {
    const std::size_t idx = static_cast<std::size_t>(row) * cols + col;
    if (idx < dstSize)
      dst[idx] = value;
  };

  std::optional<Ipg_Progress> progress;
  if (WaitbarVisible)
    progress.emplace(kLabelMedian, std::max(0, rows - 2 * hy));
  const bool byNetwork = n <= static_cast<std::size_t>(kLargestNetworkWindow);
  const MedianNetwork network = byNetwork ? MakeMedianNetwork(static_cast<int>(n)) : MedianNetwork{};
  std::vector<int> lanes;
  for (int row = hy; row < rows - hy; ++row) {
    if (byNetwork) {
      MedianRowByNetwork(src, cols, row, sx, sy, network, lanes, write);
    } else {
      for (int col = hx; col < cols - hx; ++col) {
        gather(row, col);
        // Selecting the middle element gives the sorted window's middle element.
        std::nth_element(window.begin(), window.begin() + static_cast<std::ptrdiff_t>(n / 2), window.end());
        write(row, col, window[n / 2]);
      }
    }
    if (progress)
      progress->Step("");
    if (Ipg_StopRequested())
      return false;
  }
  // The user kernel's array holds the last window, sorted: callers read it back.
  if (rows - hy > hy && cols - hx > hx && UserFilter->GetDataFilter() != nullptr) {
    gather(rows - hy - 1, cols - hx - 1);
    std::sort(window.begin(), window.end());
    std::copy(window.begin(), window.end(), UserFilter->GetDataFilter());
  }
  RecomputeExtremes(ImaOut);
  return true;
}

// The frame of the mean and edge filters. The input is copied into a work array
// and into the output; each pass visits rows 2 .. rows-3 and columns
// 2 .. cols-3 and writes rule's value one column to the left of the visited
// position, into the work array itself, so later windows see updated values.
// The 25 values are gathered in a sheared window, five runs of five that drift
// one column left per row: relative to the written position, row -2 covers
// columns 0..+4, row -1 -1..+3, row 0 -2..+2, row +1 -3..+1, row +2 -4..0.
// Positions are linear, so runs past a row's end continue on the next row.
// Existing results depend on this exact window and update order.
template <typename PixelRule>
bool IPG_FILTER_PROCESSING::RunShearedWindowFilter(const char* label, PixelRule rule)
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  std::vector<int> work(src, src + size);
  CopyPixels(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!PassesInRange(passes))
    return false;
  Ipg_Progress progress(label, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    for (int row = 2; row < rows - 2; ++row)
      rule(work.data(), static_cast<std::ptrdiff_t>(row) * cols, cols);
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested())
      return false;
  }
  CopyPixels(work.data(), size, ImaOut);
  RecomputeExtremes(ImaOut);
  return true;
}

namespace {

// Linear start of the run of row offset dr in the sheared window written at w.
std::ptrdiff_t RunStart(std::ptrdiff_t w, int dr, int cols)
{
  return w + static_cast<std::ptrdiff_t>(dr) * cols - dr - 2;
}

} // namespace

bool IPG_FILTER_PROCESSING::MeanFilter()
{
  // Running sums of the five runs: moving one column right drops each run's
  // first value and takes the next one; the value just written lies in the
  // row-0 run of the next window, so that run follows the update. Integer sums:
  // the same pixels as summing the 25 values afresh.
  auto rowPass = [](int* work, std::ptrdiff_t rowStart, int cols) {
    std::int64_t run[5] = {0, 0, 0, 0, 0};
    const std::ptrdiff_t firstW = rowStart + 1;
    for (int dr = -2; dr <= 2; ++dr)
      for (int k = 0; k < 5; ++k)
        run[dr + 2] += work[RunStart(firstW, dr, cols) + k];
    for (int col = 2; col < cols - 2; ++col) {
      const std::ptrdiff_t w = rowStart + col - 1;
      const std::int64_t sum = run[0] + run[1] + run[2] + run[3] + run[4];
      const int value = TruncateToInt(static_cast<double>(sum) * 0.04);
      run[2] += static_cast<std::int64_t>(value) - work[w];
      work[w] = value;
      for (int dr = -2; dr <= 2; ++dr) {
        const std::ptrdiff_t start = RunStart(w, dr, cols);
        run[dr + 2] += static_cast<std::int64_t>(work[start + 5]) - work[start];
      }
    }
  };
  return RunShearedWindowFilter(kLabelMean, rowPass);
}

bool IPG_FILTER_PROCESSING::EdgeDetection()
{
  auto rowPass = [](int* work, std::ptrdiff_t rowStart, int cols) {
    for (int col = 2; col < cols - 2; ++col) {
      const std::ptrdiff_t c = rowStart + col;
      const std::ptrdiff_t w = c - 1;
      const std::int64_t centre = work[c];
      std::int64_t sum = 0;
      for (int dr = -2; dr <= 2; ++dr) {
        const int* run = work + RunStart(w, dr, cols);
        for (int k = 0; k < 5; ++k)
          sum += std::llabs(centre - run[k]);
      }
      // 25 differences over 24, as existing edge maps were scaled.
      work[w] = TruncateToInt(static_cast<double>(sum) / 24.0);
    }
  };
  return RunShearedWindowFilter(kLabelEdge, rowPass);
}

namespace {

struct Offset {
  int dx;
  int dy;
};
using Region = std::vector<Offset>;

// The nine sub-regions of the 5x5 window of Nagao and Matsuyama (1979): the
// 3x3 square around the centre, four 7-pixel pentagons pointing N, E, S, W
// (the 3x2 block on that side plus the centre) and four 7-pixel hexagons
// pointing to the corners (the 2x2 corner block, its two inner neighbours and
// the centre). Each pentagon and hexagon is the previous one turned by 90 degrees.
std::vector<Region> NagaoRegions()
{
  std::vector<Region> regions;
  Region square;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      square.push_back({dx, dy});
  regions.push_back(square);
  Region pentagon{{-1, -2}, {0, -2}, {1, -2}, {-1, -1}, {0, -1}, {1, -1}, {0, 0}};
  Region hexagon{{-2, -2}, {-1, -2}, {-2, -1}, {-1, -1}, {0, -1}, {-1, 0}, {0, 0}};
  for (int turn = 0; turn < 4; ++turn) {
    regions.push_back(pentagon);
    regions.push_back(hexagon);
    for (Region* r : {&pentagon, &hexagon})
      for (Offset& o : *r)
        o = {-o.dy, o.dx};
  }
  return regions;
}

} // namespace

// Nagao-Matsuyama edge-preserving smoothing (M. Nagao and T. Matsuyama, "Edge
// preserving smoothing", Computer Graphics and Image Processing 9, 1979,
// pp. 394-407). Every pixel at least two pixels from the edge takes the mean,
// truncated toward zero, of the sub-region (see NagaoRegions) whose grey levels
// have the least variance; ties go to the first region in the order square, N,
// NW, E, NE, S, SE, W, SW. A region holding a marked pixel (above 16777216)
// takes no part; when all of them do, or the pixel is marked or outside the
// ROI, the input value is copied. The two-pixel frame is prepared by the image
// border type. Ends with ApplyModeToOutImage().
bool IPG_FILTER_PROCESSING::Nagao_5_x_5()
{
  if (ImaOut == nullptr) {
    Ipg_Inform(kIpgMsgNoOutput);
    return false;
  }
  if (ImaIn == nullptr)
    return false;
  static const std::vector<Region> regions = NagaoRegions();
  PrepareOutputBorder(ImaOut);
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const int* src = ImaIn->Data->GetIDataAddress();
  int* dst = ImaOut->Data->GetIDataAddress();
  const std::size_t dstSize = ImaOut->Data->GetSize();

  for (int row = 2; row < rows - 2; ++row)
    for (int col = 2; col < cols - 2; ++col) {
      const std::size_t idx = static_cast<std::size_t>(row) * cols + col;
      int value = src[idx];
      if (InsideRoi(Roi, col, row) && !IsMark(value)) {
        double bestVariance = 0.0;
        bool found = false;
        for (const Region& region : regions) {
          double sum = 0.0, sumSquares = 0.0;
          bool marked = false;
          for (const Offset& o : region) {
            const int p = src[idx + static_cast<std::ptrdiff_t>(o.dy) * cols + o.dx];
            marked = marked || IsMark(p);
            sum += p;
            sumSquares += static_cast<double>(p) * p;
          }
          if (marked)
            continue;
          const double n = static_cast<double>(region.size());
          const double variance = sumSquares / n - (sum / n) * (sum / n);
          if (!found || variance < bestVariance) {
            found = true;
            bestVariance = variance;
            value = TruncateToInt(sum / n);
          }
        }
      }
      if (idx < dstSize)
        dst[idx] = value;
    }
  RecomputeExtremes(ImaOut);
  return ApplyModeToOutImage();
}

namespace {

constexpr int kChi2Bins = 32;
constexpr double kChi2ToGrey = 8388608.0; // distances lie in [0, 2]: 2 maps to 16777216

// Grey levels in kChi2Bins equal bins over [lo, hi].
struct GreyBins {
  std::int64_t lo;
  std::int64_t span;
  int Of(int v) const { return static_cast<int>((v - lo) * kChi2Bins / span); }
};

void FillPlot(MTH_XY_PLOT& plot, const std::vector<double>& counts, double total)
{
  plot.ClearData();
  for (int b = 0; b < kChi2Bins; ++b)
    plot.AddPoint(static_cast<float>(b), static_cast<float>(total > 0 ? counts[b] / total : 0.0));
}

} // namespace

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
  if (ImaIn == nullptr || !KernelUsable(DefineFilter))
    return false;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();

  std::int64_t lo = INT64_MAX, hi = INT64_MIN;
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      const int v = src[static_cast<std::size_t>(row) * cols + col];
      if (!IsMark(v) && InsideRoi(Roi, col, row)) {
        lo = std::min<std::int64_t>(lo, v);
        hi = std::max<std::int64_t>(hi, v);
      }
    }
  if (lo > hi)
    lo = hi = 0;
  const GreyBins bins{lo, hi - lo + 1};

  std::vector<double> global(kChi2Bins, 0.0);
  double globalTotal = 0.0;
  for (int row = 0; row < rows; ++row)
    for (int col = 0; col < cols; ++col) {
      const int v = src[static_cast<std::size_t>(row) * cols + col];
      if (!IsMark(v) && InsideRoi(Roi, col, row)) {
        global[bins.Of(v)] += 1.0;
        globalTotal += 1.0;
      }
    }
  MTH_XY_PLOT imagePlot, localPlot;
  FillPlot(imagePlot, global, globalTotal);

  std::vector<Offset> support;
  const int hx = DefineFilter->GetSizeX() / 2, hy = DefineFilter->GetSizeY() / 2;
  const std::vector<double> coef = KernelCoefficients(*DefineFilter);
  for (int dy = -hy, k = 0; dy <= hy; ++dy)
    for (int dx = -hx; dx <= hx; ++dx, ++k)
      if (coef[k] != 0.0)
        support.push_back({dx, dy});

  Chi2InFloat = std::make_unique<float[]>(size);
  PrepareOutputBorder(ImaOut);
  int* dst = ImaOut->Data->GetIDataAddress();
  const std::size_t dstSize = ImaOut->Data->GetSize();
  std::vector<double> local(kChi2Bins);
  for (int row = hy; row < rows - hy; ++row)
    for (int col = hx; col < cols - hx; ++col) {
      const std::size_t idx = static_cast<std::size_t>(row) * cols + col;
      int value = src[idx];
      if (InsideRoi(Roi, col, row) && !IsMark(value)) {
        std::fill(local.begin(), local.end(), 0.0);
        double total = 0.0;
        for (const Offset& o : support) {
          const int p = src[idx + static_cast<std::ptrdiff_t>(o.dy) * cols + o.dx];
          if (!IsMark(p) && p >= lo && p <= hi) {
            local[bins.Of(p)] += 1.0;
            total += 1.0;
          }
        }
        FillPlot(localPlot, local, total);
        const double distance = localPlot.GetChi2(&imagePlot);
        Chi2InFloat[idx] = static_cast<float>(distance);
        value = TruncateToInt(distance * kChi2ToGrey);
      }
      if (idx < dstSize)
        dst[idx] = value;
    }
  RecomputeExtremes(ImaOut);
  return ApplyModeToOutImage();
}

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
constexpr double kNinth = 1.0 / 9.0;
constexpr double kFrostDefaultDamping = 1.0;

// Mean and population variance of the 3x3 neighbourhood around work[idx].
template <typename T>
void LocalMoments3x3(const T* work, std::size_t idx, int cols, double& mean, double& variance)
{
  double values[9];
  int k = 0;
  for (int dy = -1; dy <= 1; ++dy) {
    const T* line = work + idx + static_cast<std::ptrdiff_t>(dy) * cols;
    for (int dx = -1; dx <= 1; ++dx)
      values[k++] = static_cast<double>(line[dx]);
  }
  double sum = 0.0;
  for (double v : values)
    sum += v;
  mean = sum * kNinth;
  double squares = 0.0;
  for (double v : values)
    squares += (v - mean) * (v - mean);
  variance = kNinth * squares;
}

// Lee's weight of the centre, clipped to [0, 1]; a flat neighbourhood keeps its mean.
double LeeWeight(double localVariance, double noiseVariance)
{
  if (localVariance <= 0.0)
    return 0.0;
  return std::clamp((localVariance - noiseVariance) / localVariance, 0.0, 1.0);
}

void WritePixel(DCM_STRUCT* out, std::size_t idx, int value)
{
  if (idx < out->Data->GetSize()) // an output of another shape is written as far as it goes
    out->Data->GetIDataAddress()[idx] = value;
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
  // The noise variance: that of the whole input, by the basic statistics.
  IPG_STATISTIC1 statistics(ImaIn);
  statistics.SetTools(6);
  statistics.Apply();
  const double noiseVariance = statistics.GetVariance();

  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  std::vector<double> work(src, src + size);
  CopyPixels(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!PassesInRange(passes))
    return false;
  Ipg_Progress progress(kLabelLee, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    // In place: each neighbourhood sees the pixels already updated in this pass.
    for (int row = 1; row < rows - 1; ++row)
      for (int col = 1; col < cols - 1; ++col) {
        const std::size_t idx = static_cast<std::size_t>(row) * cols + col;
        double mean = 0.0, variance = 0.0;
        LocalMoments3x3(work.data(), idx, cols, mean, variance);
        const double w = LeeWeight(variance, noiseVariance);
        work[idx] = (1.0 - w) * mean + w * work[idx];
      }
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested())
      return false;
  }
  for (std::size_t i = 0; i < size; ++i)
    WritePixel(ImaOut, i, TruncateToInt(work[i]));
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
  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  const std::vector<int> work(src, src + size);
  CopyPixels(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!PassesInRange(passes))
    return false;
  Ipg_Progress progress(kLabelKuan, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    // The work array is never updated, so every pass gives the same pixels;
    // hosts count on the pass count only for the progress they show.
    for (int row = 1; row < rows - 1; ++row)
      for (int col = 1; col < cols - 1; ++col) {
        const std::size_t idx = static_cast<std::size_t>(row) * cols + col;
        double mean = 0.0, variance = 0.0;
        LocalMoments3x3(work.data(), idx, cols, mean, variance);
        // Unclipped, as existing results were computed; a flat neighbourhood keeps its mean.
        const double w = variance > 0.0 ? 0.5 * (1.0 - mean / variance) : 0.0;
        WritePixel(ImaOut, idx, TruncateToInt((1.0 - w) * mean + w * work[idx]));
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
  // Distance of each window cell (run j, position i) to the window's centre cell.
  double distance[25];
  for (int j = 0; j < 5; ++j)
    for (int i = 0; i < 5; ++i)
      distance[j * 5 + i] = std::sqrt(static_cast<double>((i - 2) * (i - 2) + (j - 2) * (j - 2)));

  const int cols = static_cast<int>(ImaIn->GetNbOfCols());
  const int rows = static_cast<int>(ImaIn->GetNbOfRows());
  const std::size_t size = ImaIn->Data->GetSize();
  const int* src = ImaIn->Data->GetIDataAddress();
  std::vector<int> work(src, src + size);
  CopyPixels(src, size, ImaOut);

  const int passes = std::max(0, NbIter);
  if (!PassesInRange(passes))
    return false;
  Ipg_Progress progress(kLabelFrost, passes);
  for (int pass = 1; pass <= passes; ++pass) {
    for (int row = 2; row < rows - 2; ++row)
      for (int col = 2; col < cols - 2; ++col) {
        // The mean filter's sheared window, written one column left of the visit.
        const std::ptrdiff_t w = static_cast<std::ptrdiff_t>(row) * cols + col - 1;
        double values[25];
        double sum = 0.0;
        for (int dr = -2; dr <= 2; ++dr) {
          const int* run = work.data() + RunStart(w, dr, cols);
          for (int k = 0; k < 5; ++k) {
            values[(dr + 2) * 5 + k] = run[k];
            sum += run[k];
          }
        }
        const double mean = sum * 0.04;
        double squares = 0.0;
        for (double v : values)
          squares += (v - mean) * (v - mean);
        const double variance = squares * 0.04;
        // Squared coefficient of variation; a window of mean 0 is averaged evenly.
        const double spread = mean != 0.0 ? variance / (mean * mean) : 0.0;
        double weighted = 0.0, weights = 0.0;
        for (int k = 0; k < 25; ++k) {
          const double weight = std::exp(-damping * spread * distance[k]);
          weighted += weight * values[k];
          weights += weight;
        }
        // The centre cell weighs exp(0) = 1, so weights is never 0.
        const int value = TruncateToInt(weighted / weights);
        work[w] = value;
        WritePixel(ImaOut, static_cast<std::size_t>(w), value);
      }
    progress.Step(std::to_string(pass));
    if (Ipg_StopRequested())
      return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Ultrasound despeckling: thin wrappers over ipg/filtering/ipg_speckle.h.

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

bool IPG_FILTER_PROCESSING::RunChain504()
{
  if (!AdaptativeDenoise())
    return false;
  // The median and the Nagao filter continue from the denoised image.
  DCM_STRUCT denoised(*ImaOut, true);
  DCM_STRUCT* input = ImaIn;
  ImaIn = &denoised;
  const bool median = RunChain505();
  ImaIn = input;
  return median;
}

bool IPG_FILTER_PROCESSING::SBF()
{
  const int side = OrDefault(AdaptatifFirst, 3);
  if (!WindowSideValid(side, "SBF"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelSbf, "SBF", side},
                           [half = side / 2](const double* in, double* out, int cols, int rows) {
                             Ipg_SbfPass(in, out, cols, rows, half);
                           });
}

bool IPG_FILTER_PROCESSING::WSBF()
{
  const int side = OrDefault(AdaptatifFirst, 3);
  if (!WindowSideValid(side, "WSBF"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelWsbf, "WSBF", side},
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
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelSbfDvw, "SBF_DVW", side},
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
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelSrad, "SRAD", 1},
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
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelAwmf, "AWMF", side},
                           [half = side / 2, centreWeight, scale](const double* in, double* out, int cols, int rows) {
                             const double b =
                                 scale > 0.0 ? scale : Ipg_AwmfAutoScale(in, cols, rows, half, centreWeight);
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
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelNeighbourhood, "N_B_Filter", 1},
                           [area, k](const double* in, double* out, int cols, int rows) {
                             const double cu2 = Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf);
                             Ipg_AdaptiveNeighbourhoodPass(in, out, cols, rows, area, k, cu2);
                           });
}

bool IPG_FILTER_PROCESSING::ADespeckling()
{
  const int side = OrDefault(AdaptatifFirst, 5);
  const double dt = OrDefault(AdaptatifReal, 0.2);
  if (!WindowSideValid(side, "ADespeckling") || !ParameterValid(dt > 0.0 && dt <= 1.0, "ADespeckling"))
    return false;
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelDespeckling, "ADespeckling", side},
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
  return Ipg_RunSpeckleJob({ImaIn, ImaOut, Roi, NbIter, kLabelImpulse, "Filtre_Impuls", side},
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
  DCM_STRUCT* const input = ImaIn;
  const int half = side / 2;
  const bool done = Ipg_RunSpeckleJob(
      {ImaIn, ImaOut, Roi, NbIter, kLabelAdaptive, "AdaptativeDenoise", side},
      [&](const double* in, double* out, int cols, int rows) {
        // The helpers read ImaIn: point it at this pass's image.
        DCM_STRUCT current(*input, false);
        int* pixels = current.Data->GetIDataAddress();
        for (std::size_t i = 0; i < current.Data->GetSize(); ++i)
          pixels[i] = static_cast<int>(std::lround(in[i]));
        ImaIn = &current;
        const double cu = std::sqrt(Ipg_SpeckleCu2(in, cols, rows, kSpeckleHalf));
        TLinkedList<MTH_2D_INTEGER*> similar;
        auto release = [&similar] {
          for (int i = 0; i < similar.Count(); ++i)
            delete similar.Get(i);
          similar.Clear();
        };
        for (int row = 0; row < rows; ++row)
          for (int col = 0; col < cols; ++col) {
            const std::size_t at = static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) +
                                   static_cast<std::size_t>(col);
            out[at] = in[at];
            if (!AddPixel(col, row, 0, &similar))
              continue; // a mark or outside the ROI: kept
            const double level = std::fabs(static_cast<double>(pixels[at]));
            const int tolerance = TruncateToInt(std::lround(range * cu * level));
            for (int y = row - half; y <= row + half; ++y)
              for (int x = col - half; x <= col + half; ++x)
                if ((x != col || y != row) && x >= 0 && y >= 0 && x < cols && y < rows)
                  AddPixel(x, y, tolerance, &similar);
            if (similar.Count() - 1 >= fewest) {
              out[at] = GetNeighboorsMeanGreyLevel(&similar);
            } else {
              // Too few look alike: an impulse, replaced by its neighbours' mean.
              double sum = 0.0;
              int count = 0;
              for (int y = std::max(0, row - 1); y <= std::min(rows - 1, row + 1); ++y)
                for (int x = std::max(0, col - 1); x <= std::min(cols - 1, col + 1); ++x)
                  if (x != col || y != row) {
                    sum += in[static_cast<std::size_t>(y) * static_cast<std::size_t>(cols) +
                              static_cast<std::size_t>(x)];
                    ++count;
                  }
              if (count > 0)
                out[at] = sum / count;
            }
            release();
          }
        ImaIn = input;
      });
  ImaIn = input;
  return done;
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
  if (IsMark(ImaIn->Data->GetValue(static_cast<unsigned>(col), static_cast<unsigned>(row))))
    return false;
  return !useRoi || InsideRoi(Roi, col, row);
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
