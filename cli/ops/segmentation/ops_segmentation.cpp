// SPDX-License-Identifier: Apache-2.0
#include "cli/operator_registry.h"
#include "ipg/framework/ipg_output_mode.h"
#include "ipg/segmentation/ipg_connexity_processing.h"
#include "ipg/segmentation/ipg_convert_binary_to_object.h"
#include "ipg/segmentation/ipg_region.h"
#include "ipg/segmentation/ipg_roi.h"

#include <algorithm>
#include <sstream>

namespace {

Json DoubleArray(const double* values, int n)
{
  Json::Table out;
  if (values != nullptr && n > 0)
    out.Values.assign(values, values + n);
  return Json(std::move(out));
}

// "x,y" as two integers.
MTH_2D_INTEGER ParsePoint(const std::string& name, const std::string& text)
{
  std::istringstream in(text);
  int x = 0, y = 0;
  char comma = 0;
  if (!(in >> x >> comma >> y) || comma != ',' || !(in >> std::ws).eof())
    throw CliUsageError("parameter " + name + " expects x,y (two integers), got '" + text + "'");
  return MTH_2D_INTEGER(x, y);
}

Json ComponentsJson(const IPG_CONNEXITY_PROCESSING& op)
{
  Json::Array out;
  for (int k = 0; k < op.GetNbComponents(); ++k) {
    const IPG_CONNECTED_COMPONENT* component = op.GetComponent(k);
    Json::Table residents{{}, 2};
    const int count = std::min(component->GetNbResidents(), component->GetCapacity());
    residents.Values.reserve(2 * static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i) {
      residents.Values.push_back(component->GetResidents()[i].GetX());
      residents.Values.push_back(component->GetResidents()[i].GetY());
    }
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
  table->FilledBy("MomentGeo", {804}).FilledBy("MomentCent", {805}).FilledBy("ShapeFeat", {806});
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

const bool roiRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_ROI>>(
      "IPG_ROI", "region-of-interest image from a box, a circle or a mask (--roi)",
      [](const CliImages& im) { return std::make_unique<IPG_ROI>(im.in, im.roi); });
  auto point = [](const char* name, void (IPG_ROI::*set)(MTH_2D_INTEGER*)) {
    return [name, set](IPG_ROI& op, const std::string& text) {
      MTH_2D_INTEGER p = ParsePoint(name, text);
      (op.*set)(&p);
    };
  };
  table->ParamFn("TLCorner", "x,y", "top-left corner of the box, inclusive", point("TLCorner", &IPG_ROI::SetTLCorner));
  table->ParamFn("LRCorner", "x,y", "lower-right corner of the box, inclusive", point("LRCorner", &IPG_ROI::SetLRCorner));
  table->ParamFn("Centre", "x,y", "centre of the circle", point("Centre", &IPG_ROI::SetCentre));
  table->Output("out", [](IPG_ROI& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  // The output is allocated at the input's size; a cropped run keeps the box.
  table->After([](IPG_ROI& op, const CliImages&, CliRunOutcome& outcome) {
    if (!op.GetResize() || outcome.images.empty())
      return;
    // In 64 bits: corners may be any int.
    const long long cols = static_cast<long long>(op.GetLRCorner()->GetX()) - op.GetTLCorner()->GetX() + 1;
    const long long rows = static_cast<long long>(op.GetLRCorner()->GetY()) - op.GetTLCorner()->GetY() + 1;
    DCM_STRUCT* full = outcome.images[0].second.get();
    if (cols < 1 || rows < 1 || cols > full->GetNbOfCols() || rows > full->GetNbOfRows())
      return;
    auto cropped = std::make_unique<DCM_STRUCT>(*full, true, static_cast<int>(cols), static_cast<int>(rows));
    cropped->Data->SetMin();
    cropped->Data->SetMax();
    outcome.images[0].second = std::move(cropped);
  });
  return Cli_Register(std::move(table));
}();

// The contours of an image's object list as {name, points: [[x, y], ...]}.
Json ContoursJson(DCM_STRUCT* image)
{
  Json::Array out;
  const OBJ_OBJECTS_LIST* list = image->GetObjectsList();
  for (int i = 0; i < list->GetNbObjects(); ++i) {
    Json::Table points{{}, 2};
    for (const MTH_2D_DOUBLE& p : list->GetObject(i)->GetPoints()) {
      points.Values.push_back(p.GetX());
      points.Values.push_back(p.GetY());
    }
    Json item(Json::Object{});
    item.Set("name", list->GetObject(i)->GetName());
    item.Set("points", Json(std::move(points)));
    out.push_back(std::move(item));
  }
  return Json(std::move(out));
}

const bool convertRegistered = [] {
  using Op = IPG_CONVERT_BINARY_TO_OBJECT;
  auto table = std::make_unique<CliOperatorTable<Op>>(
      "IPG_CONVERT_BINARY_TO_OBJECT",
      "contours of the largest 8-connected regions of a binary mask (16777217 = object)",
      [](const CliImages& im) { return std::make_unique<Op>(im.in, im.second, im.roi); });
  table->SecondInput([](Op& op, DCM_STRUCT* second) { op.SetInSecond(second); }, false);
  table->Output("out", [](Op& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table->After([](Op&, const CliImages&, CliRunOutcome& outcome) {
    if (!outcome.images.empty())
      outcome.results.Set("Contours", ContoursJson(outcome.images[0].second.get()));
  });
  return Cli_Register(std::move(table));
}();

const bool regionRegistered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_REGION>>(
      "IPG_REGION", "seeded region growing: fixed range, variance-controlled widening, local statistics",
      [](const CliImages& im) { return std::make_unique<IPG_REGION>(im.in); });
  table->ParamFn("Seed", "x,y", "seed column and row", [](IPG_REGION& op, const std::string& text) {
    const MTH_2D_INTEGER seed = ParsePoint("Seed", text);
    op.SetSeed(seed.GetX(), seed.GetY());
  });
  table->Result("MinGL", &IPG_REGION::GetMinGL).Result("MaxGL", &IPG_REGION::GetMaxGL);
  table->Result("XSeed", &IPG_REGION::GetXSeed).Result("YSeed", &IPG_REGION::GetYSeed);
  table->Result("Tolerance", &IPG_REGION::GetTolerance).Result("RegionCount", &IPG_REGION::GetRegionCount);
  table->Result("RegionMean", &IPG_REGION::GetRegionMean).Result("RegionDeviation", &IPG_REGION::GetRegionDeviation);
  table->Output("out", [](IPG_REGION& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

} // namespace
