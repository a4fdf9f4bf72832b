// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_classification_processing.h"
#include "ipg/measurement/ipg_texture_local.h"

namespace {

const bool textureMapRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_TEXTURE_LOCAL>>(
      "IPG_TEXTURE_LOCAL", "Haralick feature maps: co-occurrence features of a sliding window at every pixel",
      [](const CliImages& im) { return std::make_unique<IPG_TEXTURE_LOCAL>(im.in, im.roi); });
  table->Output("out", [](IPG_TEXTURE_LOCAL& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->Output("feature2", [](IPG_TEXTURE_LOCAL& op, DCM_STRUCT* out) { op.SetImaOutTwo(out); });
  return Cli_Register(std::move(table));
}();

const bool classificationRegistered = [] {
  using Op = IPG_CLASSIFICATION_PROCESSING;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_CLASSIFICATION_PROCESSING", "grey levels classified by the valleys of the smoothed histogram",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
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
