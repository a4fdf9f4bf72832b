// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_batch_report.h"

#include "cli/cli_io.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string CsvCell(const std::string& text)
{
  if (text.find_first_of(",\"\r\n") == std::string::npos)
    return text;
  std::string quoted = "\"";
  for (char c : text)
    quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

std::string CellOf(const Json& value)
{
  if (value.IsString())
    return value.AsString();
  return value.IsNull() ? "" : value.Dump(-1);
}

// The result fields of a record, named as the CSV's columns.
std::vector<std::pair<std::string, const Json*>> Fields(const CliFileRecord& record)
{
  std::vector<std::pair<std::string, const Json*>> fields;
  const Json::Array& steps = record.results.AsArray();
  for (std::size_t i = 0; i < steps.size(); ++i) {
    if (!steps[i].IsObject())
      continue;
    for (const auto& [name, value] : steps[i].AsObject())
      if (name != "class") // the pipeline names it
        fields.emplace_back(steps.size() > 1 ? std::to_string(i + 1) + "." + name : name, &value);
  }
  return fields;
}

} // namespace

std::map<std::string, CliFileRecord> Cli_ReadReport(const std::string& path)
{
  std::map<std::string, CliFileRecord> records;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    try {
      CliFileRecord record = Cli_RecordFromJson(Json::ParseTables(line));
      records[record.input] = std::move(record);
    } catch (const std::exception&) {
      // A line cut short by a killed run: its input runs again.
    }
  }
  return records;
}

bool Cli_RecordComplete(const CliFileRecord& record)
{
  if (!record.Succeeded())
    return false;
  std::error_code error;
  for (const std::string& output : record.outputs)
    if (!fs::is_regular_file(output, error))
      return false;
  return true;
}

CliReportWriter::CliReportWriter(const std::string& path, const std::vector<CliFileRecord>& kept) : Path(path)
{
  const std::string partial = path + ".partial";
  {
    std::ofstream out(partial, std::ios::trunc);
    for (const CliFileRecord& record : kept)
      out << Cli_RecordToJson(record).Dump(-1) << "\n";
    if (!out.flush())
      throw CliFileError("cannot write the report " + partial);
  }
  std::error_code error;
  fs::rename(partial, path, error);
  if (error)
    throw CliFileError("cannot write the report " + path + ": " + error.message());
  Fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  if (Fd < 0)
    throw CliFileError("cannot write the report " + path + ": " + std::strerror(errno));
}

CliReportWriter::~CliReportWriter()
{
  if (Fd >= 0)
    ::close(Fd);
}

void CliReportWriter::Append(const CliFileRecord& record)
{
  if (!Cli_WriteAll(Fd, Cli_RecordToJson(record).Dump(-1) + "\n"))
    throw CliFileError("cannot write the report " + Path + ": " + std::strerror(errno));
}

void Cli_WriteResultsCsv(const std::string& path, const std::vector<CliFileRecord>& records)
{
  std::vector<std::string> columns;
  for (const CliFileRecord& record : records)
    for (const auto& field : Fields(record))
      if (std::find(columns.begin(), columns.end(), field.first) == columns.end())
        columns.push_back(field.first);
  const std::string partial = path + ".partial";
  {
    std::ofstream out(partial, std::ios::trunc);
    out << "input,error,seconds";
    for (const std::string& column : columns)
      out << "," << CsvCell(column);
    out << "\n";
    for (const CliFileRecord& record : records) {
      out << CsvCell(record.input) << "," << CsvCell(record.error) << "," << Json(record.seconds).Dump(-1);
      const auto fields = Fields(record);
      for (const std::string& column : columns) {
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const auto& f) { return f.first == column; });
        out << "," << (field == fields.end() ? "" : CsvCell(CellOf(*field->second)));
      }
      out << "\n";
    }
    if (!out.flush())
      throw CliFileError("cannot write " + partial);
  }
  std::error_code error;
  fs::rename(partial, path, error);
  if (error)
    throw CliFileError("cannot write " + path + ": " + error.message());
}
