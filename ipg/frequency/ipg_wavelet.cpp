// SPDX-License-Identifier: Apache-2.0
#include "ipg/frequency/ipg_wavelet.h"

#include "dcm/dcm_struct.h"
#include "ipg/internal/ipg_discrete_wavelet.h"
#include "ipg/internal/ipg_gradient_wavelet.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/internal/ipg_messages.h"
#include "ipg/internal/ipg_summed_area.h"
#include "ipg/internal/ipg_wavelet_denoise.h"
#include "ipg/internal/ipg_wavelet_images.h"
#include "ipg/ui/ipg_message.h"
#include "mth/mth_matrix.h"
#include "mth/mth_regression.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>

namespace {

const double kPi = std::acos(-1.0);
constexpr float kSmallestMaximum = 0.000001f;
constexpr int kMaxRegressionScales = 16;
constexpr int kMaxScales = (INT_MAX - 2) / 2; // the slot array holds 2 S + 2 entries
// The modulus and angle images of every scale stay in memory: at most 2^28
// floats (1 GiB) for them all.
constexpr double kMaxSlotFloats = 268435456.0;

using Image = std::unique_ptr<float[]>;

Image NewImage(std::size_t n, float value = 0.0f)
{
  Image image(new float[n]);
  std::fill(image.get(), image.get() + n, value);
  return image;
}

} // namespace

IPG_WAVELET::IPG_WAVELET(DCM_STRUCT* in) : IPG_WAVELET(in, nullptr) {}

IPG_WAVELET::IPG_WAVELET(DCM_STRUCT* in, DCM_STRUCT* roi)
{
  SetImaIn(in);
  SetRoi(roi);
  SetDefaultParameters();
}

IPG_WAVELET::IPG_WAVELET(const IPG_WAVELET& source) : IPG_TWO_INPUTS_ONE_OUTPUT()
{
  NbConvolution = source.NbConvolution;
  Threshold = source.Threshold;
  NameWavelet = source.NameWavelet;
  NbScale = source.NbScale;
  Scale = source.Scale;
  // The source's own lists die with it: only a caller's list is shared.
  EnsWt = source.EnsWt == &source.OwnWt ? nullptr : source.EnsWt;
  EnsWf = source.EnsWf == &source.OwnWf ? nullptr : source.EnsWf;
  ThrFactor = source.ThrFactor;
  WindowSize = source.WindowSize;
  Adaptative = source.Adaptative;
  LogTransform = source.LogTransform;
}

IPG_WAVELET::~IPG_WAVELET() = default;

void IPG_WAVELET::SetDefaultParameters()
{
  NbConvolution = 8;
  Threshold = -1.0f;
  NameWavelet = 0;
  NbScale = 2;
  Scale = 0;
  EnsWf = nullptr;
  ThrFactor = 2.0;
  WindowSize = 5;
  Adaptative = false;
  LogTransform = false;
  Tools = 1800;
}

