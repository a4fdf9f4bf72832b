// SPDX-License-Identifier: Apache-2.0
// The `ipg` program, run as a user would run it.
#include "cli/json.h"
#include "support/cli_run.h"
#include "support/test_data.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

std::string Data(const std::string& name) { return Q(TestDataPath(name)); }

} // namespace

TEST(IpgCli, HelpOnEveryCommand)
{
  const Outcome top = Ipg("--help");
  EXPECT_EQ(top.status, 0);
  for (const char* command : {"info", "list", "run", "phantom"}) {
    SCOPED_TRACE(command);
    EXPECT_TRUE(Contains(top.out, std::string("  ") + command));
    const Outcome help = Ipg(std::string(command) + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(Contains(help.out, std::string("usage: ipg ") + command)) << help.out;
  }
  EXPECT_EQ(Ipg("").status, 2);
  const Outcome unknown = Ipg("frobnicate");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_TRUE(Contains(unknown.err, "unknown command 'frobnicate'"));
}

TEST(IpgCli, ListShowsCodesParametersAndResults)
{
  const Outcome text = Ipg("list");
  EXPECT_EQ(text.status, 0);
  EXPECT_TRUE(Contains(text.out, "IPG_ARITHMETIC1"));
  EXPECT_TRUE(Contains(text.out, "205  DivideConstant"));
  EXPECT_TRUE(Contains(text.out, "--set Variable=<real>"));
  const Outcome json = Ipg("list --json IPG_ARITHMETIC1");
  ASSERT_EQ(json.status, 0);
  const Json all = Json::Parse(json.out);
  ASSERT_TRUE(all.IsArray());
  ASSERT_EQ(all.AsArray().size(), 1u);
  const Json& op = all.AsArray()[0];
  EXPECT_EQ(op.Find("class")->AsString(), "IPG_ARITHMETIC1");
  EXPECT_EQ(op.Find("codes")->AsArray().size(), 13u);
  EXPECT_EQ(op.Find("codes")->AsArray()[0].Find("method")->AsString(), "AddConstant");
  EXPECT_TRUE(op.Find("output_image")->AsBool());
  EXPECT_EQ(Ipg("list NO_SUCH_CLASS").status, 2);
}

TEST(IpgCli, InfoAsTextAndJson)
{
  const std::string small = SmallImage();
  const Outcome text = Ipg("info '" + small + "'");
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_TRUE(Contains(text.out, "4 x 3 (columns x rows)"));
  EXPECT_TRUE(Contains(text.out, "Explicit VR Little Endian"));
  const Outcome json = Ipg("info --json '" + small + "'");
  ASSERT_EQ(json.status, 0) << json.err;
  const Json info = Json::Parse(json.out);
  EXPECT_EQ(info.Find("Columns")->AsNumber(), 4);
  EXPECT_EQ(info.Find("Max")->AsNumber(), 23);
  EXPECT_EQ(info.Find("PhotometricName")->AsString(), "MONOCHROME2");
}

TEST(IpgCli, InfoOnRealFiles)
{
  IPG_REQUIRE_TEST_DATA();
  const Outcome ct = Ipg("info --json " + Data("CT_small.dcm"));
  ASSERT_EQ(ct.status, 0) << ct.err;
  const Json info = Json::Parse(ct.out);
  EXPECT_EQ(info.Find("PixelRepresentation")->AsNumber(), 1);
  EXPECT_NEAR(info.Find("PixelSpacing")->AsArray()[0].AsNumber(), 0.661468, 1e-6);
  const Outcome rgb = Ipg("info " + Data("SC_rgb_rle.dcm"));
  EXPECT_TRUE(Contains(rgb.out, "read as luminance from RGB")) << rgb.out;
  const Outcome frame = Ipg("info --json --frame 14 " + Data("rtdose.dcm"));
  EXPECT_EQ(Json::Parse(frame.out).Find("Frame")->AsNumber(), 14);
  const Outcome bad = Ipg("info " + Data("MR_truncated.dcm"));
  EXPECT_EQ(bad.status, 1);
  EXPECT_TRUE(Contains(bad.err, "truncated pixel data")) << bad.err;
}

TEST(IpgCli, RunWritesTheOutputAndPrintsResults)
{
  const std::string small = SmallImage(), out = Temp("run_out.dcm"), png = Temp("run_out.png");
  std::remove(out.c_str());
  const Outcome run = Ipg("run IPG_ARITHMETIC1 --tools 200 --set Variable=5 --mode 300 '" + small + "' -o '" + out +
                          "' --png '" + png + "' --json");
  ASSERT_EQ(run.status, 0) << run.err;
  const Json results = Json::Parse(run.out);
  EXPECT_EQ(results.Find("class")->AsString(), "IPG_ARITHMETIC1");
  EXPECT_EQ(results.Find("tools")->AsNumber(), 200);
  EXPECT_TRUE(results.Find("applied")->AsBool());
  EXPECT_EQ(results.Find("Variable")->AsNumber(), 5);
  EXPECT_EQ(results.Find("outputs")->Find("out")->AsString(), out);
  // Round trip: the written output is the input plus 5 (mode 300 only clamps).
  auto written = ReadImage(out);
  ASSERT_NE(written, nullptr);
  EXPECT_EQ(written->Data->GetValue(0, 0), 5);
  EXPECT_EQ(written->Data->GetValue(3, 2), 28);
  EXPECT_FALSE(Slurp(png).empty());
}

TEST(IpgCli, FailedApplyGivesStatusOneAndTheOperatorMessage)
{
  const Outcome run = Ipg("run IPG_ARITHMETIC1 --tools 205 --set Variable=0 '" + SmallImage() + "' --json");
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Contains(run.err, "Information: Division par Zéro")) << run.err;
  EXPECT_FALSE(Json::Parse(run.out).Find("applied")->AsBool());
}

