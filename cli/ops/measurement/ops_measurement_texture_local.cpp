#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_classification_processing.h"
#include "ipg/measurement/ipg_texture_local.h"

namespace {

const bool textureMapRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_TEXTURE_LOCAL>>(
      "IPG_TEXTURE_LOCAL", "Haralick feature maps: co-occurrence features of a sliding window at every pixel",
      [](const CliImages& im) { return std::make_unique<IPG_TEXTURE_LOCAL>(im.in, im.roi); });
  table->Code(1510, "ComputeFeatureMap");
  table->Param("WindowSize", &IPG_TEXTURE_LOCAL::SetWindowSize, "odd window side, at least 3 (default 7)");
  table->Param("Distance", &IPG_TEXTURE_LOCAL::SetDistance, "pixel distance of the pairs, below WindowSize (default 1)");
  table->Param("Angle", &IPG_TEXTURE_LOCAL::SetAngle, "direction 0, 45, 90 or 135 degrees (default 0)");
  table->Param("GreyLevels", &IPG_TEXTURE_LOCAL::SetGreyLevels, "quantisation classes 2-256 (default 16)");
  table->Param("Symmetric", &IPG_TEXTURE_LOCAL::SetSymmetric, "count each pair both ways (default true)");
  table->Param("Feature", &IPG_TEXTURE_LOCAL::SetFeature,
               "feature of the main output: 0 energy, 1 contrast, 2 correlation, 3 homogeneity, 4 entropy (default 1)");
  table->Param("FeatureTwo", &IPG_TEXTURE_LOCAL::SetFeatureTwo, "feature of the image 'feature2' (default 4)");
  table->Output("out", [](IPG_TEXTURE_LOCAL& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->Output("feature2", [](IPG_TEXTURE_LOCAL& op, DCM_STRUCT* out) { op.SetImaOutTwo(out); });
  return Cli_Register(std::move(table));
}();

const bool classificationRegistered = [] {
  using Op = IPG_CLASSIFICATION_PROCESSING;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_CLASSIFICATION_PROCESSING", "grey levels classified by the valleys of the smoothed histogram",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
  table->Code(1600, "ClassifyByHistogramValleys");
  table->Param("SmoothingWidth", &Op::SetSmoothingWidth, "odd moving-average width in bins (default 5)");
  table->Param("MinValleyDepth", &Op::SetMinValleyDepth,
               "smallest valley depth kept, as a fraction of the highest smoothed bin (default 0.05)");
  table->Param("MaxClasses", &Op::SetMaxClasses, "largest number of classes, 1-256 (default 16)");
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->ResultFn("Thresholds", [](Op& op) {
    Json::Array out;
    for (int t : op.GetThresholds())
      out.emplace_back(t);
    return Json(std::move(out));
  });
  return Cli_Register(std::move(table));
}();

} // namespace