const IPG_CLASS_INFO<IPG_WAVELET>& IPG_WAVELET::ClassInfo()
{
  using C = IPG_WAVELET;
  static constexpr IPG_OPERATION_INFO<C> operations[] = {
      {1800, "ComputeOfWaveletTransformByBSpline", [](C& op) -> int { return op.ComputeOfWaveletTransformByBSpline(); }},
      {1801, "ComputeOfHolderExponentByWaveletTransform", [](C& op) -> int { return op.ComputeOfHolderExponentByWaveletTransform(); }},
      {1802, "ComputeHolderExponentAllPixel", [](C& op) -> int { return op.ComputeHolderExponentAllPixel(); }},
      {1803, "ComputeDiscreteWaveletTransformAllScale", [](C& op) -> int { return op.ComputeDiscreteWaveletTransformAllScale(); }},
      {1804, "ComputeDiscretWaveletFrame", [](C& op) -> int { return op.ComputeDiscretWaveletFrame(); }},
      {1805, "ApplyDenoisingImageByWavelet", [](C& op) -> int { return op.ApplyDenoisingImageByWavelet(); }},
  };
  static constexpr IPG_PARAMETER_INFO<C> parameters[] = {
      Ipg_Parameter<C, &C::SetNbConvolution>("NbConvolution", "8", "number of scales S"),
      Ipg_Parameter<C, &C::SetThreshold>("Threshold", "-1", "modulus threshold of scale 0 for code 1801 (-1: none)"),
      Ipg_Parameter<C, &C::SetNameWavelet>("NameWavelet", "0", "discrete wavelet: 0 Haar, 1-3 Daubechies 4/6/8, 4 CDF 9/7"),
      Ipg_Parameter<C, &C::SetNbScale>("NbScale", "2", "scales of the discrete transforms and the denoising"),
      Ipg_Parameter<C, &C::SetScale>("Scale", "0", "scale of the frame bands returned (0 the finest)"),
      Ipg_Parameter<C, &C::SetThrFactor>("ThrFactor", "2", "denoising threshold x ThrFactor/2"),
      Ipg_Parameter<C, &C::SetWindowSize>("WindowSize", "5", "odd side of the local-variance window of BayesShrink"),
      Ipg_Parameter<C, &C::SetAdaptative>("Adaptative", "0", "1805 by BayesShrink with local variance instead of the universal threshold"),
      Ipg_Parameter<C, &C::SetLogTransform>("LogTransform", "0", "1805 on ln(1 + v), for multiplicative speckle"),
  };
  static const IPG_CLASS_INFO<C> info{"IPG_WAVELET", operations, parameters};
  return info;
}

int IPG_WAVELET::Apply()
{
  if (!Ipg_RoiFitsImage(ImaIn, Roi, "IPG_WAVELET"))
    return 0;
  return Ipg_Dispatch(ClassInfo(), *this, Tools);
}

// ---------------------------------------------------------------- helpers

int IPG_WAVELET::mod(int a, int n) { return Ipg_PeriodicIndex(a, n); }

int IPG_WAVELET::WaveletDerivation(float** out, float* in, int cols, int rows, int type, int direction)
{
  if (out == nullptr)
    return -1;
  if (in == nullptr || cols <= 0 || rows <= 0) {
    *out = nullptr;
    return -1;
  }
  *out = new float[static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows)]();
  if (Ipg_WaveletDifference(*out, in, cols, rows, type, direction))
    return 0;
  Ipg_Inform(kIpgMsgBadDerivation);
  return -1;
}

void IPG_WAVELET::MatXConst(float** image, int cols, int rows, float factor)
{
  if (image == nullptr || *image == nullptr || cols <= 0 || rows <= 0)
    return;
  const std::size_t n = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  for (std::size_t k = 0; k < n; ++k)
    (*image)[k] *= factor;
}

void IPG_WAVELET::ConvoRapideMasqBin(float** out, float* in, int cols, int rows)
{
  if (out == nullptr)
    return;
  if (in == nullptr || cols <= 0 || rows <= 0) {
    *out = nullptr;
    return;
  }
  *out = new float[static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows)];
  Ipg_BinomialSmoothing(*out, in, cols, rows);
}

void IPG_WAVELET::SeekDirection1(int* di, int* dj, float angle)
{
  double a = angle;
  if (a > kPi)
    a -= 2 * kPi;
  if (a < -kPi)
    a += 2 * kPi;
  const double s = kPi / 8;
  int i = -1, j = 0; // a < -7 pi/8 or a >= 7 pi/8
  if (a >= -7 * s && a < -5 * s) i = -1, j = -1;
  else if (a >= -5 * s && a < -3 * s) i = 0, j = -1;
  else if (a >= -3 * s && a < -s) i = 1, j = -1;
  else if (a >= -s && a < s) i = 1, j = 0;
  else if (a >= s && a < 3 * s) i = 1, j = 1;
  else if (a >= 3 * s && a < 5 * s) i = 0, j = 1;
  else if (a >= 5 * s && a < 7 * s) i = -1, j = 1;
  if (di != nullptr)
    *di = i;
  if (dj != nullptr)
    *dj = j;
}

