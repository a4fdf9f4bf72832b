// SPDX-License-Identifier: Apache-2.0
// `ipg batch` over a generated set of phantoms, as a user runs it.
#include "cli/json.h"
#include "dcm/dcm_phantom.h"
#include "support/cli_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

// Add 10 (mode 302 keeps the values), then the basic statistics.
constexpr const char* kPipeline = R"({"format": "ipg-pipeline", "version": 1, "steps": [
  {"class": "IPG_ARITHMETIC1", "tools": 200, "mode": 302, "parameters": [{"name": "Variable", "value": "10"}]},
  {"class": "IPG_STATISTIC1", "tools": 6}]})";

struct PhantomSet {
  std::string root, in, out, pipeline;
  std::map<std::string, double> means; // by output path: the input's mean + 10
};

// 30 phantoms of 64 x 64, 20 in IN and 10 in IN/sub, and sub/broken.dcm, a
// phantom cut short.
PhantomSet MakeSet()
{
  PhantomSet set;
  set.root = Temp("batch");
  set.in = set.root + "/in";
  set.out = set.root + "/out";
  set.pipeline = set.root + "/p.json";
  fs::remove_all(set.root);
  fs::create_directories(set.in + "/sub");
  std::ofstream(set.pipeline) << kPipeline;
  for (unsigned i = 0; i < 30; ++i) {
    const DCM_PHANTOM phantom = Dcm_MakePhantom({.Size = 64, .Seed = i + 1});
    const std::string place = (i < 20 ? "" : "sub/") + std::string("p") + std::to_string(i) + ".dcm";
    std::string error;
    EXPECT_TRUE(Dcm_WriteFile(*phantom.Image, set.in + "/" + place, &error)) << error;
    double sum = 0;
    for (std::size_t k = 0; k < phantom.Image->Data->GetSize(); ++k)
      sum += phantom.Image->Data->GetIDataAddress()[k];
    set.means[set.out + "/" + place] = sum / 4096 + 10;
  }
  const std::string whole = Slurp(set.in + "/p0.dcm");
  std::ofstream(set.in + "/sub/broken.dcm") << whole.substr(0, whole.size() / 2);
  return set;
}

std::vector<Json> ReportLines(const std::string& path)
{
  std::vector<Json> lines;
  std::istringstream text(Slurp(path));
  for (std::string line; std::getline(text, line);)
    lines.push_back(Json::Parse(line));
  return lines;
}

ino_t Inode(const std::string& path)
{
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

// The cell of a results table in a column and a data row (0 the first), for
// tables whose cells hold no commas.
std::string TableCell(const std::string& table, const std::string& column, std::size_t row)
{
  std::istringstream lines(table);
  std::string header, line, cell;
  std::getline(lines, header);
  for (std::size_t k = 0; k <= row; ++k)
    std::getline(lines, line);
  const std::string before = header.substr(0, header.find("," + column + ","));
  const auto index = static_cast<std::size_t>(std::count(before.begin(), before.end(), ',') + 1);
  std::istringstream cells(line);
  for (std::size_t k = 0; k <= index; ++k)
    std::getline(cells, cell, ',');
  return cell;
}

} // namespace

