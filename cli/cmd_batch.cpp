// SPDX-License-Identifier: Apache-2.0
// ipg batch: a saved pipeline over many files, in worker processes, with a
// report that lets a stopped run resume.
#include "cli/cli_args.h"
#include "cli/cli_batch_file.h"
#include "cli/cli_batch_inputs.h"
#include "cli/cli_batch_pool.h"
#include "cli/cli_batch_report.h"
#include "cli/cli_command.h"
#include "cli/cli_interrupt.h"
#include "cli/cli_io.h"
#include "ipg/framework/ipg_threads.h"
#include "ipg/ui/ipg_terminal_progress.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct Batch {
  std::vector<CliPipelineStep> pipeline;
  std::vector<CliBatchInput> inputs;
  std::string outdir, reportPath, csvPath;
  CliFileOptions file;
  int jobs = 1;
  bool resume = false;
  bool progress = false;
};

int DefaultJobs()
{
  const long cores = sysconf(_SC_NPROCESSORS_ONLN);
  return cores > 0 ? static_cast<int>(cores) : 1;
}

CliFileOptions FileOptions(const CliArgs& args)
{
  CliFileOptions file;
  file.second = args.Value("second").value_or("");
  file.roi = args.Value("roi").value_or("");
  file.frame = args.Has("frame") ? Cli_ParseFrame(*args.Value("frame")) : 0;
  file.png = args.Has("png");
  if ((args.Has("colormap") || args.Has("log")) && !file.png)
    throw CliUsageError("--colormap and --log shape the --png previews; give --png too");
  if (args.Has("colormap"))
    file.preview.map = Cli_ParseColormap(*args.Value("colormap"));
  file.preview.log = args.Has("log");
  return file;
}

Batch Setup(const std::vector<std::string>& args)
{
  CliArgs parsed;
  parsed.Option("output", true, {"-o"}).Option("jobs", true, {"-j"}).Option("resume", false);
  parsed.Option("progress", false).Option("report", true).Option("csv", true);
  parsed.Option("second", true).Option("roi", true).Option("frame", true);
  parsed.Option("png", false).Option("colormap", true).Option("log", false);
  parsed.Parse(args);
  if (parsed.Positional().size() < 2)
    throw CliUsageError("batch needs a pipeline FILE.json and at least one input (ipg batch --help)");
  if (!parsed.Has("output"))
    throw CliUsageError("batch needs an output folder (-o DIR)");
  Batch batch;
  batch.pipeline = Cli_ReadPipeline(parsed.Positional()[0]);
  // What would fail for every input stops the batch before it starts.
  for (const CliPipelineStep& step : batch.pipeline)
    if (Cli_StepOperator(step).NeedsSecondInput() && !parsed.Has("second"))
      throw CliUsageError(step.className + " needs a second input image (--second FILE)");
  batch.outdir = *parsed.Value("output");
  batch.reportPath = parsed.Value("report").value_or((fs::path(batch.outdir) / "report.jsonl").string());
  batch.csvPath = parsed.Value("csv").value_or((fs::path(batch.outdir) / "results.csv").string());
  batch.file = FileOptions(parsed);
  batch.jobs = parsed.Has("jobs") ? Cli_ParseValue<int>("--jobs", *parsed.Value("jobs")) : DefaultJobs();
  if (batch.jobs < 1 || batch.jobs > 256)
    throw CliUsageError("--jobs must be between 1 and 256");
  batch.resume = parsed.Has("resume");
  batch.progress = parsed.Has("progress") || isatty(STDERR_FILENO) != 0;
  std::error_code error;
  fs::create_directories(batch.outdir, error);
  if (!fs::is_directory(batch.outdir))
    throw CliFileError("cannot make the output folder " + batch.outdir);
  batch.inputs = Cli_GatherInputs(
      std::vector<std::string>(parsed.Positional().begin() + 1, parsed.Positional().end()), batch.outdir);
  return batch;
}

