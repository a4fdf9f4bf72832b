// SPDX-License-Identifier: Apache-2.0
// ipg run: builds one operator as a host would, runs it on DICOM files and
// writes its output image and numerical results.
#include "cli/cli_args.h"
#include "cli/cli_command.h"
#include "cli/cli_interrupt.h"
#include "cli/cli_io.h"
#include "cli/cli_pipeline.h"
#include "cli/cli_preview.h"
#include "cli/operator_registry.h"
#include "ipg/framework/ipg_memory.h"

#include <iostream>

namespace {

// The options every class takes; a class adds its own (CliOperatorTable::Option).
CliArgs RunGrammar(const CliOperator& op)
{
  CliArgs grammar;
  grammar.Option("tools", true).Option("set", true).Option("roi", true).Option("second", true);
  grammar.Option("mode", true).Option("output", true, {"-o"}).Option("png", true).Option("json", false);
  grammar.Option("frame", true).Option("precision", true).Option("colormap", true).Option("log", false);
  grammar.Option("save-pipeline", true).Option("append-pipeline", true);
  for (const CliOption& o : op.Options())
    grammar.Option(o.name, !o.valueName.empty());
  return grammar;
}

bool IsClassOption(const CliOperator& op, const std::string& name)
{
  for (const CliOption& o : op.Options())
    if (o.name == name)
      return true;
  return false;
}

CliSettings Settings(const CliOperator& op, const CliArgs& args)
{
  CliSettings settings;
  if (args.Has("tools"))
    settings.tools = Cli_ParseValue<int>("--tools", *args.Value("tools"));
  if (args.Has("mode"))
    settings.mode = Cli_ParseValue<short>("--mode", *args.Value("mode"));
  if (args.Has("precision")) {
    settings.precision = Cli_ParseValue<short>("--precision", *args.Value("precision"));
    if (*settings.precision < 1)
      throw CliUsageError("--precision must be 1 or more");
  }
  for (const std::string& assignment : args.All("set")) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0)
      throw CliUsageError("--set expects Name=Value, not '" + assignment + "'");
    settings.values.emplace_back(assignment.substr(0, equals), assignment.substr(equals + 1));
  }
  for (const auto& [name, value] : args.InOrder())
    if (IsClassOption(op, name))
      settings.options.emplace_back(name, value);
  return settings;
}

CliInputImages ReadInputs(const CliOperator& op, const CliArgs& args)
{
  if (args.Positional().size() != 1)
    throw CliUsageError(args.Positional().empty() ? "run needs an input file IN (ipg run --help)"
                                                  : "run takes one input file, not " +
                                                        std::to_string(args.Positional().size()));
  if (op.NeedsSecondInput() && !args.Has("second"))
    throw CliUsageError(op.Name() + " needs a second input image (--second FILE)");
  if ((args.Has("output") || args.Has("png")) && !op.WritesImage())
    throw CliUsageError(op.Name() + " has no output image: -o and --png do not apply");
  if ((args.Has("colormap") || args.Has("log")) && !args.Has("png"))
    throw CliUsageError("--colormap and --log shape the --png preview; give --png too");
  return Cli_ReadInputs(args.Positional()[0], args);
}

CliPreviewOptions PreviewOptions(const CliArgs& args)
{
  CliPreviewOptions options;
  if (args.Has("colormap"))
    options.map = Cli_ParseColormap(*args.Value("colormap"));
  options.log = args.Has("log");
  return options;
}

// Writes every output image: the first ("out") to -o / --png, the others beside
// them with their label appended.
Json WriteOutputs(const CliRunOutcome& outcome, const CliArgs& args)
{
  const CliPreviewOptions preview = PreviewOptions(args);
  Json written(Json::Object{});
  for (std::size_t i = 0; i < outcome.images.size(); ++i) {
    const auto& [label, image] = outcome.images[i];
    if (args.Has("output")) {
      const std::string path = i == 0 ? *args.Value("output") : Cli_DerivedPath(*args.Value("output"), label);
      Cli_WriteImage(*image, path);
      written.Set(label, path);
    }
    if (args.Has("png")) {
      const std::string path = i == 0 ? *args.Value("png") : Cli_DerivedPath(*args.Value("png"), label);
      Cli_WritePreview(*image, path, preview);
      written.Set(label + ".png", path);
    }
  }
  return written;
}

void PrintText(const Json& results)
{
  for (const auto& [name, value] : results.AsObject()) {
    std::cout << name << ": ";
    value.WriteText(std::cout);
    std::cout << "\n";
  }
}

