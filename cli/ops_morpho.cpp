#include "cli/operator_registry.h"
#include "ipg/filtering/ipg_morpho_processing.h"

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

namespace {

// A structuring element as "COLSxROWS:v,v,..." (row-major) or a square's values alone.
void SetUserElement(IPG_MORPHO_PROCESSING& op, const std::string& text)
{
  const std::string::size_type colon = text.find(':');
  std::vector<int> values;
  std::istringstream list(colon == std::string::npos ? text : text.substr(colon + 1));
  for (std::string item; std::getline(list, item, ',');)
    values.push_back(Cli_ParseValue<int>("UserFilter", item));
  int cols = 0, rows = 0;
  if (colon == std::string::npos) {
    cols = rows = static_cast<int>(std::lround(std::sqrt(static_cast<double>(values.size()))));
  } else {
    const std::string size = text.substr(0, colon);
    const std::string::size_type x = size.find_first_of("xX");
    if (x == std::string::npos)
      throw CliUsageError("UserFilter: size must read COLSxROWS, got '" + size + "'");
    cols = Cli_ParseValue<int>("UserFilter", size.substr(0, x));
    rows = Cli_ParseValue<int>("UserFilter", size.substr(x + 1));
  }
  if (cols < 1 || rows < 1 || cols > 255 || rows > 255 || static_cast<std::size_t>(cols) * rows != values.size())
    throw CliUsageError("UserFilter: " + std::to_string(values.size()) + " values do not fill a " +
                        std::to_string(cols) + "x" + std::to_string(rows) + " element");
  op.SetUserFilter(values.data(), cols, rows);
}

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<IPG_MORPHO_PROCESSING>>(
      "IPG_MORPHO_PROCESSING", "grey-level morphology: erosion, dilation, opening, closing, thinning, skeleton, "
                               "local contrast enhancement",
      [](const CliImages& im) { return std::make_unique<IPG_MORPHO_PROCESSING>(im.in, im.roi); });
  table->Code(1100, "Dilate").Code(1101, "Erode").Code(1102, "Open").Code(1103, "Close");
  table->Code(1104, "Erode").Code(1105, "Dilate");
  table->Code(1106, "Open").Code(1107, "Close");
  table->Code(1108, "Skeleton").Code(1109, "Thinning").Code(1110, "EnhancedImage");
  table->ParamFn("DefinedFilter", "integer",
                 "predefined structuring element (200 3x3 square, 201 cross, 203 5x5, 206 7x7, 209 11x11 disc...)",
                 [](IPG_MORPHO_PROCESSING& op, const std::string& text) {
                   op.SetDefinedFilter(Cli_ParseValue<int>("DefinedFilter", text));
                 });
  table->ParamFn("UserFilter", "COLSxROWS:v,v,...", "user structuring element, row-major, non-zero = part of it",
                 SetUserElement);
  table->ParamFn("ImageBorderType", "integer", "margin the element does not reach: 0/1 zero, 2 kept, 3 17000000",
                 [](IPG_MORPHO_PROCESSING& op, const std::string& text) {
                   op.SetImageBorderType(Cli_ParseValue<int>("ImageBorderType", text));
                 });
  table->Param("TypeFunction", &IPG_MORPHO_PROCESSING::SetTypeFunction,
               "enhancement contrast function: 0 1-exp(-p1 c), 1 ln(p1 c+1), 2 tanh(p1 c), 3 c^(p2/p1)");
  table->Param("WindowSize", &IPG_MORPHO_PROCESSING::SetWindowSize, "enhancement window side, in pixels");
  table->Param("ParamFct1", &IPG_MORPHO_PROCESSING::SetParamFct1, "enhancement function parameter p1");
  table->Param("ParamFct2", &IPG_MORPHO_PROCESSING::SetParamFct2, "enhancement function parameter p2");
  table->ResultFn("DefinedFilterNumber",
                  [](IPG_MORPHO_PROCESSING& op) { return Json(op.GetDefinedFilterNumber()); });
  table->Output("out", [](IPG_MORPHO_PROCESSING& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

} // namespace
