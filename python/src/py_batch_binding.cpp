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

#include <cstdint>
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

// Lists of numbers held as tables: a record may hold one number per pixel.
CliFileRecord RecordOf(const std::string& text) { return Cli_RecordFromJson(Json::ParseTables(text)); }

std::string TextOf(const CliFileRecord& record) { return Cli_RecordToJson(record).Dump(-1); }

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

using ReportLine = std::tuple<std::uint64_t, std::uint64_t>;

ReportLine LineTuple(const CliReportLine& line) { return {line.Offset, line.Length}; }
CliReportLine LineOf(const ReportLine& line) { return {std::get<0>(line), std::get<1>(line)}; }

std::map<std::string, ReportLine> IndexReport(const std::string& path)
{
  std::map<std::string, ReportLine> lines;
  for (const auto& [input, line] : Cli_IndexReport(path))
    lines[input] = LineTuple(line);
  return lines;
}

void BindReport(py::module_& m)
{
  py::class_<CliFileRecord>(m, "BatchRecord",
                            "One input's record, read once from its JSON text (lists of numbers held as tables).")
      .def(py::init(&RecordOf), py::arg("text"))
      .def_readonly("input", &CliFileRecord::input)
      .def_property_readonly(
          "error",
          [](const CliFileRecord& record) {
            return record.Succeeded() ? std::nullopt : std::optional<std::string>(record.error);
          },
          "None when every step succeeded and every file was written.");
  py::class_<CliReportWriter>(m, "BatchReport", "The JSON-lines report of a batch, open for appending.")
      .def(py::init([](const std::string& path, const std::vector<ReportLine>& kept) {
             std::vector<CliReportLine> lines;
             for (const ReportLine& line : kept)
               lines.push_back(LineOf(line));
             return std::make_unique<CliReportWriter>(path, lines);
           }),
           py::arg("path"), py::arg("kept"),
           "Starts the file with the kept lines, (offset, length) of the report there now, replacing it whole.")
      .def("append", &CliReportWriter::Append, py::arg("record"), "Appends one record as one line, in one write.");
  m.def("batch_index_report", &IndexReport, py::arg("path"),
        "(offset, length) of the last record of each input in a report, read a line at a time; none for a "
        "missing file.");
  m.def(
      "batch_report_text",
      [](const std::string& path, std::uint64_t offset, std::uint64_t length) {
        return Cli_ReadReportText(path, CliReportLine{offset, length});
      },
      py::arg("path"), py::arg("offset"), py::arg("length"), "The record (JSON text) at that place of a report.");
  m.def("batch_record_complete", &Cli_RecordComplete, py::arg("record"),
        "Whether the record succeeded and every output it lists exists.");
  py::class_<CliResultsTable>(m, "ResultsTable",
                              "The results table of a batch; each row waits in a scratch file beside it.")
      .def(py::init<const std::string&, std::size_t>(), py::arg("path"), py::arg("inputs"))
      .def(
          "set",
          [](CliResultsTable& table, std::size_t input, const CliFileRecord& record) {
            table.Has(input); // IndexError beyond the inputs, before anything is written
            table.Set(input, record);
          },
          py::arg("input"), py::arg("record"), "The row of an input (its index), from its record.")
      .def("write", &CliResultsTable::Write, "Writes the table of the rows set, in input order.");
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
