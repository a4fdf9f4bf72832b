#include "cli/operator_registry.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"

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

} // namespace
