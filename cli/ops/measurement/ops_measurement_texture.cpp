// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/measurement/ipg_texture.h"

namespace {

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_TEXTURE>>(
      "IPG_TEXTURE", "grey-level co-occurrence matrix and Haralick features of an image or ROI",
      [](const CliImages& im) { return std::make_unique<IPG_TEXTURE>(im.in, im.roi); });
  table->Result("Energy", &IPG_TEXTURE::GetEnergy);
  table->Result("Contrast", &IPG_TEXTURE::GetContrast);
  table->Result("Correlation", &IPG_TEXTURE::GetCorrelation);
  table->Result("Homogeneity", &IPG_TEXTURE::GetHomogeneity);
  table->Result("Entropy", &IPG_TEXTURE::GetEntropy);
  table->ResultFn("Matrix", [](IPG_TEXTURE& op) {
    Json::Array out;
    for (double p : op.GetMatrix())
      out.emplace_back(p);
    return Json(std::move(out));
  });
  return Cli_Register(std::move(table));
}();

} // namespace
