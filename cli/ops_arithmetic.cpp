#include "cli/operator_registry.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"

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

} // namespace
