// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/correction/ipg_gridcorrection.h"

#include <vector>

namespace {

constexpr int kCorrectWithGridCode = 1701;

// Distortion correction as the program runs it: code 1701 with --second fits
// the model on that calibration-grid image first, then corrects the input with
// it; the other codes ignore the second image.
class CliGridCorrection : public IPG_GRIDCORRECTION {
public:
  using IPG_GRIDCORRECTION::IPG_GRIDCORRECTION;
  using LibraryClass = IPG_GRIDCORRECTION;
  DCM_STRUCT* Grid = nullptr;
};

bool RunGridCorrection(CliGridCorrection& op)
{
  if (op.Grid != nullptr && op.GetTools() == kCorrectWithGridCode) {
    DCM_STRUCT* input = op.GetImaIn();
    op.SetImaIn(op.Grid);
    const bool fitted = op.DetectAndFit();
    op.SetImaIn(input);
    if (!fitted)
      return false;
  }
  return op.Apply();
}

Json Points(const std::vector<IPG_REAL_POINT>& points)
{
  Json::Array out;
  for (const IPG_REAL_POINT& p : points)
    out.emplace_back(Json::Array{Json(p.X), Json(p.Y)});
  return Json(std::move(out));
}

Json Reals(const std::vector<double>& values)
{
  Json::Array out;
  for (double v : values)
    out.emplace_back(v);
  return Json(std::move(out));
}

const bool registered = [] {
  using Op = CliGridCorrection;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_GRIDCORRECTION", "calibration-bead grid: distortion model fitted, images corrected through it",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->SecondInput([](Op& op, DCM_STRUCT* grid) { op.Grid = grid; }, false);
  table->ApplyWith(RunGridCorrection);
  table->ResultFn("NumberOfBeads", [](Op& op) { return Json(op.GetNumberOfBeads()); });
  table->ResultFn("DetectedSpots", [](Op& op) { return Json(op.GetNumberOfDetectedSpots()); });
  table->ResultFn("ResidualRms", [](Op& op) { return Json(op.GetResidualRms()); });
  table->ResultFn("FittedOrder", [](Op& op) { return Json(op.GetFittedOrder()); });
  table->ResultFn("ModelCentre", [](Op& op) {
    return Json(Json::Array{Json(op.GetModelCentre().X), Json(op.GetModelCentre().Y)});
  });
  table->ResultFn("ModelScale", [](Op& op) { return Json(op.GetModelScale()); });
  table->ResultFn("CoefficientsX", [](Op& op) { return Reals(op.GetCoefficientsX()); });
  table->ResultFn("CoefficientsY", [](Op& op) { return Reals(op.GetCoefficientsY()); });
  table->ResultFn("DetectedBeads", [](Op& op) { return Points(op.GetDetectedBeads()); });
  table->ResultFn("IdealBeads", [](Op& op) { return Points(op.GetIdealBeads()); });
  table->ResultFn("BeadPlaces", [](Op& op) {
    Json::Array out;
    for (const IPG_POINT& p : op.GetBeadPlaces())
      out.emplace_back(Json::Array{Json(p.X), Json(p.Y)});
    return Json(std::move(out));
  });
  return Cli_Register(std::move(table));
}();

} // namespace