// The work of one child: a fresh process per input, whose operators run on
// one thread (the batch's parallelism is its jobs) and draw no progress. The
// child appends its report line itself, right after its outputs are renamed
// into place, so that a batch killed meanwhile has the least to run again.
std::string RunInChild(const Batch& batch, const CliBatchInput& input, CliReportWriter& report)
{
  static CliProgressSink silent(nullptr); // still reports Ctrl-C to the operators
  Ipg_SetProgressSink(&silent);
  Ipg_SetNumThreads(1);
  const std::string outdir = (fs::path(batch.outdir) / fs::path(input.relative).parent_path()).string();
  const CliFileRecord record = Cli_RunPipelineOnFile(batch.pipeline, input.path, outdir, batch.file);
  report.Append(record);
  return Cli_RecordToJson(record).Dump(-1);
}

// The record a child reported, or null when it reported none.
std::optional<CliFileRecord> ReportedRecord(const CliChildEnd& end)
{
  if (!end.Finished())
    return std::nullopt;
  try {
    return Cli_RecordFromJson(Json::ParseTables(end.output));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// The error record of a child that died before reporting.
CliFileRecord DeathRecord(const CliBatchInput& input, const CliChildEnd& end)
{
  CliFileRecord record;
  record.input = input.path;
  record.error = "the worker processing it ended abnormally (" + end.Describe() + ")";
  return record;
}

bool StoppedByInterrupt(const CliChildEnd& end)
{
  return Cli_Interrupted() && WIFEXITED(end.waitStatus) && WEXITSTATUS(end.waitStatus) == kCliChildInterrupted;
}

class BatchRun {
public:
  explicit BatchRun(const Batch& batch) : Work(batch), Table(batch.csvPath, batch.inputs.size()), Bar(stderr) {}

  int Run()
  {
    const auto start = std::chrono::steady_clock::now();
    const std::vector<CliReportLine> kept = Previous();
    CliReportWriter report(Work.reportPath, kept);
    std::vector<std::size_t> todo;
    for (std::size_t i = 0; i < Work.inputs.size(); ++i)
      if (!Table.Has(i))
        todo.push_back(i);
    const std::size_t toRun = todo.size();
    if (Work.progress)
      Bar.Open("ipg batch", static_cast<int>(toRun));
    RecordProblems(todo, report);
    CliPoolTasks tasks;
    tasks.count = todo.size();
    tasks.work = [&](std::size_t task) { return RunInChild(Work, Work.inputs[todo[task]], report); };
    tasks.done = [&](std::size_t task, const CliChildEnd& end) {
      if (std::optional<CliFileRecord> record = ReportedRecord(end))
        Finish(todo[task], *record, nullptr);
      else if (!StoppedByInterrupt(end)) // else not done: runs again with --resume
        Finish(todo[task], DeathRecord(Work.inputs[todo[task]], end), &report);
    };
    tasks.stop = [] { return Cli_Interrupted(); };
    Cli_RunInChildren(tasks, Work.jobs);
    if (Work.progress)
      Bar.Close();
    Table.Write();
    Summarise(kept.size(), toRun, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    if (Cli_Interrupted()) {
      std::cerr << "ipg: interrupted; the finished inputs are in the report (--resume goes on)\n";
      return kCliInterrupted;
    }
    return Failed == 0 ? kCliOk : kCliFailed;
  }

private:
  // With --resume: the report lines of the inputs already complete, which are
  // kept, their records read one at a time.
  std::vector<CliReportLine> Previous()
  {
    std::vector<CliReportLine> kept;
    if (!Work.resume)
      return kept;
    const std::map<std::string, CliReportLine> earlier = Cli_IndexReport(Work.reportPath);
    for (std::size_t i = 0; i < Work.inputs.size(); ++i) {
      const auto found = earlier.find(Work.inputs[i].path);
      if (found == earlier.end())
        continue;
      const std::string line = Cli_ReadReportText(Work.reportPath, found->second);
      const CliFileRecord record = Cli_RecordFromJson(Json::ParseTables(line));
      if (Cli_RecordComplete(record)) {
        Table.Set(i, record);
        kept.push_back(found->second);
      }
    }
    return kept;
  }

  // Inputs that cannot run get their error line without a worker.
  void RecordProblems(std::vector<std::size_t>& todo, CliReportWriter& report)
  {
    std::erase_if(todo, [&](std::size_t i) {
      if (Work.inputs[i].problem.empty())
        return false;
      CliFileRecord record;
      record.input = Work.inputs[i].path;
      record.error = Work.inputs[i].problem;
      Finish(i, record, &report);
      return true;
    });
  }

  // Counts a finished input; appends its line unless its worker did.
  void Finish(std::size_t input, const CliFileRecord& record, CliReportWriter* report)
  {
    if (report != nullptr)
      report->Append(record);
    ++Done;
    if (!record.Succeeded()) {
      ++Failed;
      if (Work.progress)
        Bar.Interrupt();
      std::cerr << "ipg: " << record.input << ": " << record.error << "\n";
    }
    Table.Set(input, record);
    if (Work.progress)
      Bar.Step(std::to_string(Done) + " done" + (Failed > 0 ? ", " + std::to_string(Failed) + " failed" : ""));
  }

  void Summarise(std::size_t skipped, std::size_t started, double seconds) const
  {
    std::cout << Work.inputs.size() << " inputs: " << Done - Failed << " done, " << Failed << " failed, " << skipped
              << " already complete";
    if (Done < started)
      std::cout << ", " << started - Done << " not run";
    std::printf(" in %.1f s with %d job%s\n", seconds, Work.jobs, Work.jobs > 1 ? "s" : "");
    std::cout << "report: " << Work.reportPath << "\nresults: " << Work.csvPath << "\n";
  }

  const Batch& Work;
  CliResultsTable Table; // a row per input, once known
  Ipg_TerminalProgress Bar;
  std::size_t Done = 0;
  std::size_t Failed = 0;
};

int RunBatch(const std::vector<std::string>& args)
{
  const Batch batch = Setup(args);
  return BatchRun(batch).Run();
}

const bool registered = Cli_RegisterCommand({
    "batch",
    "run a saved pipeline over many DICOM files in parallel, with a resumable report",
    "usage: ipg batch PIPELINE.json INPUT... -o OUTDIR [--jobs N] [--resume] [--progress]\n"
    "                 [--report FILE] [--csv FILE] [--second FILE] [--roi FILE] [--frame F]\n"
    "                 [--png [--colormap MAP] [--log]]\n"
    "\n"
    "Runs the steps of PIPELINE.json (written by ipg run --save-pipeline or\n"
    "--append-pipeline) on every input, as `ipg replay` does on one, and writes\n"
    "the last image of each under OUTDIR, mirroring the inputs' tree. INPUT is a\n"
    "file, a folder (every file below it, hidden ones left out) or @LIST, a text\n"
    "file of inputs, one per line. Each input runs in its own worker process, so\n"
    "a file that cannot be read, a failed step or a crash is an error line for\n"
    "that file alone; the run goes on.\n"
    "\n"
    "  -o, --output DIR  output folder; a folder input's file DIR0/sub/a.dcm goes to\n"
    "                    DIR/sub/a.dcm, a file named directly to DIR/<its path>\n"
    "  -j, --jobs N      inputs processed at once (default: every core); each runs\n"
    "                    its operators on one thread\n"
    "  --resume          skip the inputs that the report says are complete: their\n"
    "                    line has no error and every output it lists exists\n"
    "  --progress        draw the progress bar even when standard error is not a\n"
    "                    terminal (it is drawn on a terminal)\n"
    "  --report FILE     JSON-lines report (default OUTDIR/report.jsonl): one line\n"
    "                    per input, {\"input\", \"outputs\", \"results\" (one object per\n"
    "                    step), \"messages\", \"error\" (null on success), \"seconds\"}\n"
    "  --csv FILE        results table (default OUTDIR/results.csv): one row per\n"
    "                    input, columns input, error, seconds and one per result\n"
    "                    field (\"2.Mean\": field Mean of step 2, with several steps)\n"
    "  --second, --roi, --frame  as for ipg replay, the same for every input\n"
    "  --png             also write a preview of each output beside it (.png)\n"
    "  --colormap MAP, --log  the previews' colours, as for ipg run\n"
    "\n"
    "Outputs are written under a temporary name (NAME.partial) and renamed, and\n"
    "an input's report line is written once its outputs are in place, in one\n"
    "write: after a kill, --resume runs again only the inputs without a complete\n"
    "line, and no file under its final name is ever half written.\n"
    "\n"
    "Exit status: 0 every input succeeded, 1 some failed (their error lines are\n"
    "on standard error and in the report), 2 bad usage or a bad pipeline, 130\n"
    "interrupted (Ctrl-C; finished inputs are in the report, --resume goes on).\n",
    RunBatch,
});

} // namespace