TEST(IpgCli, BadUsageGivesStatusTwoWithAReason)
{
  const std::string small = "'" + SmallImage() + "'";
  const struct {
    std::string args, reason;
  } cases[] = {
      {"run", "needs an operator CLASS"},
      {"run NO_SUCH_CLASS " + small, "unknown operator class 'NO_SUCH_CLASS'"},
      {"run IPG_ARITHMETIC1", "needs an input file"},
      {"run IPG_ARITHMETIC1 --set Foo=1 " + small, "unknown parameter 'Foo'"},
      {"run IPG_ARITHMETIC1 --set Variable=abc " + small, "'abc' is not a real number"},
      {"run IPG_ARITHMETIC1 --set Variable " + small, "--set expects Name=Value"},
      {"run IPG_ARITHMETIC1 --tools x " + small, "'x' is not an integer"},
      {"run IPG_ARITHMETIC1 --bogus 1 " + small, "unknown option --bogus"},
      {"run IPG_ARITHMETIC1 " + small + " -o", "needs a value"},
      {"phantom", "needs one output file"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    const Outcome o = Ipg(c.args);
    EXPECT_EQ(o.status, 2);
    EXPECT_TRUE(Contains(o.err, c.reason)) << o.err;
  }
}

TEST(IpgCli, UnreadableInputGivesAClearReason)
{
  const Outcome missing = Ipg("run IPG_ARITHMETIC1 '" + Temp("does_not_exist.dcm") + "'");
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(Contains(missing.err, "No such file or directory")) << missing.err;
  std::ofstream(Temp("text.dcm")) << "not DICOM";
  const Outcome text = Ipg("run IPG_ARITHMETIC1 '" + Temp("text.dcm") + "'");
  EXPECT_EQ(text.status, 1);
  EXPECT_TRUE(Contains(text.err, "not a DICOM file")) << text.err;
}

TEST(IpgCli, RunOnARealFileWithARoi)
{
  IPG_REQUIRE_TEST_DATA();
  const std::string out = Temp("mr_out.dcm");
  const Outcome run = Ipg("run IPG_ARITHMETIC1 --set Variable=2 --tools 201 --mode 302 " + Data("MR_small.dcm") +
                          " -o '" + out + "'");
  ASSERT_EQ(run.status, 0) << run.err;
  auto in = ReadImage(TestDataPath("MR_small.dcm")), written = ReadImage(out);
  ASSERT_TRUE(in && written);
  EXPECT_EQ(written->Data->GetValue(10, 20), 2 * in->Data->GetValue(10, 20));
  EXPECT_DOUBLE_EQ(written->GetHeader().PixelSpacing[0], 0.3125);
}

TEST(IpgCli, PhantomWritesImageAndMask)
{
  const std::string out = Temp("phantom.dcm");
  const Outcome run = Ipg("phantom '" + out + "' --size 64 --seed 3 --looks 2");
  ASSERT_EQ(run.status, 0) << run.err;
  auto image = ReadImage(out), mask = ReadImage(Temp("phantom-mask.dcm"));
  ASSERT_TRUE(image && mask);
  EXPECT_EQ(image->GetNbOfCols(), 64u);
  EXPECT_EQ(image->GetHeader().Modality, "US");
  EXPECT_EQ(mask->Data->GetMax(), 3);
  EXPECT_EQ(Ipg("phantom '" + out + "' --size 8").status, 2);
}

TEST(IpgCli, ValuesThatDoNotFitTheParameterTypeAreUsageErrors)
{
  const std::string small = "'" + SmallImage() + "'";
  const struct {
    std::string set, reason;
  } cases[] = {
      {"IPG_ARITHMETIC1 --set Variable=1e308", "1e308 is out of range for a real of this parameter"},
      {"IPG_ARITHMETIC1 --set Variable=inf", "inf is out of range"},
      {"IPG_ARITHMETIC1 --set Variable=nan", "nan is out of range"},
      {"IPG_FILTER_PROCESSING --set AdaptatifFiltreParameters=1,1,1e999", "1e999 is out of range"},
      {"IPG_FILTER_PROCESSING --set NbIter=2147483648", "2147483648 is out of range [-2147483648, 2147483647]"},
      {"IPG_REGION --set Seed=1,-2147483649", "expects x,y (two integers)"},
      {"IPG_ARITHMETIC1 --mode 40000", "40000 is out of range [-32768, 32767]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.set);
    const Outcome o = Ipg("run " + c.set + " " + small);
    EXPECT_EQ(o.status, 2);
    EXPECT_TRUE(Contains(o.err, c.reason)) << o.err;
  }
  EXPECT_EQ(Ipg("run IPG_ARITHMETIC1 --set Variable=3.4e38 " + small).status, 0);
}

// Ctrl-C during a long filter: the filter stops, nothing is written, status 130
// and one line. The child starts with SIGINT blocked and already pending, so
// it arrives as soon as the program catches it: no timing involved.
TEST(IpgCli, InterruptStopsTheOperatorAndWritesNothing)
{
  const std::string in = SmallImage(), out = Temp("interrupted.dcm"), err = Temp("stderr.txt");
  sigset_t interrupt, previous;
  sigemptyset(&interrupt);
  sigaddset(&interrupt, SIGINT);
  sigprocmask(SIG_BLOCK, &interrupt, &previous); // inherited by the child from its first instruction
  const pid_t child = fork();
  if (child != 0)
    sigprocmask(SIG_SETMASK, &previous, nullptr);
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::freopen("/dev/null", "w", stdout);
    std::freopen(err.c_str(), "w", stderr);
    execl(IPG_CLI_PATH, "ipg", "run", "IPG_FILTER_PROCESSING", "--tools", "511", "--set", "NbIter=10000",
          in.c_str(), "-o", out.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  kill(child, SIGINT);
  int raw = 0;
  ASSERT_EQ(waitpid(child, &raw, 0), child);
  ASSERT_TRUE(WIFEXITED(raw));
  EXPECT_EQ(WEXITSTATUS(raw), 130);
  EXPECT_EQ(Slurp(err), "ipg: interrupted; no output written\n");
  EXPECT_FALSE(std::ifstream(out).good());
}
