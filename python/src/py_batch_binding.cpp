// SPDX-License-Identifier: Apache-2.0
#include "py_batch_binding.h"

#include "py_library_call.h"

#include "cli/cli_batch_file.h"
#include "cli/cli_batch_inputs.h"
#include "cli/cli_batch_report.h"
#include "cli/cli_io.h"
#include "dcm/dcm_io.h"
#include "ipg/framework/ipg_threads.h"

#include <pybind11/stl.h>

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace py = pybind11;
namespace fs = std::filesystem;

namespace {

CliFileRecord RecordOf(const std::string& text) { return Cli_RecordFromJson(Json::Parse(text)); }

std::string TextOf(const CliFileRecord& record) { return Cli_RecordToJson(record).Dump(-1); }

std::vector<CliFileRecord> RecordsOf(const std::vector<std::string>& texts)
{
  std::vector<CliFileRecord> records;
  for (const std::string& text : texts)
    records.push_back(RecordOf(text));
  return records;
}

CliFileOptions FileOptions(const std::string& second, const std::string& roi, unsigned frame, bool png,
                           const std::optional<std::string>& colormap, bool log)
{
  if ((colormap || log) && !png)
    throw CliUsageError("colormap and log shape the PNG previews; give png=True too");
  CliFileOptions options;
  options.second = second;
  options.roi = roi;
  options.frame = frame;
  options.png = png;
  if (colormap)
    options.preview.map = Cli_ParseColormap(*colormap);
  options.preview.log = log;
  return options;
}

// The pipeline of a file (isPath) or of its JSON text, checked as `ipg batch`
// checks it before any input runs; returns it as compact JSON text.
std::string PreparePipeline(const std::string& source, bool isPath, bool hasSecond,
                            const std::optional<std::string>& colormap, bool png, bool log)
{
  FileOptions("", "", 0, png, colormap, log);
  const std::vector<CliPipelineStep> steps =
      isPath ? Cli_ReadPipeline(source) : Cli_PipelineFromJson(Json::Parse(source));
  for (const CliPipelineStep& step : steps)
    if (Cli_StepOperator(step).NeedsSecondInput() && !hasSecond)
      throw CliUsageError(step.className + " needs a second input image (second=FILE)");
  return Cli_PipelineToJson(steps).Dump(-1);
}

// The process-wide settings of one file's run, as an `ipg batch` worker has
// them: isolated decoding (a hostile file ends a decoder child, not the
// worker) and the operators' thread count; the caller's come back after.
class FileRunSettings {
public:
  explicit FileRunSettings(int threads) : Isolated(Dcm_SetIsolatedDecoding(true)), Threads(Ipg_GetNumThreads())
  {
    Ipg_SetNumThreads(threads);
  }
  ~FileRunSettings()
  {
    Dcm_SetIsolatedDecoding(Isolated);
    Ipg_SetNumThreads(Threads);
  }
  FileRunSettings(const FileRunSettings&) = delete;
  FileRunSettings& operator=(const FileRunSettings&) = delete;

private:
  bool Isolated;
  int Threads;
};

// Cli_RunPipelineOnFile collects messages through the process-wide handler,
// so files of one process take turns; threads of a worker still help through
// the operators' own threads.
std::mutex& FileTurn()
{
  static std::mutex turn;
  return turn;
}

std::string RunFile(const std::string& pipelineText, const std::string& input, const std::string& relative,
                    const std::string& outdir, const std::string& second, const std::string& roi, unsigned frame,
                    bool png, const std::optional<std::string>& colormap, bool log, int threads)
{
  const std::vector<CliPipelineStep> steps = Cli_PipelineFromJson(Json::Parse(pipelineText));
  const CliFileOptions options = FileOptions(second, roi, frame, png, colormap, log);
  // Below outdir at the input's place, as `ipg batch` puts it.
  const std::string folder = (fs::path(outdir) / fs::path(relative).parent_path()).string();
  PyLibraryCall call;
  std::string text = call.Run([&] {
    const std::lock_guard<std::mutex> turn(FileTurn());
    const FileRunSettings settings(threads);
    return TextOf(Cli_RunPipelineOnFile(steps, input, folder, options));
  });
  call.RaiseCallbackError();
  return text;
}

std::vector<std::tuple<std::string, std::string, std::string>> GatherInputs(const std::vector<std::string>& arguments,
                                                                            const std::string& outdir)
{
  std::vector<std::tuple<std::string, std::string, std::string>> inputs;
  for (const CliBatchInput& input : Cli_GatherInputs(arguments, outdir))
    inputs.emplace_back(input.path, input.relative, input.problem);
  return inputs;
}

std::map<std::string, std::string> ReadReport(const std::string& path)
{
  std::map<std::string, std::string> texts;
  for (const auto& [input, record] : Cli_ReadReport(path))
    texts[input] = TextOf(record);
  return texts;
}

void BindReport(py::module_& m)
{
  py::class_<CliReportWriter>(m, "BatchReport", "The JSON-lines report of a batch, open for appending.")
      .def(py::init([](const std::string& path, const std::vector<std::string>& kept) {
             return std::make_unique<CliReportWriter>(path, RecordsOf(kept));
           }),
           py::arg("path"), py::arg("kept"), "Starts the file with the kept records, replacing it whole.")
      .def(
          "append", [](CliReportWriter& report, const std::string& text) { report.Append(RecordOf(text)); },
          py::arg("record"), "Appends one record (JSON text) as one line, in one write.");
  m.def("batch_read_report", &ReadReport, py::arg("path"),
        "The last record (JSON text) of each input in a report; none for a missing file.");
  m.def(
      "batch_record_complete", [](const std::string& text) { return Cli_RecordComplete(RecordOf(text)); },
      py::arg("record"), "Whether the record succeeded and every output it lists exists.");
  m.def(
      "batch_write_csv",
      [](const std::string& path, const std::vector<std::string>& texts) {
        Cli_WriteResultsCsv(path, RecordsOf(texts));
      },
      py::arg("path"), py::arg("records"), "The results table of the records, in their order.");
}

} // namespace

void Py_BindBatch(py::module_& m)
{
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error)
        std::rethrow_exception(error);
    } catch (const CliFileError& file) {
      PyErr_SetString(PyExc_OSError, file.what());
    }
  });
  m.def("batch_prepare", &PreparePipeline, py::arg("pipeline"), py::arg("is_path"), py::arg("has_second"),
        py::arg("colormap") = std::nullopt, py::arg("png") = false, py::arg("log") = false,
        "The pipeline as JSON text; ValueError for what would fail on every input.");
  m.def("batch_inputs", &GatherInputs, py::arg("arguments"), py::arg("outdir"),
        "(path, place below outdir, problem) of each input, as ipg batch expands them.");
  m.def("batch_run_file", &RunFile, py::arg("pipeline"), py::arg("input"), py::arg("relative"), py::arg("outdir"),
        py::arg("second") = "", py::arg("roi") = "", py::arg("frame") = 0u, py::arg("png") = false,
        py::arg("colormap") = std::nullopt, py::arg("log") = false, py::arg("threads") = 1,
        "One input through the pipeline as an ipg batch worker runs it; its record as JSON text.");
  BindReport(m);
}
