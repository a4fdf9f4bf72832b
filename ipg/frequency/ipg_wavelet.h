// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"

#include "ipg/framework/tlist.h"

#include <memory>
#include <vector>

class MTH_MATRIX;

// Continuous, gradient-based wavelet analysis (after Mallat and Zhong,
// "Characterization of signals from multiscale edges", IEEE PAMI 14(7), 1992,
// and Mallat and Hwang, "Singularity detection and processing with wavelets",
// IEEE Trans. Inf. Theory 38(2), 1992): the image is smoothed S times by the
// binomial mask and differentiated at each level, giving a modulus and an angle
// image per scale; modulus maxima along the gradient are chained from the
// coarsest to the finest scale and a Hölder exponent is the slope of
// ln(modulus) against ln(scale) along each chain.
//
// Every image here is a row-major array of cols x rows floats (element
// r * cols + c) owned by the operator; neighbours wrap at the borders (mod).
//   1800 ComputeOfWaveletTransformByBSpline: slot 2s = modulus, 2s+1 = angle of
//        scale s (s < NbConvolution); the slot array has 2 S + 2 entries, the last
//        pair null. Threshold is replaced by 5 sqrt(ln N)(S + 1)/(2S + 1).
//   1801 ComputeOfHolderExponentByWaveletTransform: slots hold modulus maxima and
//        angles; ChainPixel and AlphaPixel (30.0 = no exponent) from ComputeChain;
//        Result = number of complete chains.
//   1802 ComputeHolderExponentAllPixel: after 1800, at each pixel and scale s the
//        modulus of scale s is averaged over the (2s + 3) x (2s + 3) square around
//        the pixel (half-width s + 1, the support of s binomial passes and the
//        difference), clipped at the border and divided by the number of pixels
//        inside; AlphaPixel = Mth_Pente of ln(mean) on x_s = ln(sqrt(s + 1)/sqrt(2))
//        (the scale normalisation of 1800) over the scales with a non-zero mean;
//        fewer than two such scales leaves the pixel without exponent (30.0).
// The discrete transforms (filters, borders and conventions in
// ipg/internal/ipg_discrete_wavelet.h; NameWavelet: 0 Haar, 1 Daubechies 4,
// 2 Daubechies 6, 3 Daubechies 8, 4 CDF 9/7), periodic at every border so that
// each inverse is exact:
//   1803 ComputeDiscreteWaveletTransformAllScale: decimated transform over NbScale
//        scales (ComputeDiscreteWaveletTransform: one scale). EnsWt then lists,
//        scale 0 (the finest) first, the horizontal, vertical and diagonal
//        details of each scale, then the approximation of the last: 3 NbScale + 1
//        matrices, those of scale s of (rows >> (s+1)) x (cols >> (s+1)). ImaOut
//        gets the mosaic: approximation top left, vertical details on its right,
//        horizontal below, diagonal across, each scale nested in the
//        approximation quadrant of the one before; every coefficient is written
//        as it is, rounded half away from zero to an integer pixel (saturated to
//        32 bits), then the output mode applies (302 keeps the coefficients; the
//        default 301 rescales them for display). The orthonormal banks multiply a
//        constant by 2 per scale in the approximation. Sides must be multiples of
//        2^NbScale: other sizes are refused, not padded, so that the mosaic is the
//        image's size.
//   1804 ComputeDiscretWaveletFrame: undecimated (à trous) frame over NbScale
//        scales of any size; EnsWf lists approximation, horizontal, vertical and
//        diagonal images of each scale (4 per scale, cols x rows each, finest
//        first); ApproximationByDWF and the Details*ByDWF getters return those of
//        Scale. No output image.
//   1805 ApplyDenoisingImageByWavelet: soft thresholding on the NbScale-scale
//        frame, universal threshold, or BayesShrink with local variance over a
//        WindowSize square when Adaptative is set (RemoveNoiseAdaptative always);
//        LogTransform denoises ln(1 + v) for multiplicative speckle (details in
//        ipg/internal/ipg_wavelet_denoise.h). The threshold is scaled by
//        ThrFactor / 2. Result = the noise deviation estimated. ImaOut gets the
//        rounded image; pixels outside the ROI and marks (above 16777216) get the
//        input's value. Marks enter every transform as the mean grey level.
// The inverses (InverseDiscreteWaveletTransform, RedundantInverseWaveletTransform)
// read the lists EnsWt and EnsWf point to: the operator's own after a transform,
// or a caller's list of MTH_MATRIX of the same shapes.
// Parameter checks show "Paramètre <name> hors limites : IPG_WAVELET::<method>()":
// NameWavelet outside 0-4, NbScale < 1 or 2^NbScale above the smaller side,
// ThrFactor negative or not finite, WindowSize even, < 1 or above 65535, Scale
// outside the frame; 1803 on sides not multiples of 2^NbScale shows
// "Dimensions de l'image non divisibles par 2^NbScale : ...".
// A missing input image shows "Pas d'image d'entrée!" and returns 0. An
// NbConvolution below 0, above the image's smaller side or whose slots would
// pass 2^28 floats shows the parameter message and returns 0. The scales (and
// the rows of 1802) poll for cancellation: a cancelled run returns 0.
class IPG_WAVELET : public IPG_TWO_INPUTS_ONE_OUTPUT {
public:
  static constexpr float kNoExponent = 30.0f;