int IPG_WAVELET::TestIfMaxLocal(float* m, int i, int j, int di, int dj, int cols, int rows)
{
  if (m == nullptr || cols <= 0 || rows <= 0 || i < 0 || j < 0)
    return 0;
  const std::size_t n = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  const std::size_t centre = static_cast<std::size_t>(i) * cols + j;
  if (centre >= n) // square-image addressing of the caller: nothing to test beyond the image
    return 0;
  const float C = m[centre];
  const float P = m[static_cast<std::size_t>(mod(i + di, rows)) * cols + mod(j + dj, cols)];
  const float Q = m[static_cast<std::size_t>(mod(i - di, rows)) * cols + mod(j - dj, cols)];
  if (P + 0.1f < C && Q + 0.1f < C)
    return 1;
  if (P < C && Q == C)
    return C - P > 1.0f ? 1 : 0;
  if (P == C && Q < C)
    return C - Q > 1.0f ? 1 : 0;
  return 0;
}

void IPG_WAVELET::SeekPointToChain(float* m, float* a, int cols, int rows, int c, int r, float ref, int* dc, int* dr,
                                   float* bestDiff)
{
  int stepC = 2, stepR = 2; // none found
  float best = 10.0f;
  auto at = [&](int rr, int cc) { return static_cast<std::size_t>(mod(rr, rows)) * cols + mod(cc, cols); };
  const std::size_t here = at(r, c);
  if (std::fabs(m[here]) >= kSmallestMaximum && std::fabs(a[here] - ref) < kPi / 4) {
    stepC = stepR = 0;
    best = std::fabs(a[here] - ref);
  } else {
    int u = 0, v = 0;
    SeekDirection1(&u, &v, ref);
    for (int i = -1; i <= 1; ++i)
      for (int j = -1; j <= 1; ++j) {
        if ((i == u && j == v) || (i == -u && j == -v))
          continue;
        const std::size_t k = at(r + j, c + i);
        if (std::fabs(m[k]) >= kSmallestMaximum && std::fabs(a[k] - ref) < best) {
          stepC = i;
          stepR = j;
          best = std::fabs(a[k] - ref);
        }
      }
  }
  if (dc != nullptr)
    *dc = stepC;
  if (dr != nullptr)
    *dr = stepR;
  if (bestDiff != nullptr)
    *bestDiff = best;
}

int IPG_WAVELET::ComputeChain(float** slots, int cols, int rows, float** chain, int S, int /*unused*/, float** alpha)
{
  const int L = S < kMaxRegressionScales ? S - 2 : kMaxRegressionScales - 2;
  double x[kMaxRegressionScales] = {};
  double Sx = 0, Sxx = 0;
  for (int j = 2; j <= L + 1; ++j) {
    x[j] = std::log(std::sqrt(static_cast<double>(j)) / std::sqrt(2.0));
    Sx += x[j];
    Sxx += x[j] * x[j];
  }
  const double D = L * Sxx - Sx * Sx;
  if (D == 0) {
    Ipg_Inform(kIpgMsgZeroDeterminant);
    return -1;
  }
  if (slots == nullptr || chain == nullptr || alpha == nullptr || cols <= 0 || rows <= 0 || S > kMaxScales)
    return -1;
  for (int k = 0; k < 2 * S; ++k)
    if (slots[k] == nullptr)
      return -1;
  const std::size_t n = static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  Image chainImage = NewImage(n, 0.0f);
  Image alphaImage = NewImage(n, kNoExponent);
  auto maxima = [&](int s) { return slots[2 * s]; };
  auto angles = [&](int s) { return slots[2 * s + 1]; };
  auto at = [&](int r, int c) { return static_cast<std::size_t>(r) * cols + c; };
  int chains = 0;
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      const float coarsest = maxima(S - 1)[at(r, c)];
      if (std::fabs(coarsest) < kSmallestMaximum)
        continue;
      double y[kMaxRegressionScales] = {};
      if (S - 1 < kMaxRegressionScales)
        y[S - 1] = std::log(coarsest);
      int pc = c, pr = r;
      bool broken = false;
      for (int k = S - 2; k >= 0; --k) {
        const float ref = angles(k + 1)[at(pr, pc)];
        const float m = maxima(k)[at(pr, pc)];
        if (std::fabs(m) < kSmallestMaximum || std::fabs(angles(k)[at(pr, pc)] - ref) > kPi / 4) {
          int dc = 2, dr = 2;
          float best = 10.0f;
          SeekPointToChain(maxima(k), angles(k), cols, rows, pc, pr, ref, &dc, &dr, &best);
          if (best > kPi / 4 || (dc == 2 && dr == 2)) {
            broken = true;
            break;
          }
          pc = mod(pc + dc, cols);
          pr = mod(pr + dr, rows);
        }
        if (k < kMaxRegressionScales)
          y[k] = std::log(maxima(k)[at(pr, pc)]);
      }
      if (broken)
        continue;
      ++chains;
      chainImage[at(pr, pc)] = maxima(0)[at(pr, pc)];
      double Sy = 0, Sxy = 0;
      for (int j = 2; j <= L + 1; ++j) {
        Sy += y[j];
        Sxy += y[j] * x[j];
      }
      alphaImage[at(pr, pc)] = static_cast<float>((L * Sxy - Sx * Sy) / D);
    }
  *chain = chainImage.release();
  *alpha = alphaImage.release();
  Result = chains;
  return 0;
}

