// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_batch_inputs.h"

#include "cli/cli_io.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

namespace fs = std::filesystem;

namespace {

bool Hidden(const fs::path& path)
{
  const std::string name = path.filename().string();
  return !name.empty() && name[0] == '.';
}

bool SameFolder(const fs::path& a, const fs::path& b)
{
  std::error_code error;
  return fs::equivalent(a, b, error);
}

// The output place of a file named directly.
std::string PlaceOfFile(const std::string& argument)
{
  const fs::path path = fs::path(argument).lexically_normal();
  if (path.is_relative() && !path.empty() && *path.begin() != ".." && path.has_filename())
    return path.string();
  return path.filename().string();
}

// Every regular file below folder, sorted by its place inside it.
std::vector<CliBatchInput> FilesBelow(const std::string& folder, const fs::path& outdir)
{
  std::vector<CliBatchInput> found;
  std::error_code error;
  fs::recursive_directory_iterator walk(folder, fs::directory_options::skip_permission_denied, error);
  for (; !error && walk != fs::recursive_directory_iterator(); walk.increment(error)) {
    const fs::directory_entry& entry = *walk;
    std::error_code ignored;
    if (Hidden(entry.path()) || (entry.is_directory(ignored) && SameFolder(entry.path(), outdir))) {
      if (entry.is_directory(ignored))
        walk.disable_recursion_pending();
      continue;
    }
    if (entry.is_regular_file(ignored))
      found.push_back({entry.path().string(), entry.path().lexically_relative(folder).string(), ""});
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.relative < b.relative; });
  return found;
}

std::vector<std::string> ListLines(const std::string& list)
{
  std::ifstream in(list);
  if (!in)
    throw CliFileError("cannot read the input list " + list);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r')
      line.pop_back();
    if (!line.empty() && line[0] != '#')
      lines.push_back(line);
  }
  return lines;
}

void Expand(const std::string& argument, const fs::path& outdir, std::vector<CliBatchInput>& inputs)
{
  std::error_code error;
  if (fs::is_directory(argument, error)) {
    const std::vector<CliBatchInput> below = FilesBelow(argument, outdir);
    inputs.insert(inputs.end(), below.begin(), below.end());
  } else {
    inputs.push_back({argument, PlaceOfFile(argument), ""});
  }
}

} // namespace

std::vector<CliBatchInput> Cli_GatherInputs(const std::vector<std::string>& arguments, const std::string& outdir)
{
  std::vector<CliBatchInput> expanded;
  for (const std::string& argument : arguments) {
    if (argument.size() > 1 && argument[0] == '@') {
      for (const std::string& line : ListLines(argument.substr(1)))
        Expand(line, outdir, expanded);
    } else {
      Expand(argument, outdir, expanded);
    }
  }
  std::vector<CliBatchInput> inputs;
  std::set<std::string> seen;
  std::map<std::string, std::string> places; // output place -> the input that has it
  for (CliBatchInput& input : expanded) {
    if (!seen.insert(fs::path(input.path).lexically_normal().string()).second)
      continue;
    const auto [owner, inserted] = places.emplace(input.relative, input.path);
    if (!inserted)
      input.problem = "its output place " + input.relative + " is already that of " + owner->second;
    inputs.push_back(std::move(input));
  }
  return inputs;
}
