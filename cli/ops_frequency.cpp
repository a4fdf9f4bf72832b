#include "cli/operator_registry.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"
#include "ipg/frequency/ipg_transformation.h"

namespace {

const bool fftOneInputRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_FFT_ONE_INPUT>>(
      "IPG_FFT_ONE_INPUT", "Fourier low/high-pass filters and centred spectra of one image",
      [](const CliImages& im) { return std::make_unique<IPG_FFT_ONE_INPUT>(im.in, nullptr); });
  table->Code(1202, "FourierLowPass").Code(1203, "FourierHighPass").Code(1210, "GetReal");
  table->Code(1211, "GetImaginary").Code(1212, "GetPhaseDeg").Code(1213, "GetPhaseRad").Code(1216, "GetModule");
  table->Param("Threshold", &IPG_FFT_ONE_INPUT::SetThreshold, "half-width of the zeroed band of coefficients");
  table->Result("Threshold", &IPG_FFT_ONE_INPUT::GetThreshold);
  table->Output("out", [](IPG_FFT_ONE_INPUT& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

const bool fftTwoInputsRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_FFT_TWO_INPUTS>>(
      "IPG_FFT_TWO_INPUTS", "inverse transforms from spectral pairs and spectral comparisons of two images",
      [](const CliImages& im) { return std::make_unique<IPG_FFT_TWO_INPUTS>(im.in, im.second, nullptr); });
  table->Code(1300, "GetPhaseDifference").Code(1301, "GetInverseFromRealImag");
  table->Code(1302, "GetInverseFromPhaseModule").Code(1303, "GetMagnitudeDifference");
  table->SecondInput([](IPG_FFT_TWO_INPUTS& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->Output("out", [](IPG_FFT_TWO_INPUTS& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

const bool transformationRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_TRANSFORMATION>>(
      "IPG_TRANSFORMATION", "translation, rotation, rigid transformation, Hough lines and Daubechies wavelet compression",
      [](const CliImages& im) { return std::make_unique<IPG_TRANSFORMATION>(im.in, im.roi); });
  table->Code(600, "Translation").Code(601, "Rotation").Code(603, "RigideTransformation");
  table->Code(604, "ApplyWavelet").Code(605, "HoughTransformation");
  table->Param("Angle", &IPG_TRANSFORMATION::SetAngle, "rotation angle in radians (default pi)");
  table->Param("enX", &IPG_TRANSFORMATION::SetenX, "translation along the columns");
  table->Param("enY", &IPG_TRANSFORMATION::SetenY, "translation along the rows");
  table->ParamFn("Centre", "real,real", "centre of rotation as column,row (default: the image middle)",
                 [](IPG_TRANSFORMATION& op, const std::string& text) {
                   const auto comma = text.find(',');
                   if (comma == std::string::npos)
                     throw CliUsageError("Centre needs two values: column,row");
                   op.SetCentre(Cli_ParseValue<double>("Centre", text.substr(0, comma)),
                                Cli_ParseValue<double>("Centre", text.substr(comma + 1)));
                 });
  table->Param("WaveletLevel", &IPG_TRANSFORMATION::SetWaveletLevel, "compression factor: transform down to cols / level");
  table->Param("WaveletMethod", &IPG_TRANSFORMATION::SetWaveletMethod, "0 Daubechies-4, otherwise the 12-tap general transform");
  table->Param("WaveletRate", &IPG_TRANSFORMATION::SetWaveletRate, "compression rate (kept, not read by the compression)");
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

} // namespace
