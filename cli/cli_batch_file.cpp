// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_batch_file.h"

#include "cli/cli_interrupt.h"
#include "cli/cli_io.h"
#include "ipg/ui/ipg_message.h"

#include <chrono>
#include <filesystem>
#include <new>

namespace fs = std::filesystem;

namespace {

// Collects the operators' messages while it lives; the previous handler comes back after.
class MessageCapture {
public:
  explicit MessageCapture(std::vector<std::string>& into)
      : Previous(Ipg_SetMessageHandler([&into](const std::string& text, const std::string&) { into.push_back(text); }))
  {
  }
  ~MessageCapture() { Ipg_SetMessageHandler(Previous); }
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;

private:
  Ipg_MessageHandler Previous;
};

CliInputImages ReadImages(const std::string& input, const CliFileOptions& options)
{
  CliInputImages images;
  images.in = Cli_ReadImage(input, options.frame);
  if (!options.second.empty())
    images.second = Cli_ReadImage(options.second, options.frame);
  if (!options.roi.empty()) {
    images.roi = Cli_ReadImage(options.roi);
    Cli_NormaliseRoi(*images.roi);
  }
  return images;
}

// Writes through a ".partial" file renamed into place: the final name only
// ever holds a complete file.
template <typename Write>
void WriteInPlace(const std::string& path, Write write)
{
  const std::string partial = path + ".partial";
  write(partial);
  std::error_code error;
  fs::rename(partial, path, error);
  if (error)
    throw CliFileError("cannot write " + path + ": " + error.message());
}

// The steps, each on the image of the one before; the last image, or null
// when no step writes one. Sets record.error when a step fails.
std::unique_ptr<DCM_STRUCT> RunSteps(const std::vector<CliPipelineStep>& pipeline, CliInputImages& images,
                                     CliFileRecord& record)
{
  std::unique_ptr<DCM_STRUCT> current;
  for (std::size_t i = 0; i < pipeline.size(); ++i) {
    const CliOperator& op = Cli_StepOperator(pipeline[i]);
    DCM_STRUCT* in = current ? current.get() : images.in.get();
    CliRunOutcome outcome = op.Run({in, images.second.get(), images.roi.get()}, Cli_StepSettings(pipeline[i]));
    Cli_StopIfInterrupted();
    record.results.AsArray().push_back(outcome.results);
    if (!outcome.applied) {
      record.error = "step " + std::to_string(i + 1) + " (" + pipeline[i].className + ") failed" +
                     (record.messages.empty() ? "" : ": " + record.messages.back());
      return nullptr;
    }
    if (!outcome.images.empty())
      current = std::move(outcome.images.front().second);
  }
  return current;
}

void Process(const std::vector<CliPipelineStep>& pipeline, const std::string& outdir, const CliFileOptions& options,
             CliFileRecord& record)
{
  CliInputImages images = ReadImages(record.input, options);
  const std::unique_ptr<DCM_STRUCT> last = RunSteps(pipeline, images, record);
  if (last == nullptr)
    return;
  const std::string output = Cli_BatchOutputPath(record.input, outdir);
  if (fs::exists(output) && fs::equivalent(output, record.input))
    throw CliFileError("the output " + output + " would replace the input");
  std::error_code ignored;
  fs::create_directories(fs::path(output).parent_path(), ignored);
  WriteInPlace(output, [&](const std::string& path) { Cli_WriteImage(*last, path); });
  record.outputs.push_back(output);
  if (options.png) {
    const std::string preview = Cli_BatchPreviewPath(output);
    WriteInPlace(preview, [&](const std::string& path) { Cli_WritePreview(*last, path, options.preview); });
    record.outputs.push_back(preview);
  }
}

Json Strings(const std::vector<std::string>& list)
{
  return Json(Json::Array(list.begin(), list.end()));
}

std::vector<std::string> StringsOf(const Json* list)
{
  std::vector<std::string> out;
  for (std::size_t i = 0; list != nullptr && list->IsArray() && i < list->AsArray().size(); ++i)
    if (list->AsArray()[i].IsString())
      out.push_back(list->AsArray()[i].AsString());
  return out;
}

} // namespace

std::string Cli_BatchOutputPath(const std::string& input, const std::string& outdir)
{
  return (fs::path(outdir) / fs::path(input).filename()).string();
}

std::string Cli_BatchPreviewPath(const std::string& outputPath)
{
  fs::path preview(outputPath);
  const std::string extension = preview.extension().string();
  if (extension == ".dcm" || extension == ".DCM")
    return preview.replace_extension(".png").string();
  return outputPath + ".png";
}

CliFileRecord Cli_RunPipelineOnFile(const std::vector<CliPipelineStep>& pipeline, const std::string& input,
                                    const std::string& outdir, const CliFileOptions& options)
{
  const auto start = std::chrono::steady_clock::now();
  CliFileRecord record;
  record.input = input;
  {
    MessageCapture capture(record.messages);
    try {
      Process(pipeline, outdir, options, record);
    } catch (const CliInterruptedError&) {
      throw;
    } catch (const std::bad_alloc&) {
      record.error = "out of memory";
    } catch (const std::exception& e) {
      record.error = e.what(); // unreadable input, unwritable output, a step the pipeline describes badly
    }
  }
  if (!record.error.empty())
    record.outputs.clear();
  record.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return record;
}

Json Cli_RecordToJson(const CliFileRecord& record)
{
  Json json(Json::Object{});
  json.Set("input", record.input);
  json.Set("outputs", Strings(record.outputs));
  json.Set("results", record.results);
  json.Set("messages", Strings(record.messages));
  json.Set("error", record.error.empty() ? Json() : Json(record.error));
  json.Set("seconds", record.seconds);
  return json;
}

CliFileRecord Cli_RecordFromJson(const Json& json)
{
  const Json* input = json.IsObject() ? json.Find("input") : nullptr;
  if (input == nullptr || !input->IsString())
    throw CliUsageError("not a batch record: no \"input\"");
  CliFileRecord record;
  record.input = input->AsString();
  record.outputs = StringsOf(json.Find("outputs"));
  if (const Json* results = json.Find("results"); results != nullptr && results->IsArray())
    record.results = *results;
  record.messages = StringsOf(json.Find("messages"));
  if (const Json* error = json.Find("error"); error != nullptr && !error->IsNull())
    record.error = error->IsString() ? error->AsString() : error->Dump(-1);
  if (const Json* seconds = json.Find("seconds"); seconds != nullptr && seconds->IsNumber())
    record.seconds = seconds->AsNumber();
  return record;
}
