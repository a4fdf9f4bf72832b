// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/segmentation/ipg_deformable_surface.h"
#include "ipg/segmentation/ipg_deformable_surface_cost_fct.h"

namespace {

// The points of a contour as [[x, y], ...] (column, row).
Json PointsJson(const std::vector<MTH_2D_DOUBLE>& points)
{
  Json::Array out;
  for (const MTH_2D_DOUBLE& p : points)
    out.emplace_back(Json::Array{Json(p.GetX()), Json(p.GetY())});
  return Json(std::move(out));
}

const bool snakeRegistered = [] {
  using Op = IPG_DEFORMABLE_SURFACE;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_DEFORMABLE_SURFACE", "closed snake driven by gradient vector flow; output the mask of the final contour",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->ResultFn("Contour", [](Op& op) { return PointsJson(op.GetContour()); });
  return Cli_Register(std::move(table));
}();

const bool ellipseRegistered = [] {
  using Op = IPG_DEFORMABLE_SURFACE_COST_FCT;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_DEFORMABLE_SURFACE_COST_FCT",
      "ellipse fitted on the edges by simulated annealing of the contour energy; output its mask",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi); });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->ResultFn("Ellipse", [](Op& op) {
    Json out(Json::Object{});
    const std::vector<double>& e = op.GetEllipse();
    if (e.size() == 5) {
      out.Set("CentreX", e[0]);
      out.Set("CentreY", e[1]);
      out.Set("SemiAxisA", e[2]);
      out.Set("SemiAxisB", e[3]);
      out.Set("Angle", e[4]);
    }
    return out;
  });
  table->ResultFn("Contour", [](Op& op) { return PointsJson(op.GetContour()); });
  return Cli_Register(std::move(table));
}();

} // namespace
