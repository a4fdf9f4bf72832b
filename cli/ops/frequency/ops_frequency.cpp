// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"
#include "ipg/frequency/ipg_transformation.h"
#include "ipg/frequency/ipg_wavelet.h"
#include "ipg/framework/tlist.h"
#include "mth/mth_matrix.h"

#include <string>

namespace {

const bool fftOneInputRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_FFT_ONE_INPUT>>(
      "IPG_FFT_ONE_INPUT", "Fourier low/high-pass filters and centred spectra of one image",
      [](const CliImages& im) { return std::make_unique<IPG_FFT_ONE_INPUT>(im.in, nullptr); });
  table->Result("Threshold", &IPG_FFT_ONE_INPUT::GetThreshold);
  table->Output("out", [](IPG_FFT_ONE_INPUT& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  // The transform buffer is not wanted while the output is written.
  table->After([](IPG_FFT_ONE_INPUT&, const CliImages&, CliRunOutcome&) { IPG_FFT_ONE_INPUT::ReleaseBuffers(); });
  return Cli_Register(std::move(table));
}();

const bool fftTwoInputsRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_FFT_TWO_INPUTS>>(
      "IPG_FFT_TWO_INPUTS", "inverse transforms from spectral pairs and spectral comparisons of two images",
      [](const CliImages& im) { return std::make_unique<IPG_FFT_TWO_INPUTS>(im.in, im.second, nullptr); });
  table->SecondInput([](IPG_FFT_TWO_INPUTS& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->Output("out", [](IPG_FFT_TWO_INPUTS& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->After([](IPG_FFT_TWO_INPUTS&, const CliImages&, CliRunOutcome&) { IPG_FFT_ONE_INPUT::ReleaseBuffers(); });
  return Cli_Register(std::move(table));
}();

const bool transformationRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_TRANSFORMATION>>(
      "IPG_TRANSFORMATION", "translation, rotation, rigid transformation, Hough lines and Daubechies wavelet compression",
      [](const CliImages& im) { return std::make_unique<IPG_TRANSFORMATION>(im.in, im.roi); });
  table->ParamFn("Centre", "real,real", "centre of rotation as column,row (default: the image middle)",
                 [](IPG_TRANSFORMATION& op, const std::string& text) {
                   const auto comma = text.find(',');
                   if (comma == std::string::npos)
                     throw CliUsageError("Centre needs two values: column,row");
                   op.SetCentre(Cli_ParseValue<double>("Centre", text.substr(0, comma)),
                                Cli_ParseValue<double>("Centre", text.substr(comma + 1)));
                 });
  table->Result("Angle", &IPG_TRANSFORMATION::GetAngle);
  table->Result("WaveletLevel", &IPG_TRANSFORMATION::GetWaveletLevel);
  table->Output("out", [](IPG_TRANSFORMATION& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  // Code 604 also yields the compressed low-pass image.
  table->After([](IPG_TRANSFORMATION& op, const CliImages&, CliRunOutcome& outcome) {
    if (outcome.applied && op.GetTools() == 604)
      if (DCM_STRUCT* compressed = op.GetCompressedImage())
        outcome.images.emplace_back("compressed", std::unique_ptr<DCM_STRUCT>(compressed));
  });
  return Cli_Register(std::move(table));
}();

// The float arrays of IPG_WAVELET become DICOM images of the input's geometry
// at precision 1000: GetValueReal gives the float back to three decimals.
constexpr short kWaveletImagePrecision = 1000;

std::unique_ptr<DCM_STRUCT> FloatImage(DCM_STRUCT& geometry, const float* values)
{
  auto image = std::make_unique<DCM_STRUCT>(geometry, false);
  image->Data->SetPrecision(kWaveletImagePrecision);
  const unsigned cols = image->GetNbOfCols(), rows = image->GetNbOfRows();
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c)
      image->Data->SetValue(c, r, static_cast<double>(values[static_cast<std::size_t>(r) * cols + c]));
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

std::unique_ptr<DCM_STRUCT> MatrixImage(DCM_STRUCT& geometry, const MTH_MATRIX& values)
{
  auto image = std::make_unique<DCM_STRUCT>(geometry, false);
  image->Data->SetPrecision(kWaveletImagePrecision);
  for (int r = 0; r < values.GetNbRows(); ++r)
    for (int c = 0; c < values.GetNbCols(); ++c)
      image->Data->SetValue(static_cast<unsigned>(c), static_cast<unsigned>(r), values.Get(r, c));
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

// The bands of the discrete lists in their order: 1803 lists H, V, D of each
// scale then A; 1804 lists A, H, V, D of each scale.
constexpr const char* kDwtBands[] = {"horizontal", "vertical", "diagonal"};
constexpr const char* kFrameBands[] = {"approximation", "horizontal", "vertical", "diagonal"};

std::string BandName(int code, int k, int count)
{
  if (code == 1804)
    return std::string(kFrameBands[k % 4]) + "_" + std::to_string(k / 4);
  return k == count - 1 ? "approximation" : std::string(kDwtBands[k % 3]) + "_" + std::to_string(k / 3);
}

// Size and mean square of every band of the list of the last discrete transform.
Json BandEnergies(IPG_WAVELET& op)
{
  const int code = static_cast<int>(op.GetTools());
  TList* list = code == 1804 ? op.GetEnsWf() : op.GetEnsWt();
  Json::Array bands;
  for (int k = 0; list != nullptr && k < list->Count(); ++k) {
    const auto* band = static_cast<const MTH_MATRIX*>(list->Get(k));
    const int n = band->GetNbRows() * band->GetNbCols();
    double squares = 0.0;
    for (int i = 0; i < n; ++i)
      squares += band->GetData()[i] * band->GetData()[i];
    bands.push_back(Json::Object{{"band", BandName(code, k, list->Count())},
                                 {"rows", band->GetNbRows()},
                                 {"cols", band->GetNbCols()},
                                 {"energy", n > 0 ? squares / n : 0.0}});
  }
  return bands;
}

const bool waveletRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_WAVELET>>(
      "IPG_WAVELET",
      "multiscale gradient wavelet transform, modulus-maxima chains and Hölder exponents; discrete "
      "wavelet transform, à trous frame and wavelet denoising (real results written as images at precision 1000)",
      [](const CliImages& im) { return std::make_unique<IPG_WAVELET>(im.in, im.roi); });
  table->Result("Threshold", &IPG_WAVELET::GetThreshold);
  table->Result("NbConvolution", &IPG_WAVELET::GetNbConvolution);
  table->FilledBy("Threshold", {1800, 1801, 1802}).FilledBy("NbConvolution", {1800, 1801, 1802});
  table->ResultFn("Bands", BandEnergies).FilledBy("Bands", {1803, 1804});
  // The mosaic of 1803 and the denoised image of 1805.
  table->Output("out", [](IPG_WAVELET& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  // 1804: the frame's bands of every scale.
  table->After([](IPG_WAVELET& op, const CliImages& images, CliRunOutcome& outcome) {
    const int code = static_cast<int>(op.GetTools());
    if (code != 1803 && code != 1805)
      std::erase_if(outcome.images, [](const auto& image) { return image.first == "out"; });
    TList* frame = op.GetEnsWf();
    if (!outcome.applied || code != 1804 || frame == nullptr)
      return;
    for (int k = 0; k < frame->Count(); ++k)
      outcome.images.emplace_back(BandName(code, k, frame->Count()),
                                  MatrixImage(*images.in, *static_cast<const MTH_MATRIX*>(frame->Get(k))));
  });
  // Images of 1800 to 1802: alpha and chain (1801, 1802), modulus_s and angle_s for every scale.
  table->After([](IPG_WAVELET& op, const CliImages& images, CliRunOutcome& outcome) {
    if (!outcome.applied || op.GetNbOfCols() != static_cast<int>(images.in->GetNbOfCols()) ||
        op.GetNbOfRows() != static_cast<int>(images.in->GetNbOfRows()))
      return;
    if (const float* alpha = op.GetAlphaPixel(); alpha != nullptr && op.GetTools() != 1800)
      outcome.images.emplace_back("alpha", FloatImage(*images.in, alpha));
    if (const float* chain = op.GetChainPixel(); chain != nullptr && op.GetTools() == 1801)
      outcome.images.emplace_back("chain", FloatImage(*images.in, chain));
    float** slots = op.GetWaveletTransform();
    for (int s = 0; slots != nullptr && 2 * s + 1 < op.GetNbOfSlots(); ++s) {
      if (slots[2 * s] == nullptr)
        break;
      const std::string scale = std::to_string(s);
      outcome.images.emplace_back((op.GetTools() == 1801 ? "maxima_" : "modulus_") + scale,
                                  FloatImage(*images.in, slots[2 * s]));
      outcome.images.emplace_back("angle_" + scale, FloatImage(*images.in, slots[2 * s + 1]));
    }
  });
  return Cli_Register(std::move(table));
}();

} // namespace