  IPG_WAVELET(DCM_STRUCT* in);
  IPG_WAVELET(DCM_STRUCT* in, DCM_STRUCT* roi);
  // Copies the parameters, not the result arrays; Tools stays 0.
  IPG_WAVELET(const IPG_WAVELET& source);
  ~IPG_WAVELET();
  IPG_WAVELET& operator=(const IPG_WAVELET&) = delete;

  void SetNbConvolution(const int n) { NbConvolution = n; }
  int GetNbConvolution() const { return NbConvolution; }
  void SetThreshold(const float threshold) { Threshold = threshold; }
  float GetThreshold() const { return Threshold; }
  void SetNameWavelet(const int name) { NameWavelet = name; }
  int GetNameWavelet() const { return NameWavelet; }
  void SetNbScale(const int n) { NbScale = n; }
  int GetNbScale() const { return NbScale; }
  void SetScale(const int scale) { Scale = scale; }
  int GetScale() const { return Scale; }
  void SetEnsWt(TList* list) { EnsWt = list; }
  TList* GetEnsWt() const { return EnsWt; }
  void SetEnsWf(TList* list) { EnsWf = list; }
  TList* GetEnsWf() const { return EnsWf; }
  void SetThrFactor(const double factor) { ThrFactor = factor; }
  double GetThrFactor() const { return ThrFactor; }
  void SetWindowSize(const int size) { WindowSize = size; }
  int GetWindowSize() const { return WindowSize; }
  void SetAdaptative(const bool adaptative) { Adaptative = adaptative; }
  bool GetAdaptative() const { return Adaptative; }
  void SetLogTransform(const bool logTransform) { LogTransform = logTransform; }
  bool GetLogTransform() const { return LogTransform; }

  // The slot array (2 NbConvolution + 2 entries) or null before a run.
  float** GetWaveletTransform() { return Slots.empty() ? nullptr : Slots.data(); }
  float* GetAlphaPixel() { return AlphaPixel.get(); }
  float* GetChainPixel() { return ChainPixel.get(); }
  // Columns and rows of the arrays of the last run.
  int GetNbOfCols() const { return Cols; }
  int GetNbOfRows() const { return Rows; }
  int GetNbOfSlots() const { return static_cast<int>(Slots.size()); }

  // NbConvolution 8, Threshold -1.0, NameWavelet 0, NbScale 2, Scale 0,
  // EnsWf null, ThrFactor 2.0, WindowSize 5, Adaptative and LogTransform off,
  // Tools 1800 (EnsWt is left as it is).
  void SetDefaultParameters();
  int Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_WAVELET>& ClassInfo();

