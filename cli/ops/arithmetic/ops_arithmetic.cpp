// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/arithmetic/ipg_change_dynamic.h"

namespace {

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_ARITHMETIC1>>(
      "IPG_ARITHMETIC1", "point operations on one image",
      [](const CliImages& im) { return std::make_unique<IPG_ARITHMETIC1>(im.in, im.roi); });
  table->Result("Variable", &IPG_ARITHMETIC1::GetVariable);
  table->Output("out", [](IPG_ARITHMETIC1& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

const bool registeredTwoImages = [] {
  using Op = IPG_ARITHMETIC2;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_ARITHMETIC2", "pixel-by-pixel combinations of two images (--second)",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.second, im.roi); });
  table->Result("ThresholdMin", &Op::GetThresholdMin);
  table->Result("ThresholdMax", &Op::GetThresholdMax);
  table->SecondInput([](Op& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

const bool registeredDynamic = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_CHANGE_DYNAMIC>>(
      "IPG_CHANGE_DYNAMIC", "cut, re-scale or take the absolute value of the grey-level dynamic",
      [](const CliImages& im) { return std::make_unique<IPG_CHANGE_DYNAMIC>(im.in, nullptr); });
  table->Result("LimitInf", &IPG_CHANGE_DYNAMIC::GetLimitInf);
  table->Result("LimitSup", &IPG_CHANGE_DYNAMIC::GetLimitSup);
  table->Output("out", [](IPG_CHANGE_DYNAMIC& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

} // namespace
