#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_statistic1.h"

namespace {

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_STATISTIC1>>(
      "IPG_STATISTIC1", "basic statistics and noise estimates of one image",
      [](const CliImages& im) { return std::make_unique<IPG_STATISTIC1>(im.in, im.roi); });
  table->Code(0, "AverageGL").Code(1, "EstimateNoisePercent").Code(2, "SignalToNoiseRatio");
  table->Code(4, "MinMaxGL").Code(6, "BasicStats").Code(9, "MinGL").Code(10, "MaxGL");
  table->Code(11, "Variance").Code(12, "StdDeviation").Code(13, "NumberOfPixels").Code(16, "SumOfPixels");
  table->Result("Mean", &IPG_STATISTIC1::GetMean);
  table->Result("Min", &IPG_STATISTIC1::GetMin);
  table->Result("Max", &IPG_STATISTIC1::GetMax);
  table->Result("Variance", &IPG_STATISTIC1::GetVariance);
  table->Result("StdDev", &IPG_STATISTIC1::GetStdDev);
  table->Result("NbPixels", &IPG_STATISTIC1::GetNbPixels);
  table->Result("SNR", &IPG_STATISTIC1::GetSNR);
  return Cli_Register(std::move(table));
}();

} // namespace
