// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_preview.h"
#include "cli/operator_registry.h"
#include "ipg/filtering/ipg_histo.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

// The histogram as the program runs it. Save stays a parameter of the program,
// not of the class table: where to write a file is the host's business, and
// IPG_HISTO::Save is an action run on the finished histogram, not a setting.
class CliHisto : public IPG_HISTO {
public:
  using IPG_HISTO::IPG_HISTO;
  std::string SavePath;
};

Json CountsOf(const CliHisto& h)
{
  Json::Table counts;
  if (h.GetHistoAddress() != nullptr && h.GetNbOfValues() > 0)
    counts.Values.assign(h.GetHistoAddress(), h.GetHistoAddress() + h.GetNbOfValues());
  return Json(std::move(counts));
}

const bool registered = [] {
  auto table = std::make_unique<CliOperatorTable<CliHisto>>(
      "IPG_HISTO", "histogram of the grey levels of an image, one bin per level", [](const CliImages& im) {
        auto op = std::make_unique<CliHisto>(im.in);
        op->SetTools(1400); // the only code; hosts set it before Apply()
        return op;
      });
  table->ParamFn("Save", "path", "write the histogram as text to this file after the run",
                 [](CliHisto& op, const std::string& path) { op.SavePath = path; });
  table->ResultFn("MinHisto", [](CliHisto& op) { return Json(op.GetMinHisto()); });
  table->ResultFn("MaxHisto", [](CliHisto& op) { return Json(op.GetMaxHisto()); });
  table->ResultFn("NbOfValues", [](CliHisto& op) { return Json(op.GetNbOfValues()); });
  table->ResultFn("CurrentMaxIndice", [](CliHisto& op) { return Json(op.GetCurrentMaxIndice()); });
  table->ResultFn("Max", [](CliHisto& op) { return Json(op.GetMax()); });
  table->ResultFn("Histo", [](CliHisto& op) { return CountsOf(op); });
  table->After([](CliHisto& op, const CliImages&, CliRunOutcome&) {
    if (!op.SavePath.empty())
      op.Save(op.SavePath.c_str());
  });
  table->Option("plot", "FILE.png", "draw the histogram as bars on a 512 x 256 PNG", CliWhen::AfterApply,
                [](CliHisto& op, const std::string& path, CliRunOutcome& outcome) {
                  if (!outcome.applied || op.GetHistoAddress() == nullptr)
                    return;
                  Cli_WriteHistogramPlot(std::vector<int>(op.GetHistoAddress(),
                                                          op.GetHistoAddress() + std::max(op.GetNbOfValues(), 0)),
                                         path);
                  outcome.results.Set("plot", path);
                });
  return Cli_Register(std::move(table));
}();

} // namespace