// ---------------------------------------------------------------- operations

bool IPG_WAVELET::ReadInput(std::vector<float>& image)
{
  if (ImaIn == nullptr) {
    Ipg_Inform(kIpgMsgNoInputImage);
    return false;
  }
  Cols = static_cast<int>(ImaIn->GetNbOfCols());
  Rows = static_cast<int>(ImaIn->GetNbOfRows());
  if (Cols == 0 || Rows == 0)
    return false;
  // After as many binomial passes as the smaller side, the smoothing spans the
  // whole (periodic) image: more scales add nothing but memory. Refused.
  const double floats = 2.0 * std::max(NbConvolution, 1) * static_cast<double>(Cols) * Rows;
  if (!Ipg_ParameterInRange(NbConvolution >= 0 && NbConvolution <= std::min(Cols, Rows) && floats <= kMaxSlotFloats,
                            "NbConvolution", "IPG_WAVELET"))
    return false;
  image.assign(static_cast<std::size_t>(Cols) * Rows, 0.0f);
  for (int r = 0; r < Rows; ++r)
    for (int c = 0; c < Cols; ++c)
      image[static_cast<std::size_t>(r) * Cols + c] = static_cast<float>(ImaIn->Data->GetValue(c, r));
  return true;
}

float IPG_WAVELET::ScaleThreshold(int S) const
{
  const double n = static_cast<double>(Cols) * Rows;
  return static_cast<float>(5 * std::sqrt(std::log(n)) * (S + 1) / (2 * S + 1));
}

void IPG_WAVELET::ClearResults()
{
  Slots.clear();
  SlotImages.clear();
}