int Run(const std::vector<std::string>& args)
{
  if (args.empty() || args[0].empty() || args[0][0] == '-')
    throw CliUsageError("run needs an operator CLASS first (ipg list shows them)");
  const CliOperator* op = Cli_FindOperator(args[0]);
  if (op == nullptr)
    throw CliUsageError("unknown operator class '" + args[0] + "' (ipg list shows them)");
  CliArgs parsed = RunGrammar(*op);
  parsed.Parse(std::vector<std::string>(args.begin() + 1, args.end()));
  const CliSettings settings = Settings(*op, parsed);
  const CliInputImages inputs = ReadInputs(*op, parsed);
  PreviewOptions(parsed); // a bad --colormap stops the run before it starts

  CliRunOutcome outcome = op->Run({inputs.in.get(), inputs.second.get(), inputs.roi.get()}, settings);
  Cli_StopIfInterrupted(); // before anything is written
  // No operator runs after this one: what they keep for a next call would only
  // add to the memory held while the output is written.
  Ipg_ReleaseCachedMemory();
  if (outcome.applied)
    outcome.results.Set("outputs", WriteOutputs(outcome, parsed));
  else if (!outcome.images.empty() && (parsed.Has("output") || parsed.Has("png")))
    std::cerr << "ipg: " << op->Name() << "::Apply() failed; no output image written\n";
  if (parsed.Has("save-pipeline"))
    Cli_WritePipeline(*parsed.Value("save-pipeline"), {Cli_DescribeRun(*op, settings, outcome)});
  if (parsed.Has("append-pipeline"))
    Cli_AppendPipelineStep(*parsed.Value("append-pipeline"), Cli_DescribeRun(*op, settings, outcome));
  if (parsed.Has("json")) {
    outcome.results.Write(std::cout, 2);
    std::cout << "\n";
  } else {
    PrintText(outcome.results);
  }
  return outcome.applied ? kCliOk : kCliFailed;
}

const bool registered = Cli_RegisterCommand({
    "run",
    "run one operator on a DICOM file, write its output and results",
    "usage: ipg run CLASS [--tools N] [--set Name=Value]... [--roi FILE] [--second FILE]\n"
    "               [--mode M] [--precision P] [--frame F] [CLASS OPTIONS] IN\n"
    "               [-o OUT.dcm] [--png OUT.png [--colormap MAP] [--log]] [--json]\n"
    "               [--save-pipeline FILE.json | --append-pipeline FILE.json]\n"
    "\n"
    "Builds the operator CLASS as a host would: its constructor with the input\n"
    "image (and ROI), SetDefaultParameters(), an output image of the input's\n"
    "geometry. Then sets each parameter through the class's own setter\n"
    "(--set LimitSup=100 calls SetLimitSup(100)), the operation code and the\n"
    "output mode, runs Apply(), writes the output image when the class has one\n"
    "and prints the numerical results: Apply()'s success, GetResult() and the\n"
    "class's own getters, those that the operation code fills (`ipg list CLASS`\n"
    "shows which codes fill which results, the parameters and class options).\n"
    "\n"
    "  --tools N        operation code (default: the class's SetDefaultParameters())\n"
    "  --set Name=Val   calls SetName(Val); repeatable, applied in order\n"
    "  --mode M         output mode: 300 clamp, 301 rescale to the bits stored\n"
    "                   (default), 302/304 extremes only, 303 absolute value\n"
    "  --precision P    precision of the output images: a real value v is stored\n"
    "                   as v x P (default: the input's precision, 1 for most files)\n"
    "  --roi FILE       ROI mask: pixels of value 16777217 are inside (a mask\n"
    "                   without that value counts every non-zero pixel inside)\n"
    "  --second FILE    second input image, for two-image operators\n"
    "  --frame F        frame of multi-frame input files (default 0)\n"
    "  -o, --output F   write the output image as DICOM; extra outputs go beside\n"
    "                   it as F-LABEL.dcm\n"
    "  --png F          write a PNG preview of the output image (black to white:\n"
    "                   its lowest to its highest pixel)\n"
    "  --colormap MAP   colours of the preview: gray (default), viridis (dark blue\n"
    "                   to yellow), diverging (blue below 0, grey at 0, red above,\n"
    "                   symmetric about 0: signed maps, wavelet coefficients)\n"
    "  --log            preview sign(v) log10(1 + |v|) of the real values v\n"
    "                   (spectra); the written DICOM keeps the values\n"
    "  --json           print the results as a JSON object (default: Name: value lines)\n"
    "  --save-pipeline F  record this run (class, class-type code, code, mode,\n"
    "                   parameters) as a pipeline for `ipg replay`\n"
    "  --append-pipeline F  add this run as the next step of pipeline F\n"
    "\n"
    "Operator messages appear on standard error as \"Information: <text>\".\n"
    "Exit status: 0 Apply() succeeded, 1 Apply() failed or a file could not be\n"
    "read or written, 2 bad usage, 130 interrupted by Ctrl-C (the operator stops\n"
    "and nothing is written).\n",
    Run,
});

} // namespace
