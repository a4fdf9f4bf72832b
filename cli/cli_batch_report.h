// SPDX-License-Identifier: Apache-2.0
#pragma once

// The reports of `ipg batch`.
//
// The JSON-lines report holds one record per finished input (Cli_RecordToJson),
// appended by the worker as soon as its outputs are in place, each line in one
// write to a file open for appending, so that lines of parallel workers never
// mix. It is also what makes an input complete for --resume: its line says it
// succeeded and every output it lists is there. Outputs reach their names only
// by a rename once written, so a listed file is a whole file; an input stopped
// before its line was written is run again, and a line cut short by a kill is
// not a record.
//
// The CSV is derived from the records: one row per input, one column per
// result field (a pipeline of several steps names them "N.Field", N the step).

#include "cli/cli_batch_file.h"

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

// Where a record's line lies in a report file (its newline left out).
struct CliReportLine {
  std::uint64_t Offset = 0;
  std::uint64_t Length = 0;
};

// Where the last record of each input lies in a report, read one line at a
// time: a report of any length costs only its inputs' names.
std::map<std::string, CliReportLine> Cli_IndexReport(const std::string& path);
// The text of that line. Throws CliFileError.
std::string Cli_ReadReportText(const std::string& path, const CliReportLine& line);

// Whether record's input needs no new run: it succeeded and its outputs exist.
bool Cli_RecordComplete(const CliFileRecord& record);

// A report open for appending.
class CliReportWriter {
public:
  // Starts the file with these records (the complete ones a resumed run keeps),
  // replacing it whole. Throws CliFileError.
  CliReportWriter(const std::string& path, const std::vector<CliFileRecord>& kept);
  // The same with the kept records' lines as they stand in the file at path.
  CliReportWriter(const std::string& path, const std::vector<CliReportLine>& kept);
  ~CliReportWriter();
  CliReportWriter(const CliReportWriter&) = delete;
  CliReportWriter& operator=(const CliReportWriter&) = delete;

  // Appends one line in one write; safe from forked children that share the
  // writer. Throws CliFileError.
  void Append(const CliFileRecord& record);

private:
  CliReportWriter(const std::string& path, const std::function<void(std::ostream&)>& start);
  std::string Path;
  int Fd = -1;
};

// The CSV of a batch, its rows set as inputs finish, in any order. Each
// record goes to a scratch file beside the CSV, nameless from the start so
// that it goes with the process however that ends; only the names of its
// fields stay in memory. A batch of any length, whose records may each hold
// lists of a number per pixel, then holds one record at a time.
class CliResultsTable {
public:
  CliResultsTable(const std::string& path, std::size_t inputs); // throws CliFileError
  ~CliResultsTable();
  CliResultsTable(const CliResultsTable&) = delete;
  CliResultsTable& operator=(const CliResultsTable&) = delete;

  // The row of input (below inputs): the last record set for it. Throws CliFileError.
  void Set(std::size_t input, const CliFileRecord& record);
  bool Has(std::size_t input) const { return Rows.at(input).Set; }
  // Writes the CSV of the records set, in input order: columns input, error,
  // seconds, then every result field in order of first appearance (numbers as
  // JSON writes them, lists and objects as compact JSON). Replaces the file
  // whole. Throws CliFileError.
  void Write() const;

private:
  struct Row {
    std::uint64_t Offset = 0;
    std::uint64_t Length = 0;
    std::vector<std::string> Fields;
    bool Set = false;
  };
  std::string Path;
  int Fd = -1;
  std::uint64_t End = 0;
  std::vector<Row> Rows;
};
