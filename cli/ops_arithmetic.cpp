#include "cli/operator_registry.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/arithmetic/ipg_change_dynamic.h"

#include <optional>
#include <string>

namespace {

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_ARITHMETIC1>>(
      "IPG_ARITHMETIC1", "point operations on one image",
      [](const CliImages& im) { return std::make_unique<IPG_ARITHMETIC1>(im.in, im.roi); });
  table->Code(200, "AddConstant").Code(201, "MultiplyConstant").Code(202, "Abs").Code(203, "Square");
  table->Code(204, "RootSquare").Code(205, "DivideConstant").Code(206, "PowerN").Code(207, "Log10");
  table->Code(208, "Log").Code(209, "InvLog10").Code(210, "Exp").Code(211, "DegToRad").Code(212, "RadToDeg");
  table->Param("Variable", &IPG_ARITHMETIC1::SetVariable, "the constant: addend, factor, divisor or exponent");
  table->Result("Variable", &IPG_ARITHMETIC1::GetVariable);
  table->Output("out", [](IPG_ARITHMETIC1& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

// Two-image arithmetic as the program runs it: OptimalModel chooses the model of
// the optimal difference (code 301), which Apply() cannot reach.
class CliArithmetic2 : public IPG_ARITHMETIC2 {
public:
  using IPG_ARITHMETIC2::IPG_ARITHMETIC2;
  using LibraryClass = IPG_ARITHMETIC2;
  std::optional<int> OptimalModel;
};

const bool registeredTwoImages = [] {
  using Op = CliArithmetic2;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_ARITHMETIC2", "pixel-by-pixel combinations of two images (--second)",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.second, im.roi); });
  table->Code(300, "MakeLogDifferenceImage").Code(301, "MakeOptimalDifferenceImage").Code(302, "MakeSumImage");
  table->Code(303, "MakeDifferenceImage").Code(304, "MakeAbsoluteSubstraction").Code(305, "DivideImage");
  table->ParamFn("ThresholdMin", "integer", "lower bound of the difference window (-1: off)",
                 [](Op& op, const std::string& v) { op.SetThresholdMin(Cli_ParseValue<int>("ThresholdMin", v)); });
  table->ParamFn("ThresholdMax", "integer", "upper bound of the difference window (-1: off)",
                 [](Op& op, const std::string& v) { op.SetThresholdMax(Cli_ParseValue<int>("ThresholdMax", v)); });
  table->ParamFn("OptimalModel", "integer", "model of code 301: 0 gain and gamma fit (default), 1 histogram specification",
                 [](Op& op, const std::string& v) { op.OptimalModel = Cli_ParseValue<int>("OptimalModel", v); });
  table->ResultFn("ThresholdMin", [](Op& op) { return Json(op.GetThresholdMin()); });
  table->ResultFn("ThresholdMax", [](Op& op) { return Json(op.GetThresholdMax()); });
  table->SecondInput([](Op& op, DCM_STRUCT* second) { op.SetInSecond(second); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->ApplyWith([](Op& op) {
    if (op.GetTools() == 301 && op.OptimalModel) {
      op.MakeOptimalDifferenceImage(*op.OptimalModel);
      return true; // as Apply() reports every code from 300 to 305
    }
    return op.Apply();
  });
  return Cli_Register(std::move(table));
}();

const bool registeredDynamic = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_CHANGE_DYNAMIC>>(
      "IPG_CHANGE_DYNAMIC", "cut, re-scale or take the absolute value of the grey-level dynamic",
      [](const CliImages& im) { return std::make_unique<IPG_CHANGE_DYNAMIC>(im.in, nullptr); });
  table->Code(300, "GetCutImage").Code(301, "GetRedynImage").Code(303, "GetAbsoluteImage");
  table->Param("LimitInf", &IPG_CHANGE_DYNAMIC::SetLimitInf, "lower limit: window bottom or bottom of the new range");
  table->Param("LimitSup", &IPG_CHANGE_DYNAMIC::SetLimitSup, "upper limit: window top or top of the new range");
  table->Result("LimitInf", &IPG_CHANGE_DYNAMIC::GetLimitInf);
  table->Result("LimitSup", &IPG_CHANGE_DYNAMIC::GetLimitSup);
  table->Output("out", [](IPG_CHANGE_DYNAMIC& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

} // namespace
