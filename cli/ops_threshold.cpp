#include "cli/operator_registry.h"
#include "ipg/filtering/ipg_generic_processing.h"

#include <optional>
#include <string>

namespace {

// Thresholding as the program runs it: the block size of Resample is a
// constructor argument, so ResolutionFactor rebuilds the operator for code 402.
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
  table->Code(400, "MakeBinary").Code(401, "MakeBinary");
  table->Code(402, "Resample").Code(403, "DoubleThreshold").Code(404, "BinarizeByOtsu");
  auto integer = [](const char* name, void (IPG_GENERIC_PROCESSING::*set)(int)) {
    return [name, set](Op& op, const std::string& v) { (op.*set)(Cli_ParseValue<int>(name, v)); };
  };
  auto small = [](const char* name, void (IPG_GENERIC_PROCESSING::*set)(short)) {
    return [name, set](Op& op, const std::string& v) { (op.*set)(Cli_ParseValue<short>(name, v)); };
  };
  table->ParamFn("SeuilMin", "integer", "lower (or only) threshold",
                 integer("SeuilMin", &IPG_GENERIC_PROCESSING::SetSeuilMin));
  table->ParamFn("SeuilMax", "integer", "upper threshold", integer("SeuilMax", &IPG_GENERIC_PROCESSING::SetSeuilMax));
  table->ParamFn("BinaryType", "integer", "1: set above (or inside) the thresholds, -1 / other: the reverse",
                 small("BinaryType", &IPG_GENERIC_PROCESSING::SetBinaryType));
  table->ParamFn("ThesholdType", "integer", "DoubleThreshold: 1 clamp, -1 zero outside, other mark outside",
                 small("ThesholdType", &IPG_GENERIC_PROCESSING::SetThesholdType));
  table->ParamFn("CheckIterative", "bool", "stored only",
                 [](Op& op, const std::string& v) { op.SetCheckIterative(Cli_ParseValue<bool>("CheckIterative", v)); });
  table->ParamFn("ResolutionFactor", "integer", "block size n of Resample (code 402)",
                 [](Op& op, const std::string& v) { op.Factor = Cli_ParseValue<int>("ResolutionFactor", v); });
  table->ResultFn("SeuilMin", [](Op& op) { return Json(op.GetSeuilMin()); });
  table->ResultFn("SeuilMax", [](Op& op) { return Json(op.GetSeuilMax()); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->ApplyWith([](Op& op) { return RunGeneric(op) != 0; });
  return Cli_Register(std::move(table));
}();

} // namespace
