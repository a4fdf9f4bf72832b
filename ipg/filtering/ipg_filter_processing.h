// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/filtering/ipg_filter_virtual.h"
#include "ipg/framework/tlinked_list.h"
#include "ipg/framework/tlist.h"
#include "mth/mth_2d_integer.h"

#include <memory>

class DCM_STRUCT;
struct Ipg_KernelImages;
struct Ipg_RowSpan;

// The filtering operator: convolution by a predefined or user kernel, Deriche
// smoothing and derivative, Gaussian and Laplacian-of-Gaussian filters, median,
// mean and edge filters, Nagao edge-preserving smoothing and a chi-square
// texture-deviation map.
//
// Operation codes (Tools, default 500):
//   500 ApplyFilter, defined kernel    501 ApplyFilter, user kernel
//   502 DericheSmooth                  503 DericheDerivative
//   505 MedianFilter, then Nagao_5_x_5 on the median's result
//   506 Nagao_5_x_5                    507 LaplacianGaussian
//   508 Chi2                           514 EdgeDetection
//   515 MeanFilter
//   513 LeeFilter                      516 FrostFilter
//   517 KuanFilter
//   504 AdaptativeDenoise, then MedianFilter on its result, then Nagao_5_x_5
//   509 SBF   510 N_B_Filter   511 SRAD   512 AWMF   518 SBF_DVW   519 WSBF
//   520 ADespeckling           521 Filtre_Impuls      (ultrasound despeckling)
// Codes without an operation in this class return 0 with no message.
//
// Apply() returns 0 without an output image; when the output's column count and
// row count both differ from the input's it shows the size message and returns
// 0 (one equal dimension is enough: hosts rely on it). It then clears the output
// to 0 and runs the operation: 500 to 503, 506 and 508 report 1 whatever the
// operation returned, 505 the median filter's result, the others their own result.
//
// Long filters drive the progress seam (ipg/ui/ipg_progress.h): the median
// ("filtrage Médian", one step per row, only with the wait bar visible), the
// mean filter ("AVREAGING FILTER") and the edge filter ("EDGE FILTER
// DETECTION"), one step per pass with the 1-based pass number as status.
class IPG_FILTER_PROCESSING : public IPG_FILTER_VIRTUAL {
public:
  IPG_FILTER_PROCESSING(DCM_STRUCT* in);
  IPG_FILTER_PROCESSING(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies the direction flag, the gradient images and direction matrix (shared
  // with the source, not duplicated), and the Laplacian-of-Gaussian parameters;
  // the chi-square array starts empty, one iteration, wait bar visible. The
  // kernels, the images and Tools take their defaults (Tools 0).
  IPG_FILTER_PROCESSING(const IPG_FILTER_PROCESSING& source);
  IPG_FILTER_PROCESSING& operator=(const IPG_FILTER_PROCESSING&) = delete;
  ~IPG_FILTER_PROCESSING();

  // Tools 500, predefined kernel 0 (3x3 box), border type 0, no direction
  // matrix, no gradient images, direction flag false.
  void SetDefaultParameters();
  int Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_FILTER_PROCESSING>& ClassInfo();

  // Convolution of the input by kernel into the output, both sides of the
  // kernel odd. Pixels nearer the edge than half the kernel keep the value the
  // border type gave them; pixels outside the ROI or above 16777216 copy the
  // input; the others get the weighted sum of their unmarked neighbours divided
  // by |sum of those neighbours' weights| (1 when it is below 0.001, so
  // zero-sum derivative kernels are not normalised), in single precision,
  // truncated toward zero. Ends with ApplyModeToOutImage().
  bool ApplyFilter(IPG_FILTER* kernel);
  // The straightforward reading of ApplyFilter, pixel by pixel. ApplyFilter
  // gives exactly the same pixels; this one stays as the reference.
  bool ApplyFilterPlain(IPG_FILTER* kernel);

  // 3x3 Deriche smoothing kernel (alpha 1.2) through ApplyFilter.
  bool DericheSmooth();
  // Deriche gradient magnitude (alpha 3.2, 5x5 kernels) of the smoothed input;
  // keeps the X and Y gradient images, fills the direction matrix when the flag
  // is set, and leaves Mode at 304.
  bool DericheDerivative();
  // size x size kernel -(x^2 + y^2) / (2 sigma^2), sigma = size / 6, normalised
  // by its sum: a neighbour weighs by its squared distance and the centre 0
  // (without the exponential, as existing results were computed). An even or
  // non-positive size is refused (returns 0).
  bool GaussianFilter(int size);
  // Laplacian of Gaussian, then 16777217 where the response has the sign the
  // sigma type selects (0 negative, otherwise positive) and 0 elsewhere.
  bool LaplacianGaussian();
  // Median over a window of the user kernel's size. Afterwards the user
  // kernel's integer array holds the last window's values, sorted, as callers
  // that read it back expect.
  bool MedianFilter();
  // 5x5 mean over a sheared window, updated in place (see the source).
  bool MeanFilter();
  // Mean absolute difference to the centre over the mean filter's window.
  bool EdgeDetection();
  // Nagao-Matsuyama edge-preserving smoothing: each pixel takes the mean of the
  // least-variance region among nine 5x5 sub-regions (see the source).
  bool Nagao_5_x_5();
  // Chi-square distance between each pixel's local grey-level histogram and
  // the image's histogram; fills the output and GetChi2InFloat() (see the source).
  bool Chi2();

  // Adaptive local-statistics speckle filters. Each copies the input into the
  // output, makes NbIter passes (progress "LEE FILTER", "KUAN FILTER", "FROST
  // FILTER", one step per pass) and ignores the ROI; the output mode is not
  // applied and the output's stored extremes are left as they are.
  //
  // Lee (J.-S. Lee, "Digital image enhancement and noise filtering by use of
  // local statistics", IEEE PAMI 2(2), 1980): over rows and columns 1..n-2, in
  // place, each pixel becomes (1 - w) m + w x with m, v the mean and variance of
  // its 3x3 neighbourhood, w = (v - s2) / v clipped to [0, 1], and s2 the
  // variance of the whole input (IPG_STATISTIC1, code 6). Truncated at the end.
  bool LeeFilter();
  // Kuan: over rows and columns 1..n-2, (1 - w) m + w x with w = 0.5 (1 - m / v),
  // not clipped (0 on a flat neighbourhood), truncated toward zero. The
  // neighbourhoods are read from the unchanged input, so every pass gives the
  // same output.
  bool KuanFilter();
  // Frost (V. S. Frost, J. A. Stiles, K. S. Shanmugan, J. C. Holtzman, "A model
  // for radar images and its application to adaptive digital filtering of
  // multiplicative noise", IEEE PAMI 4(2), 1982): over the mean filter's sheared
  // 5x5 window, written one column left of the visited position and updated in
  // place like it, each pixel becomes sum(k_i x_i) / sum(k_i) truncated, with
  // k_i = exp(-K * (variance / mean^2) * d_i), d_i the distance of the cell to
  // the window's centre cell and variance / mean^2 the window's squared
  // coefficient of variation (0 for a window of mean 0). Flat areas keep their
  // value; the stronger the local variation, the more the centre dominates, so
  // edges stay sharp. K, the damping factor, is the real of
  // SetAdaptatifFiltreParameters; 0 (the default), a negative or a non-finite
  // value selects K = 1.
  bool FrostFilter();

  // Ultrasound despeckling. The algorithms, with their references, are in
  // ipg/internal/ipg_speckle_kernels.h. Each runs GetNbIter() passes (fewer than one:
  // refused) over a working copy of the input, drives the progress seam with
  // one step per pass, and writes the output's pixels directly, rounded; pixels
  // outside the ROI and marks keep the input value; the output's extremes are
  // recomputed and no output mode is applied. Windows are clipped at the image
  // edges. SetAdaptatifFiltreParameters(first, second, real) (in the class
  // table: AdaptatifFiltreParameters, three numbers) sets, 0 meaning the
  // default given in brackets:
  //   SBF, WSBF       first: window side, odd (3)
  //   SBF_DVW         first: largest window side, odd (7); real: homogeneity
  //                   factor, a window is homogeneous while its coefficient of
  //                   variation is at most real x the image's speckle one (1.5)
  //   SRAD            real: time step, at most 1 (0.2); q0 estimated every pass
  //   AWMF            first: window side, odd (5); second: centre weight (99);
  //                   real: scale b (chosen from the image, Ipg_AwmfAutoScale)
  //   N_B_Filter      first: largest region, in pixels (49), at most the
  //                   image's pixel count; real: tolerance, in speckle
  //                   standard deviations (2)
  //   ADespeckling    first: side of the local-statistics window, odd (5);
  //                   real: time step, at most 1 (0.2)
  //   Filtre_Impuls   first: largest window side, odd (7)
  //   AdaptativeDenoise first: window side, odd (5); second: fewest similar
  //                   neighbours, below which the pixel is an impulse and takes
  //                   its 8 neighbours' mean (3); real: similarity range, in
  //                   speckle standard deviations (2)
  // An even, negative or larger-than-the-image window, a negative parameter or
  // a real that is not finite is refused with a message; every refusal
  // returns false.
  bool SBF();
  bool WSBF();
  bool SBF_DVW();
  bool SRAD();
  bool AWMF();
  bool N_B_Filter();
  bool ADespeckling();
  bool Filtre_Impuls();
  // J.-S. Lee's sigma filter ("Digital image smoothing and the sigma filter",
  // CVGIP 24, 1983) for multiplicative speckle: each pixel takes the mean of
  // the list of its window's pixels within k Cu x its value of it (Cu: the
  // speckle coefficient of variation of the image, estimated every pass),
  // the list built as AddPixel builds it and averaged as
  // GetNeighboorsMeanGreyLevel averages it, on the current pass's image.
  bool AdaptativeDenoise();

  // Local signal-to-noise ratio mean / standard deviation of the window of
  // half sizes halfX, halfY around (col, row) of data (cols x rows, row-major),
  // clipped to the image; 0 for an empty window or no data, and the largest
  // double when the window is flat with a positive mean. N_B_Filter's speckle
  // level is 1 / the median of SNR^2 over the 5x5 windows of the image.
  double SNR(int col, int row, int halfX, int halfY, int* data, int cols, int rows);
  // Whether region (a list of MTH_2D_INTEGER*) holds the point (col, row): the
  // membership test of N_B_Filter's region growing.
  bool N_Existe_Region(int col, int row, TList* region);
  // Whether the filters treat the input pixel (col, row): inside the image, a
  // grey level (not a mark) and, when useRoi and a ROI is set, inside the ROI.
  bool IsTreatedPixel(int col, int row, bool useRoi);
  // Appends a new MTH_2D_INTEGER(col, row) to list (which owns nothing: the
  // caller deletes the points) when the pixel is treated (ROI included) and,
  // unless list is empty (the pixel then becomes the reference), when its
  // input value differs from that of the list's first point by at most
  // tolerance. Returns whether it was added.
  bool AddPixel(int col, int row, int tolerance, TLinkedList<MTH_2D_INTEGER*>* list);
  // Mean input value of the listed points; 0 for an empty or null list.
  double GetNeighboorsMeanGreyLevel(TLinkedList<MTH_2D_INTEGER*>* list);

  // Parameter setters are const: hosts configure the operator through const references.
  void SetGradientFlagDirection(bool flag) const { GradientFlagDirection = flag; }
  bool GetGradientFlagDirection() const { return GradientFlagDirection; }
  // cols x rows angles (radians) of the last DericheDerivative with the flag set.
  double* GetGradientDirectionMatrix() const { return GradientDirectionMatrix.get(); }
  DCM_STRUCT* GetGradientXGradient() const { return GradientX.get(); }
  DCM_STRUCT* GetGradientYGradient() const { return GradientY.get(); }

  void SetLaplacianGaussianSize(int size) const { LaplacianGaussianSize = size; }
  int GetLaplacianGaussianSize() const { return LaplacianGaussianSize; }
  void SetLaplacianGaussianSigma(double sigma) const { LaplacianGaussianSigma = sigma; }
  double GetLaplacianGaussianSigma() const { return LaplacianGaussianSigma; }
  void SetLaplacianGaussianSigmaType(int type) const { LaplacianGaussianSigmaType = type; }
  int GetLaplacianGaussianSigmaType() const { return LaplacianGaussianSigmaType; }

  void setWaitbarVisible(bool visible) const { WaitbarVisible = visible; }
  bool GetWaitbarVisible() const { return WaitbarVisible; }

  // Stores the first integer, the real, then the second integer.
  void SetAdaptatifFiltreParameters(int first, int second, double real) const
  {
    AdaptatifFirst = first;
    AdaptatifReal = real;
    AdaptatifSecond = second;
  }
  int GetAdaptatifFirst() const { return AdaptatifFirst; }
  double GetAdaptatifReal() const { return AdaptatifReal; }
  int GetAdaptatifSecond() const { return AdaptatifSecond; }

  // cols x rows chi-square distances of the last Chi2 (null before).
  float* GetChi2InFloat() const { return Chi2InFloat.get(); }

  // Both set the number of passes of the iterative filters. More than
  // kIpgMaxPasses (ipg/internal/ipg_guard.h, 10000) is refused with the
  // parameter message. Every pass (and every row of the median) polls the
  // progress sink: a host's cancel stops the filter with "Opération annulée
  // par l'utilisateur" and a false result.
  void SetNbIter(int n) const { NbIter = n; }
  void SetNbrOfIter(int n) const { NbIter = n; }
  int GetNbIter() const { return NbIter; }

private:
  // The in-place kernels of the mean and edge filters (ipg/internal/ipg_local_kernels.h).
  using ShearedKernel = void (*)(const Ipg_KernelImages& images, Ipg_RowSpan span);

  bool MedianThenNagao(const DCM_STRUCT* in);
  bool NagaoOfMedian(bool median);
  bool RunChain504();
  bool RunShearedWindowFilter(const char* label, ShearedKernel kernel);
  // The operations on explicit images, so that chains pass intermediate
  // results without touching ImaIn and ImaOut.
  bool ConvolveInto(const DCM_STRUCT* in, DCM_STRUCT* out, const IPG_FILTER* kernel, bool fast);
  bool MedianInto(const DCM_STRUCT* in, DCM_STRUCT* out);
  bool NagaoInto(const DCM_STRUCT* in, DCM_STRUCT* out);
  bool KernelUsable(const IPG_FILTER* kernel) const;

  mutable bool GradientFlagDirection = false;
  // Shared with copies of this operator: a copy and its source may both hold them.
  std::shared_ptr<double[]> GradientDirectionMatrix;
  std::shared_ptr<DCM_STRUCT> GradientX;
  std::shared_ptr<DCM_STRUCT> GradientY;
  mutable int LaplacianGaussianSize = 13;
  mutable double LaplacianGaussianSigma = 1.4;
  mutable int LaplacianGaussianSigmaType = 0;
  mutable bool WaitbarVisible = true;
  mutable int AdaptatifFirst = 0;
  mutable double AdaptatifReal = 0.0;
  mutable int AdaptatifSecond = 0;
  std::unique_ptr<float[]> Chi2InFloat;
  mutable int NbIter = 1;
};
