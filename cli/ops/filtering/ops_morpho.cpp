// SPDX-License-Identifier: Apache-2.0
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
  table->ParamFn("UserFilter", "COLSxROWS:v,v,...", "user structuring element, row-major, non-zero = part of it",
                 SetUserElement);
  table->ResultFn("DefinedFilterNumber",
                  [](IPG_MORPHO_PROCESSING& op) { return Json(op.GetDefinedFilterNumber()); });
  table->Output("out", [](IPG_MORPHO_PROCESSING& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  return Cli_Register(std::move(table));
}();

} // namespace
