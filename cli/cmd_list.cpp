// SPDX-License-Identifier: Apache-2.0
// ipg list: the operator classes, their codes, parameters, results and options.
#include "cli/cli_args.h"
#include "cli/cli_command.h"
#include "cli/operator_registry.h"

#include <iostream>

namespace {

// "0-2, 6, 9-13": the codes that fill a result, runs of consecutive codes joined.
std::string CodeRanges(const std::vector<int>& codes)
{
  std::string text;
  for (std::size_t i = 0; i < codes.size();) {
    std::size_t last = i;
    while (last + 1 < codes.size() && codes[last + 1] == codes[last] + 1)
      ++last;
    text += (text.empty() ? "" : ", ") + std::to_string(codes[i]);
    if (last > i)
      text += (last == i + 1 ? ", " : "-") + std::to_string(codes[last]);
    i = last + 1;
  }
  return text;
}

// A result's name, with the codes that fill it when not every code does.
std::string ResultLabel(const CliOperator& op, const std::string& name)
{
  const std::vector<int>* codes = op.FillingCodes(name);
  return codes == nullptr ? name : name + " (" + CodeRanges(*codes) + ")";
}

Json FillingCodes(const CliOperator& op)
{
  Json filled(Json::Object{});
  for (const std::string& name : op.ResultNames())
    if (const std::vector<int>* codes = op.FillingCodes(name)) {
      Json::Array list(codes->begin(), codes->end());
      filled.Set(name, Json(std::move(list)));
    }
  if (const std::vector<int>* codes = op.FillingCodes("Result"))
    filled.Set("Result", Json(Json::Array(codes->begin(), codes->end())));
  return filled;
}

Json Describe(const CliOperator& op)
{
  Json::Array codes, parameters, results, options;
  for (const CliCode& c : op.Codes())
    codes.push_back(Json(Json::Object{{"code", c.code}, {"method", c.method}}));
  for (const CliParameter& p : op.Parameters())
    parameters.push_back(Json(Json::Object{{"name", p.name}, {"type", p.type}, {"description", p.description}}));
  for (const std::string& r : op.ResultNames())
    results.push_back(Json(r));
  for (const CliOption& o : op.Options())
    options.push_back(Json(Json::Object{{"name", "--" + o.name},
                                        {"value", o.valueName},
                                        {"description", o.description},
                                        {"when", o.when == CliWhen::BeforeApply ? "before" : "after"}}));
  return Json(Json::Object{{"class", op.Name()},
                           {"summary", op.Summary()},
                           {"codes", codes},
                           {"parameters", parameters},
                           {"results", results},
                           {"filled_by", FillingCodes(op)},
                           {"options", options},
                           {"second_input", op.NeedsSecondInput()},
                           {"output_image", op.WritesImage()}});
}

void PrintText(const CliOperator& op)
{
  std::cout << op.Name() << " - " << op.Summary() << "\n";
  std::cout << "  codes (--tools):\n";
  for (const CliCode& c : op.Codes())
    std::cout << "    " << c.code << "  " << c.method << "\n";
  if (!op.Parameters().empty())
    std::cout << "  parameters:\n";
  for (const CliParameter& p : op.Parameters())
    std::cout << "    --set " << p.name << "=<" << p.type << ">  " << p.description << "\n";
  for (const CliOption& o : op.Options())
    std::cout << "    --" << o.name << (o.valueName.empty() ? "" : " " + o.valueName) << "  " << o.description << "\n";
  std::string results = ResultLabel(op, "Result");
  for (const std::string& r : op.ResultNames())
    results += ", " + ResultLabel(op, r);
  std::cout << "  results: " << results << "\n";
  std::cout << "  images: input" << (op.NeedsSecondInput() ? ", second input (--second)" : "")
            << (op.WritesImage() ? ", output (-o)" : ", no output image") << "\n";
}

int List(const std::vector<std::string>& args)
{
  CliArgs parsed;
  parsed.Option("json", false);
  parsed.Parse(args);
  std::vector<const CliOperator*> chosen;
  for (const std::string& name : parsed.Positional()) {
    const CliOperator* op = Cli_FindOperator(name);
    if (op == nullptr)
      throw CliUsageError("unknown operator class '" + name + "' (ipg list shows them)");
    chosen.push_back(op);
  }
  if (chosen.empty())
    chosen = Cli_Operators();
  if (parsed.Has("json")) {
    Json::Array all;
    for (const CliOperator* op : chosen)
      all.push_back(Describe(*op));
    std::cout << Json(all).Dump(2) << "\n";
    return kCliOk;
  }
  for (const CliOperator* op : chosen)
    PrintText(*op);
  return kCliOk;
}

const bool registered = Cli_RegisterCommand({
    "list",
    "every operator class: operation codes, parameters, results",
    "usage: ipg list [CLASS...] [--json]\n"
    "\n"
    "Lists every operator class that `ipg run` reaches (or only the classes named):\n"
    "its operation codes (--tools) with their method names, its settable parameters\n"
    "(--set Name=Value) with their types, its numerical results, its own options\n"
    "and the images it takes and writes. A result followed by codes is filled by\n"
    "those codes only; `ipg run` leaves it out for the others.\n"
    "\n"
    "  --json   the same as a JSON array of objects\n",
    List,
});

} // namespace
