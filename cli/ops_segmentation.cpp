#include "cli/operator_registry.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/segmentation/ipg_connexity_processing.h"

namespace {

Json DoubleArray(const double* values, int n)
{
  Json::Array out;
  for (int i = 0; values != nullptr && i < n; ++i)
    out.emplace_back(values[i]);
  return Json(std::move(out));
}

Json ComponentsJson(const IPG_CONNEXITY_PROCESSING& op)
{
  Json::Array out;
  for (int k = 0; k < op.GetNbComponents(); ++k) {
    const IPG_CONNECTED_COMPONENT* component = op.GetComponent(k);
    Json::Array residents;
    for (int i = 0; i < component->GetNbResidents() && i < component->GetCapacity(); ++i)
      residents.emplace_back(Json::Array{Json(component->GetResidents()[i].GetX()),
                                         Json(component->GetResidents()[i].GetY())});
    Json item(Json::Object{});
    item.Set("index", component->GetIndex());
    item.Set("NbResidents", component->GetNbResidents());
    item.Set("residents", Json(std::move(residents)));
    out.push_back(std::move(item));
  }
  return Json(std::move(out));
}

const bool connexityRegistered = [] {
  using Op = IPG_CONNEXITY_PROCESSING;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_CONNEXITY_PROCESSING",
      "8-connected components of one grey value: keep the largest, moments, shape features",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.roi, kIpgRoiValue); });
  table->Code(800, "Labelling_8Neighbors").Code(801, "KeepLargestConnectedComponent");
  table->Code(802, "KeepNLargestConnectedComponent").Code(803, "(nothing)");
  table->Code(804, "ComputeGeometricMomentOfComponents").Code(805, "ComputeCentralMomentOfComponents");
  table->Code(806, "ShapesFeaturesOfComponents");
  table->Param("Value", &Op::SetValue, "grey value of the component pixels (default 16777217)");
  table->Param("NbCompMax", &Op::SetNbCompMax, "largest number of provisional labels (2000)");
  table->Param("NrOfComponentsToKeep", &Op::SetNrOfComponentsToKeep, "N of code 802 (1)");
  table->Param("P", &Op::SetP, "column order of the moments");
  table->Param("Q", &Op::SetQ, "row order of the moments");
  table->Param("MinimalSizeOfComponent", &Op::SetMinimalSizeOfComponent, "stored only");
  // A run starts from a fresh operator, so the codes that need a component list
  // label first.
  table->ApplyWith([](Op& op) {
    if (op.GetTools() != 800 && !op.Labelling_8Neighbors())
      return false;
    return op.Apply();
  });
  table->ResultFn("NbComponents", [](Op& op) { return Json(op.GetNbComponents()); });
  table->ResultFn("Components", [](Op& op) { return ComponentsJson(op); });
  table->ResultFn("MomentGeo", [](Op& op) { return DoubleArray(op.GetMomentGeo(), op.GetNbMomentGeo()); });
  table->ResultFn("MomentCent", [](Op& op) { return DoubleArray(op.GetMomentCent(), op.GetNbMomentCent()); });
  table->ResultFn("ShapeFeat", [](Op& op) {
    Json out(Json::Object{});
    if (op.GetShapeFeat() != nullptr) {
      out.Set("orientation", DoubleArray(static_cast<double*>(op.GetShapeFeat()->Get(0)), op.GetNbShapeFeat()));
      out.Set("elongation", DoubleArray(static_cast<double*>(op.GetShapeFeat()->Get(1)), op.GetNbShapeFeat()));
    }
    return out;
  });
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

} // namespace
