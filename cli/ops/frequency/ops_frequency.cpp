// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"
#include "ipg/frequency/ipg_transformation.h"
#include "ipg/frequency/ipg_wavelet.h"

#include <string>

namespace {

const bool fftOneInputRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_FFT_ONE_INPUT>>(
      "IPG_FFT_ONE_INPUT", "Fourier low/high-pass filters and centred spectra of one image",
      [](const CliImages& im) { return std::make_unique<IPG_FFT_ONE_INPUT>(im.in, nullptr); });
  table->Result("Threshold", &IPG_FFT_ONE_INPUT::GetThreshold);
  table->Output("out", [](IPG_FFT_ONE_INPUT& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

const bool fftTwoInputsRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_FFT_TWO_INPUTS>>(
      "IPG_FFT_TWO_INPUTS", "inverse transforms from spectral pairs and spectral comparisons of two images",
      [](const CliImages& im) { return std::make_unique<IPG_FFT_TWO_INPUTS>(im.in, im.second, nullptr); });
  table->SecondInput([](IPG_FFT_TWO_INPUTS& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->Output("out", [](IPG_FFT_TWO_INPUTS& op, DCM_STRUCT* out) { op.SetImaOut(out); });
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

const bool waveletRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_WAVELET>>(
      "IPG_WAVELET",
      "multiscale gradient wavelet transform, modulus-maxima chains and Hölder exponents "
      "(float results written as images at precision 1000)",
      [](const CliImages& im) { return std::make_unique<IPG_WAVELET>(im.in, im.roi); });
  table->Result("Threshold", &IPG_WAVELET::GetThreshold);
  table->Result("NbConvolution", &IPG_WAVELET::GetNbConvolution);
  // Images: alpha and chain (1801, 1802), modulus_s and angle_s for every scale.
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
