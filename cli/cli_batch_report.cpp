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

// visit(record, line) for every line of a report that is a record, one line
// in memory at a time.
template <typename Visit>
void ForEachRecord(const std::string& path, Visit visit)
{
  std::ifstream in(path, std::ios::binary);
  std::uint64_t offset = 0;
  for (std::string line; std::getline(in, line); offset += line.size() + 1) {
    CliFileRecord record;
    try {
      record = Cli_RecordFromJson(Json::ParseTables(line));
    } catch (const std::exception&) {
      continue; // a line cut short by a killed run: its input runs again
    }
    visit(std::move(record), CliReportLine{offset, line.size()});
  }
}

} // namespace

std::map<std::string, CliReportLine> Cli_IndexReport(const std::string& path)
{
  std::map<std::string, CliReportLine> lines;
  ForEachRecord(path, [&](const CliFileRecord& record, CliReportLine line) { lines[record.input] = line; });
  return lines;
}

std::string Cli_ReadReportText(const std::string& path, const CliReportLine& line)
{
  // Checked against the file before the text is allocated.
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error || line.Offset > size || line.Length > size - line.Offset)
    throw CliFileError("cannot read the report " + path + ": no such line");
  std::ifstream in(path, std::ios::binary);
  std::string text(line.Length, '\0');
  if (!in.seekg(static_cast<std::streamoff>(line.Offset)) ||
      !in.read(text.data(), static_cast<std::streamsize>(text.size())))
    throw CliFileError("cannot read the report " + path);
  return text;
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

CliReportWriter::CliReportWriter(const std::string& path, const std::vector<CliFileRecord>& kept)
    : CliReportWriter(path, [&](std::ostream& out) {
        for (const CliFileRecord& record : kept)
          out << Cli_RecordToJson(record).Dump(-1) << "\n";
      })
{
}

CliReportWriter::CliReportWriter(const std::string& path, const std::vector<CliReportLine>& kept)
    : CliReportWriter(path, [&](std::ostream& out) {
        for (const CliReportLine& line : kept)
          out << Cli_ReadReportText(path, line) << "\n";
      })
{
}

CliReportWriter::CliReportWriter(const std::string& path, const std::function<void(std::ostream&)>& start) : Path(path)
{
  const std::string partial = path + ".partial";
  {
    std::ofstream out(partial, std::ios::trunc);
    start(out);
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

namespace {

void AddColumns(std::vector<std::string>& columns, const std::vector<std::string>& names)
{
  for (const std::string& name : names)
    if (std::find(columns.begin(), columns.end(), name) == columns.end())
      columns.push_back(name);
}

std::vector<std::string> FieldNames(const CliFileRecord& record)
{
  std::vector<std::string> names;
  for (const auto& field : Fields(record))
    names.push_back(field.first);
  return names;
}

// The CSV of count records, record(k) giving the k-th, under these columns.
template <typename RecordAt>
void WriteCsv(const std::string& path, const std::vector<std::string>& columns, std::size_t count, RecordAt record)
{
  const std::string partial = path + ".partial";
  {
    std::ofstream out(partial, std::ios::trunc);
    out << "input,error,seconds";
    for (const std::string& column : columns)
      out << "," << CsvCell(column);
    out << "\n";
    for (std::size_t k = 0; k < count; ++k) {
      const CliFileRecord& row = record(k);
      out << CsvCell(row.input) << "," << CsvCell(row.error) << "," << Json(row.seconds).Dump(-1);
      const auto fields = Fields(row);
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

} // namespace

CliResultsTable::CliResultsTable(const std::string& path, std::size_t inputs) : Path(path), Rows(inputs)
{
  const std::string scratch = path + ".records";
  Fd = ::open(scratch.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (Fd < 0)
    throw CliFileError("cannot write " + scratch + ": " + std::strerror(errno));
  ::unlink(scratch.c_str()); // the file lives on, nameless, as long as it is open
}

CliResultsTable::~CliResultsTable()
{
  if (Fd >= 0)
    ::close(Fd);
}

void CliResultsTable::Set(std::size_t input, const CliFileRecord& record)
{
  const std::string line = Cli_RecordToJson(record).Dump(-1);
  if (!Cli_WriteAll(Fd, line))
    throw CliFileError("cannot write " + Path + ".records: " + std::strerror(errno));
  Rows.at(input) = Row{End, line.size(), FieldNames(record), true};
  End += line.size();
}

void CliResultsTable::Write() const
{
  std::vector<std::size_t> set;
  std::vector<std::string> columns;
  for (std::size_t k = 0; k < Rows.size(); ++k)
    if (Rows[k].Set) {
      set.push_back(k);
      AddColumns(columns, Rows[k].Fields);
    }
  CliFileRecord loaded;
  WriteCsv(Path, columns, set.size(), [&](std::size_t k) -> const CliFileRecord& {
    const Row& row = Rows[set[k]];
    std::string line(row.Length, '\0');
    if (::pread(Fd, line.data(), line.size(), static_cast<off_t>(row.Offset)) != static_cast<ssize_t>(line.size()))
      throw CliFileError("cannot read back " + Path + ".records");
    loaded = Cli_RecordFromJson(Json::ParseTables(line));
    return loaded;
  });
}
