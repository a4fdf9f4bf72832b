// SPDX-License-Identifier: Apache-2.0
// IPG_CONTAINER in `ipg run`, pipeline files and `ipg replay`, run as a user would.
#include "cli/json.h"
#include "support/cli_run.h"
#include "support/images.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

namespace {

void ExpectSamePixels(const std::string& a, const std::string& b)
{
  auto first = ReadImage(a), second = ReadImage(b);
  ASSERT_TRUE(first && second);
  ASSERT_EQ(first->GetNbOfCols(), second->GetNbOfCols());
  EXPECT_EQ(PixelsOf(*first), PixelsOf(*second));
}

} // namespace

TEST(IpgPipeline, ContainerRunHoldsTheClassAndUsesMode302WithArithmeticPrecision)
{
  const std::string small = SmallImage(1), out = Temp("out.dcm");
  const Outcome run = Ipg("run IPG_CONTAINER --set ClassType=IPG_ARITHMETIC1 --tools 200 --set Variable=5 " +
                          Q(small) + " -o " + Q(out) + " --json");
  ASSERT_EQ(run.status, 0) << run.err;
  const Json results = Json::Parse(run.out);
  EXPECT_EQ(results.Find("classType")->AsNumber(), 20005);
  EXPECT_EQ(results.Find("heldClass")->AsString(), "IPG_ARITHMETIC1");
  EXPECT_EQ(results.Find("tools")->AsNumber(), 200);
  // Not re-scaled to the bit depth; the sum is stored at precision 10000.
  auto written = ReadImage(out);
  ASSERT_NE(written, nullptr);
  EXPECT_EQ(written->Data->GetValue(0, 0), 60000);
  EXPECT_EQ(written->Data->GetValue(3, 2), 290000);

  // A measuring class gives its result narrowed to a float.
  const Outcome mean = Ipg("run IPG_CONTAINER --set ClassType=20003 --tools 0 " + Q(small) + " --json");
  ASSERT_EQ(mean.status, 0) << mean.err;
  EXPECT_EQ(Json::Parse(mean.out).Find("NumericalResult")->AsNumber(), static_cast<float>(12.5));

  const Outcome noClass = Ipg("run IPG_CONTAINER " + Q(small));
  EXPECT_EQ(noClass.status, 2);
  EXPECT_NE(noClass.err.find("ClassType"), std::string::npos) << noClass.err;
  const Outcome unused = Ipg("run IPG_CONTAINER --set ClassType=20012 " + Q(small));
  EXPECT_EQ(unused.status, 2);
}

TEST(IpgPipeline, SavedRunReplaysToTheSameImage)
{
  const std::string small = SmallImage(1), pipeline = Temp("p.json"), ran = Temp("ran.dcm"),
                    replayed = Temp("replayed.dcm");
  const Outcome run = Ipg("run IPG_ARITHMETIC1 --tools 201 --set Variable=3 --mode 300 " + Q(small) + " -o " +
                          Q(ran) + " --save-pipeline " + Q(pipeline));
  ASSERT_EQ(run.status, 0) << run.err;

  const Json description = Json::Parse(Slurp(pipeline));
  EXPECT_EQ(description.Find("format")->AsString(), "ipg-pipeline");
  const Json& step = description.Find("steps")->AsArray().at(0);
  EXPECT_EQ(step.Find("class")->AsString(), "IPG_ARITHMETIC1");
  EXPECT_EQ(step.Find("classType")->AsNumber(), 20005);
  EXPECT_FALSE(step.Find("container")->AsBool());
  EXPECT_EQ(step.Find("tools")->AsNumber(), 201);
  EXPECT_EQ(step.Find("mode")->AsNumber(), 300);
  const Json& parameter = step.Find("parameters")->AsArray().at(0);
  EXPECT_EQ(parameter.Find("name")->AsString(), "Variable");
  EXPECT_EQ(parameter.Find("value")->AsString(), "3");

  const Outcome replay = Ipg("replay " + Q(pipeline) + " " + Q(small) + " -o " + Q(replayed));
  ASSERT_EQ(replay.status, 0) << replay.err;
  ExpectSamePixels(replayed, ran);
}

TEST(IpgPipeline, AppendedStepsReplayInOrderThroughTheContainer)
{
  const std::string small = SmallImage(1), pipeline = Temp("chain.json"), first = Temp("first.dcm"),
                    second = Temp("second.dcm"), replayed = Temp("replayed.dcm");
  std::remove(pipeline.c_str());
  ASSERT_EQ(Ipg("run IPG_CONTAINER --set ClassType=20005 --tools 200 --set Variable=5 " + Q(small) + " -o " +
                Q(first) + " --append-pipeline " + Q(pipeline))
                .status,
            0);
  // The default code of the class is recorded explicitly.
  ASSERT_EQ(Ipg("run IPG_CONTAINER --set ClassType=IPG_MORPHO_PROCESSING " + Q(first) + " -o " + Q(second) +
                " --append-pipeline " + Q(pipeline))
                .status,
            0);
  const Json steps = *Json::Parse(Slurp(pipeline)).Find("steps");
  ASSERT_EQ(steps.AsArray().size(), 2u);
  EXPECT_TRUE(steps.AsArray()[1].Find("container")->AsBool());
  EXPECT_EQ(steps.AsArray()[1].Find("tools")->AsNumber(), 1101);
  for (const Json& parameter : steps.AsArray()[0].Find("parameters")->AsArray())
    EXPECT_NE(parameter.Find("name")->AsString(), "ClassType");

  const Outcome replay = Ipg("replay " + Q(pipeline) + " " + Q(small) + " -o " + Q(replayed) + " --json");
  ASSERT_EQ(replay.status, 0) << replay.err;
  EXPECT_EQ(Json::Parse(replay.out).Find("steps")->AsArray().size(), 2u);
  ExpectSamePixels(replayed, second);
}

TEST(IpgPipeline, BadPipelinesAreUsageErrors)
{
  const std::string small = SmallImage(1);
  const struct {
    std::string text, reason;
  } cases[] = {
      {"{\"steps\": []}", "not a pipeline"},
      {"{\"format\": \"ipg-pipeline\", \"steps\": []}", "no \"steps\""},
      {"{\"format\": \"ipg-pipeline\", \"steps\": [{\"tools\": 1}]}", "names no operator class"},
      {"{\"format\": \"ipg-pipeline\", \"steps\": [{\"class\": \"IPG_ROI\", \"container\": true}]}",
       "no class-type code"},
      {"{\"format\": \"ipg-pipeline\", \"steps\": [{\"classType\": 20005, \"tools\": 1.5}]}", "must be an integer"},
      {"{\"format\": ", "pipeline.json"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const std::string path = Temp("pipeline.json");
    std::ofstream(path) << c.text;
    const Outcome replay = Ipg("replay " + Q(path) + " " + Q(small));
    EXPECT_EQ(replay.status, 2);
    EXPECT_NE(replay.err.find(c.reason), std::string::npos) << replay.err;
  }
  EXPECT_EQ(Ipg("replay " + Q(Temp("missing.json")) + " " + Q(small)).status, 1);
}