// Shared frame of codes 1800 and 1801: scale s smooths scale s - 1 by the
// binomial mask, differentiates forward along rows and columns and, from scale
// 1 on, normalises by sqrt(s + 1) / sqrt(2).
int IPG_WAVELET::Analyse(Maxima maxima)
{
  std::vector<float> input;
  if (!ReadInput(input))
    return 0;
  const int S = NbConvolution;
  const std::size_t n = input.size();
  ClearResults();
  Slots.assign(static_cast<std::size_t>(2 * S + 2), nullptr);
  SlotImages.resize(Slots.size());

  Image smoothed(new float[n]);
  std::copy(input.begin(), input.end(), smoothed.get());
  for (int s = 0; s < std::max(S, 1); ++s) {
    if (Ipg_StopRequested()) {
      ClearResults();
      return 0;
    }
    if (s > 0) {
      float* next = nullptr;
      ConvoRapideMasqBin(&next, smoothed.get(), Cols, Rows);
      smoothed.reset(next);
    }
    float *rawDx = nullptr, *rawDy = nullptr;
    WaveletDerivation(&rawDx, smoothed.get(), Cols, Rows, 0, 0);
    Image dx(rawDx);
    WaveletDerivation(&rawDy, smoothed.get(), Cols, Rows, 0, 1);
    Image dy(rawDy);
    if (s > 0) {
      const float k = static_cast<float>(std::sqrt(s + 1.0) / std::sqrt(2.0));
      MatXConst(&rawDx, Cols, Rows, k);
      MatXConst(&rawDy, Cols, Rows, k);
    }
    // Scale 0 of the chain analysis keeps the caller's threshold for its maxima;
    // every other use takes the noise threshold of the image size.
    const bool callerThreshold = maxima == Maxima::ThresholdOnScaleZero && s == 0;
    if (!callerThreshold)
      Threshold = ScaleThreshold(S);
    Image modulus = NewImage(n), angle = NewImage(n);
    for (std::size_t k = 0; k < n; ++k) {
      // An angle of 0 as soon as one component is 0: kept, the chains rely on it.
      angle[k] = dx[k] != 0 && dy[k] != 0 ? static_cast<float>(std::atan2(dx[k], dy[k])) : 0.0f;
      modulus[k] = static_cast<float>(std::sqrt(static_cast<double>(dx[k]) * dx[k] + static_cast<double>(dy[k]) * dy[k]));
      if (maxima == Maxima::None && Threshold != -1.0f && modulus[k] < Threshold)
        modulus[k] = angle[k] = 0.0f;
    }
    if (maxima == Maxima::ThresholdOnScaleZero) {
      Image peaks = NewImage(n);
      // Square-image addressing (element i * cols + j, i below cols): kept, the
      // chain analysis is meant for square images.
      for (int i = 0; i < Cols; ++i)
        for (int j = 0; j < Rows; ++j) {
          const std::size_t k = static_cast<std::size_t>(i) * Cols + j;
          if (k >= n)
            continue;
          int di = 0, dj = 0;
          SeekDirection1(&di, &dj, angle[k]);
          if (TestIfMaxLocal(modulus.get(), i, j, di, dj, Cols, Rows) == 1 && modulus[k] > Threshold)
            peaks[k] = modulus[k];
        }
      modulus = std::move(peaks);
    }
    Slots[static_cast<std::size_t>(2 * s)] = modulus.get();
    Slots[static_cast<std::size_t>(2 * s + 1)] = angle.get();
    SlotImages[static_cast<std::size_t>(2 * s)] = std::move(modulus);
    SlotImages[static_cast<std::size_t>(2 * s + 1)] = std::move(angle);
  }
  return 1;
}

int IPG_WAVELET::ComputeOfWaveletTransformByBSpline() { return Analyse(Maxima::None); }

int IPG_WAVELET::ComputeOfHolderExponentByWaveletTransform()
{
  AlphaPixel.reset();
  ChainPixel.reset();
  if (Analyse(Maxima::ThresholdOnScaleZero) == 0)
    return 0;
  float *chain = nullptr, *alpha = nullptr;
  if (ComputeChain(Slots.data(), Cols, Rows, &chain, NbConvolution, kMaxRegressionScales, &alpha) == 0) {
    ChainPixel.reset(chain);
    AlphaPixel.reset(alpha);
  }
  return 1;
}

