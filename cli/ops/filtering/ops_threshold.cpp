// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/filtering/ipg_generic_processing.h"

#include <optional>
#include <string>

namespace {

// Thresholding as the program runs it. The block size of Resample is only a
// constructor argument of the library class (no setter, so no class-table
// entry): ResolutionFactor is the program's and rebuilds the operator for 402.
class CliGeneric : public IPG_GENERIC_PROCESSING {
public:
  using IPG_GENERIC_PROCESSING::IPG_GENERIC_PROCESSING;
  using LibraryClass = IPG_GENERIC_PROCESSING;
  std::optional<int> Factor;
};

int RunGeneric(CliGeneric& op)
{
  if (op.GetTools() != 402 || !op.Factor)
    return op.Apply();
  IPG_GENERIC_PROCESSING resampler(op.GetImaIn(), *op.Factor);
  resampler.SetImaOut(op.GetImaOut());
  resampler.SetMode(op.GetMode());
  return resampler.Resample();
}

const bool registered = [] {
  using Op = CliGeneric;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_GENERIC_PROCESSING", "binarisation by thresholds or Otsu, band clipping, block-average resampling",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
  table->ParamFn("ResolutionFactor", "integer", "block size n of Resample (code 402)",
                 [](Op& op, const std::string& v) { op.Factor = Cli_ParseValue<int>("ResolutionFactor", v); });
  table->ResultFn("SeuilMin", [](Op& op) { return Json(op.GetSeuilMin()); });
  table->ResultFn("SeuilMax", [](Op& op) { return Json(op.GetSeuilMax()); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->ApplyWith([](Op& op) { return RunGeneric(op) != 0; });
  return Cli_Register(std::move(table));
}();

} // namespace
