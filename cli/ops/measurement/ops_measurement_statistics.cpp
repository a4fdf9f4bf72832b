// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_statistic1.h"

namespace {

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_STATISTIC1>>(
      "IPG_STATISTIC1", "basic statistics, noise estimates, fractal and multifractal dimensions of one image",
      [](const CliImages& im) { return std::make_unique<IPG_STATISTIC1>(im.in, im.roi); });
  table->Result("Mean", &IPG_STATISTIC1::GetMean);
  table->Result("Min", &IPG_STATISTIC1::GetMin);
  table->Result("Max", &IPG_STATISTIC1::GetMax);
  table->Result("Variance", &IPG_STATISTIC1::GetVariance);
  table->Result("StdDev", &IPG_STATISTIC1::GetStdDev);
  table->Result("NbPixels", &IPG_STATISTIC1::GetNbPixels);
  table->Result("SNR", &IPG_STATISTIC1::GetSNR);
  auto array = [](const std::vector<double>& values) {
    Json::Array out;
    for (double v : values)
      out.emplace_back(v);
    return Json(std::move(out));
  };
  table->ResultFn("BoxSizes", [array](IPG_STATISTIC1& op) { return array(op.GetBoxSizes()); });
  table->ResultFn("BoxCounts", [array](IPG_STATISTIC1& op) { return array(op.GetBoxCounts()); });
  table->Result("FitR2", &IPG_STATISTIC1::GetFitR2);
  table->ResultFn("QValues", [array](IPG_STATISTIC1& op) { return array(op.GetQValues()); });
  table->ResultFn("Dq", [array](IPG_STATISTIC1& op) { return array(op.GetDq()); });
  table->ResultFn("Alpha", [array](IPG_STATISTIC1& op) { return array(op.GetAlpha()); });
  table->ResultFn("FAlpha", [array](IPG_STATISTIC1& op) { return array(op.GetFAlpha()); });
  table->ResultFn("HolderAlpha", [array](IPG_STATISTIC1& op) { return array(op.GetHolderAlpha()); });
  table->ResultFn("HolderFAlpha", [array](IPG_STATISTIC1& op) { return array(op.GetHolderFAlpha()); });
  // What each code delivers: Result for all but MinMaxGL (4), the dedicated
  // fields for BasicStats (6) only; the single-value queries 9 to 13 answer in
  // Result. The others keep their starting values (Min 16777217, Variance -1).
  table->FilledBy("Result", {0, 1, 2, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  table->FilledBy("Min", {4, 6}).FilledBy("Max", {4, 6});
  for (const char* basic : {"Mean", "Variance", "StdDev", "NbPixels", "SNR"})
    table->FilledBy(basic, {6});
  for (const char* box : {"BoxSizes", "BoxCounts", "FitR2"})
    table->FilledBy(box, {7, 8});
  for (const char* spectrum : {"QValues", "Dq", "Alpha", "FAlpha"})
    table->FilledBy(spectrum, {15});
  table->FilledBy("HolderAlpha", {14}).FilledBy("HolderFAlpha", {14});
  return Cli_Register(std::move(table));
}();

} // namespace