int IPG_WAVELET::ComputeHolderExponentAllPixel()
{
  if (ComputeOfWaveletTransformByBSpline() == 0)
    return 0;
  const int scales = std::max(NbConvolution, 1);
  // Summed-area table of each modulus image.
  std::vector<Ipg_SummedArea<double>> sums;
  for (int s = 0; s < scales; ++s) {
    const float* m = Slots[static_cast<std::size_t>(2 * s)];
    sums.push_back(Ipg_SummedArea<double>::ByCornerRecurrence(
        Cols, Rows, [m, this](int c, int r) { return m[static_cast<std::size_t>(r) * Cols + c]; }));
  }
  const std::size_t n = static_cast<std::size_t>(Cols) * Rows;
  AlphaPixel = NewImage(n, kNoExponent);
  std::vector<double> x, y;
  for (int r = 0; r < Rows; ++r) {
    if (Ipg_StopRequested()) {
      AlphaPixel.reset();
      return 0;
    }
    for (int c = 0; c < Cols; ++c) {
      x.clear();
      y.clear();
      for (int s = 0; s < scales; ++s) {
        const int half = s + 1;
        const int c0 = std::max(0, c - half), c1 = std::min(Cols - 1, c + half);
        const int r0 = std::max(0, r - half), r1 = std::min(Rows - 1, r + half);
        const double sum = sums[static_cast<std::size_t>(s)].OverUpperFirst({c0, r0, c1 + 1, r1 + 1});
        const double mean = sum / ((c1 - c0 + 1) * (r1 - r0 + 1));
        if (mean > 0) {
          x.push_back(std::log(std::sqrt(s + 1.0) / std::sqrt(2.0)));
          y.push_back(std::log(mean));
        }
      }
      if (x.size() >= 2)
        AlphaPixel[static_cast<std::size_t>(r) * Cols + c] = static_cast<float>(Mth_Pente(x, y));
    }
  }
  return 1;
}

// ---------------------------------------------------------------- discrete transforms

namespace {

std::string Where(const char* method) { return std::string("IPG_WAVELET::") + method + "()"; }

bool Refuse(const std::string& parameter, const char* method)
{
  return Ipg_InformAndFail(Ipg_MsgParameterRangeAt(parameter, Where(method)));
}

} // namespace


int IPG_WAVELET::DiscreteTransform(int scales, const char* method)
{
  if (!Ipg_WaveletImagesValid(ImaIn, ImaOut, Where(method)))
    return 0;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols()), rows = static_cast<int>(ImaIn->GetNbOfRows());
  if (!Ipg_WaveletScalesValid(NameWavelet, scales, cols, rows, Where(method)))
    return 0;
  if (cols % (1 << scales) != 0 || rows % (1 << scales) != 0)
    return Ipg_InformAndFail(Ipg_MsgWaveletSides(Where(method)));
  IPG_WAVELET_BANK bank;
  Ipg_WaveletBank(NameWavelet, bank);
  std::vector<double> layout = Ipg_WaveletInput(*ImaIn);
  Ipg_DwtForward(bank, layout.data(), cols, rows, scales);
  Ipg_ListOfDwt(layout, cols, rows, scales, WtMatrices, OwnWt);
  EnsWt = &OwnWt;
  Ipg_WaveletWriteMosaic(layout, *ImaOut);
  return ApplyModeToOutImage() ? 1 : 0;
}

int IPG_WAVELET::ComputeDiscreteWaveletTransform() { return DiscreteTransform(1, "ComputeDiscreteWaveletTransform"); }

int IPG_WAVELET::ComputeDiscreteWaveletTransformAllScale()
{
  return DiscreteTransform(NbScale, "ComputeDiscreteWaveletTransformAllScale");
}

int IPG_WAVELET::InverseDiscreteWaveletTransform(MTH_MATRIX& image)
{
  const char* method = "InverseDiscreteWaveletTransform";
  std::vector<double> layout;
  int cols = 0, rows = 0, scales = 0;
  if (!Ipg_DwtOfList(EnsWt, layout, cols, rows, scales))
    return Refuse("EnsWt", method);
  IPG_WAVELET_BANK bank;
  if (!Ipg_WaveletBank(NameWavelet, bank))
    return Refuse("NameWavelet", method);
  Ipg_DwtInverse(bank, layout.data(), cols, rows, scales);
  image = Ipg_MatrixOfBlock(layout, cols, 0, 0, cols, rows);
  return 1;
}