TEST(IpgBatch, RunsEveryInputAndRecordsTheCorruptOneWithoutStopping)
{
  const PhantomSet set = MakeSet();
  const Outcome run = Ipg("batch " + Q(set.pipeline) + " " + Q(set.in) + " -o " + Q(set.out) + " --jobs 2 --progress");
  EXPECT_EQ(run.status, 1); // one input failed
  EXPECT_TRUE(Contains(run.err, "sub/broken.dcm: cannot read")) << run.err;
  EXPECT_TRUE(Contains(run.err, "ipg batch [##############################] 100%")) << run.err;
  EXPECT_TRUE(Contains(run.out, "31 inputs: 30 done, 1 failed, 0 already complete")) << run.out;

  const std::vector<Json> lines = ReportLines(set.out + "/report.jsonl");
  ASSERT_EQ(lines.size(), 31u);
  for (const Json& line : lines) {
    const std::string input = line.Find("input")->AsString();
    SCOPED_TRACE(input);
    if (Contains(input, "broken")) {
      EXPECT_TRUE(Contains(line.Find("error")->AsString(), "truncated"));
      EXPECT_TRUE(line.Find("outputs")->AsArray().empty());
      continue;
    }
    EXPECT_TRUE(line.Find("error")->IsNull());
    const std::string output = line.Find("outputs")->AsArray().at(0).AsString();
    ASSERT_EQ(set.means.count(output), 1u); // the input tree mirrored
    const Json& statistics = line.Find("results")->AsArray().at(1);
    EXPECT_DOUBLE_EQ(statistics.Find("Mean")->AsNumber(), set.means.at(output));
  }
  // The image written is the input plus 10, pixel for pixel.
  auto in = ReadImage(set.in + "/sub/p25.dcm"), out = ReadImage(set.out + "/sub/p25.dcm");
  ASSERT_TRUE(in && out);
  for (std::size_t k = 0; k < in->Data->GetSize(); ++k)
    ASSERT_EQ(out->Data->GetIDataAddress()[k], in->Data->GetIDataAddress()[k] + 10) << k;

  // The CSV: a row per input in input order, a column per result field.
  const std::string table = Slurp(set.out + "/results.csv");
  std::istringstream csv(table);
  std::string header, first;
  std::getline(csv, header);
  std::getline(csv, first);
  EXPECT_EQ(header.rfind("input,error,seconds,1.tools,1.applied,1.Result,1.Variable,2.tools,", 0), 0u) << header;
  EXPECT_TRUE(Contains(header, ",2.Mean,2.Min,2.Max,")) << header;
  EXPECT_EQ(first.rfind(set.in + "/p0.dcm,,", 0), 0u) << first;
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 32);
  // Its cells come back from the rows kept aside on disk, which go with the run.
  EXPECT_DOUBLE_EQ(std::stod(TableCell(table, "2.Mean", 0)), set.means.at(set.out + "/p0.dcm"));
  EXPECT_FALSE(std::filesystem::exists(set.out + "/results.csv.records"));

  EXPECT_EQ(Ipg("batch " + Q(set.pipeline) + " " + Q(set.in)).status, 2);                  // no -o
  EXPECT_EQ(Ipg("batch " + Q(set.pipeline) + " x -o " + Q(set.out) + " -j 0").status, 2);  // no jobs
}

// A run stopped short: the report cut in the middle of a line, a half-written
// file left under its temporary name, an output lost. --resume runs exactly
// the inputs without a complete line and leaves the others' files alone.
TEST(IpgBatch, ResumeFinishesWhatAKilledRunLeft)
{
  const PhantomSet set = MakeSet();
  const std::string batch = "batch " + Q(set.pipeline) + " " + Q(set.in) + " -o " + Q(set.out) + " --jobs 2";
  ASSERT_EQ(Ipg(batch).status, 1);
  std::vector<std::string> lines;
  std::istringstream text(Slurp(set.out + "/report.jsonl"));
  for (std::string line; std::getline(text, line);)
    if (!Contains(line, "broken"))
      lines.push_back(line);
  std::ofstream(set.out + "/report.jsonl") << lines[0] << "\n" << lines[1] << "\n" << lines[2].substr(0, 40);
  const std::string lost = Json::Parse(lines[1]).Find("outputs")->AsArray()[0].AsString();
  const std::string kept = Json::Parse(lines[0]).Find("outputs")->AsArray()[0].AsString();
  const std::string cut = Json::Parse(lines[2]).Find("outputs")->AsArray()[0].AsString();
  fs::remove(lost);
  std::ofstream(cut + ".partial") << "half";
  const ino_t keptInode = Inode(kept), cutInode = Inode(cut);

  const Outcome resumed = Ipg(batch + " --resume");
  EXPECT_EQ(resumed.status, 1); // the broken input is tried again, and fails again
  EXPECT_TRUE(Contains(resumed.out, "31 inputs: 29 done, 1 failed, 1 already complete")) << resumed.out;
  EXPECT_EQ(Inode(kept), keptInode); // not redone
  EXPECT_NE(Inode(cut), cutInode);   // redone: its line was cut
  EXPECT_TRUE(fs::exists(lost));
  EXPECT_FALSE(fs::exists(cut + ".partial"));

  std::set<std::string> inputs;
  for (const Json& line : ReportLines(set.out + "/report.jsonl"))
    inputs.insert(line.Find("input")->AsString());
  EXPECT_EQ(inputs.size(), 31u);
  EXPECT_EQ(ReportLines(set.out + "/report.jsonl").size(), 31u); // one line each
  const std::string table = Slurp(set.out + "/results.csv");
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 32);
  // Its cells come back from the rows kept aside on disk, which go with the run.
  EXPECT_DOUBLE_EQ(std::stod(TableCell(table, "2.Mean", 0)), set.means.at(set.out + "/p0.dcm"));
  EXPECT_FALSE(std::filesystem::exists(set.out + "/results.csv.records"));
}