  int ComputeOfWaveletTransformByBSpline();        // 1800
  int ComputeOfHolderExponentByWaveletTransform(); // 1801
  int ComputeHolderExponentAllPixel();             // 1802
  int ComputeDiscreteWaveletTransform();           // one scale of 1803
  int ComputeDiscreteWaveletTransformAllScale();   // 1803
  int ComputeDiscretWaveletFrame();                // 1804
  int ApplyDenoisingImageByWavelet();              // 1805
  int RemoveNoiseAdaptative();                     // 1805 with BayesShrink

  // The image (rows x cols) rebuilt from EnsWt; 0 with the EnsWt message when
  // the list does not have the shapes of a transform.
  int InverseDiscreteWaveletTransform(MTH_MATRIX& image);
  // The frame of any real image into EnsWf, and the image back from EnsWf.
  int RedundantWaveletTransform(const MTH_MATRIX& image);
  int RedundantInverseWaveletTransform(MTH_MATRIX& image);
  // Bands of scale Scale of EnsWf (owned by whoever owns the list); null with
  // the Scale message when there is no such scale.
  MTH_MATRIX* ApproximationByDWF();
  MTH_MATRIX* DetailsHorizontalByDWF();
  MTH_MATRIX* DetailsVerticalByDWF();
  MTH_MATRIX* DetailsDiagonalByDWF();

  // a - n floor(a / n), in [0, n) (0 when n <= 0).
  int mod(int a, int n);
  // *out = new float[cols * rows] (release with delete[]) holding the finite
  // difference of in: type 0 forward, 1 the 3 x 3 Sobel-type, 2 backward,
  // 3 central; direction 0 along a row, 1 along a column. Returns 0, or -1 with
  // "Mauvais choix de type de dérivation" and *out zeroed for another type.
  int WaveletDerivation(float** out, float* in, int cols, int rows, int type, int direction);
  void MatXConst(float** image, int cols, int rows, float factor);
  // *out = new float[cols * rows] (release with delete[]): separable [1 2 1]/4 smoothing.
  void ConvoRapideMasqBin(float** out, float* in, int cols, int rows);
  // One of eight neighbour steps for a gradient angle.
  void SeekDirection1(int* di, int* dj, float angle);
  // 1 if element (i, j) of m (i as the row) is a maximum along (di, dj), else 0.
  int TestIfMaxLocal(float* m, int i, int j, int di, int dj, int cols, int rows);
  // Chains the maxima of slots from scale S - 1 down to 0; *chain and *alpha
  // become new cols x rows arrays (release with delete[]). Returns 0, or -1 with
  // "Aïe, déterminant nul!!" when S <= 3 (outputs untouched). unused: any value.
  int ComputeChain(float** slots, int cols, int rows, float** chain, int S, int unused, float** alpha);
  // The next chain point around (c, r) at one finer scale; *dc = *dr = 2 when none.
  void SeekPointToChain(float* m, float* a, int cols, int rows, int c, int r, float ref, int* dc, int* dr,
                        float* bestDiff);

private:
  enum class Maxima { None, ThresholdOnScaleZero };
  int Analyse(Maxima maxima);
  bool ReadInput(std::vector<float>& image);
  void ClearResults();
  float ScaleThreshold(int S) const;
  int DiscreteTransform(int scales, const char* method);
  int Denoise(bool adaptive, const char* method);
  MTH_MATRIX* FrameBand(int band, const char* method);

  int NbConvolution = 8;
  float Threshold = -1.0f;
  std::vector<float*> Slots;                      // 2 S + 2 entries, owned through SlotImages
  std::vector<std::unique_ptr<float[]>> SlotImages;
  std::unique_ptr<float[]> AlphaPixel;
  std::unique_ptr<float[]> ChainPixel;
  int NameWavelet = 0;
  int NbScale = 2;
  int Scale = 0;
  TList* EnsWt = nullptr; // not owned
  TList* EnsWf = nullptr; // not owned
  double ThrFactor = 2.0;
  int WindowSize = 5;
  bool Adaptative = false;
  bool LogTransform = false;
  // The lists the transforms fill; EnsWt and EnsWf point to them afterwards.
  TList OwnWt, OwnWf;
  std::vector<std::unique_ptr<MTH_MATRIX>> WtMatrices, WfMatrices; // what OwnWt and OwnWf point to
  int Cols = 0;
  int Rows = 0;
};