int IPG_WAVELET::ComputeDiscretWaveletFrame()
{
  if (ImaIn == nullptr)
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  const int cols = static_cast<int>(ImaIn->GetNbOfCols()), rows = static_cast<int>(ImaIn->GetNbOfRows());
  return RedundantWaveletTransform(Ipg_MatrixOfBlock(Ipg_WaveletInput(*ImaIn), cols, 0, 0, cols, rows));
}

int IPG_WAVELET::RedundantWaveletTransform(const MTH_MATRIX& image)
{
  const char* method = "RedundantWaveletTransform";
  const int cols = image.GetNbCols(), rows = image.GetNbRows();
  if (image.IsEmpty())
    return Ipg_InformAndFail(kIpgMsgNoInputImage);
  if (!Ipg_WaveletScalesValid(NameWavelet, NbScale, cols, rows, Where(method)))
    return 0;
  if (!Ipg_FrameFitsMemory(NbScale, cols, rows, Where(method)))
    return 0;
  IPG_WAVELET_BANK bank;
  Ipg_WaveletBank(NameWavelet, bank);
  EnsWf = &OwnWf;
  return Ipg_ListOfFrame(bank, image, NbScale, WfMatrices, OwnWf) ? 1 : 0;
}

int IPG_WAVELET::RedundantInverseWaveletTransform(MTH_MATRIX& image)
{
  IPG_WAVELET_BANK bank;
  if (!Ipg_WaveletBank(NameWavelet, bank))
    return Refuse("NameWavelet", "RedundantInverseWaveletTransform");
  return Ipg_ImageOfFrameList(bank, EnsWf, image) ? 1 : Refuse("EnsWf", "RedundantInverseWaveletTransform");
}

MTH_MATRIX* IPG_WAVELET::FrameBand(int band, const char* method)
{
  const int scales = EnsWf != nullptr ? EnsWf->Count() / 4 : 0;
  if (Scale < 0 || Scale >= scales) {
    Refuse("Scale", method);
    return nullptr;
  }
  return static_cast<MTH_MATRIX*>(EnsWf->Get(4 * Scale + band));
}

MTH_MATRIX* IPG_WAVELET::ApproximationByDWF() { return FrameBand(0, "ApproximationByDWF"); }
MTH_MATRIX* IPG_WAVELET::DetailsHorizontalByDWF() { return FrameBand(1, "DetailsHorizontalByDWF"); }
MTH_MATRIX* IPG_WAVELET::DetailsVerticalByDWF() { return FrameBand(2, "DetailsVerticalByDWF"); }
MTH_MATRIX* IPG_WAVELET::DetailsDiagonalByDWF() { return FrameBand(3, "DetailsDiagonalByDWF"); }

int IPG_WAVELET::Denoise(bool adaptive, const char* method)
{
  const IPG_DENOISE_SETTINGS settings{NbScale, ThrFactor, adaptive, WindowSize, LogTransform};
  if (!Ipg_WaveletImagesValid(ImaIn, ImaOut, Where(method)))
    return 0;
  const int cols = static_cast<int>(ImaIn->GetNbOfCols()), rows = static_cast<int>(ImaIn->GetNbOfRows());
  if (!Ipg_WaveletScalesValid(NameWavelet, NbScale, cols, rows, Where(method)) ||
      !Ipg_DenoiseSettingsValid(settings, cols, rows, Where(method)))
    return 0;
  IPG_WAVELET_BANK bank;
  Ipg_WaveletBank(NameWavelet, bank);
  std::vector<double> image = Ipg_WaveletInput(*ImaIn);
  Result = Ipg_WaveletDenoise(bank, image, cols, rows, settings);
  Ipg_WaveletWriteImage(image, *ImaIn, Roi, *ImaOut);
  return ApplyModeToOutImage() ? 1 : 0;
}

int IPG_WAVELET::ApplyDenoisingImageByWavelet() { return Denoise(Adaptative, "ApplyDenoisingImageByWavelet"); }

int IPG_WAVELET::RemoveNoiseAdaptative() { return Denoise(true, "RemoveNoiseAdaptative"); }
