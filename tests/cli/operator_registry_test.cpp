// SPDX-License-Identifier: Apache-2.0
// The registration table: class options run before or after Apply(), in order.
#include "cli/operator_registry.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"

#include <gtest/gtest.h>

namespace {

CliOperatorTable<IPG_ARITHMETIC1> Table(std::vector<std::string>& log)
{
  CliOperatorTable<IPG_ARITHMETIC1> table("TEST_ARITHMETIC", "test", [](const CliImages& im) {
    return std::make_unique<IPG_ARITHMETIC1>(im.in, im.roi);
  });
  table.Code(200, "AddConstant").Param("Variable", &IPG_ARITHMETIC1::SetVariable, "constant");
  table.Output("out", [](IPG_ARITHMETIC1& op, DCM_STRUCT* out) { op.SetImaOut(out); });
  table.Option("offset", "N", "adds N to Variable before the run", CliWhen::BeforeApply,
               [&log](IPG_ARITHMETIC1& op, const std::string& value, CliRunOutcome&) {
                 log.push_back("before " + value);
                 op.SetVariable(op.GetVariable() + Cli_ParseValue<float>("--offset", value));
               });
  table.Option("report", "", "adds a result after the run", CliWhen::AfterApply,
               [&log](IPG_ARITHMETIC1& op, const std::string&, CliRunOutcome& outcome) {
                 log.push_back("after");
                 outcome.results.Set("Reported", Json(op.GetVariable()));
               });
  return table;
}

} // namespace

TEST(CliOperatorTable, ClassOptionsRunAroundApply)
{
  std::vector<std::string> log;
  const auto table = Table(log);
  ASSERT_EQ(table.Options().size(), 2u);
  EXPECT_EQ(table.Options()[0].valueName, "N");
  EXPECT_EQ(table.Options()[1].when, CliWhen::AfterApply);

  DCM_STRUCT in(3, 2, nullptr);
  CliSettings settings;
  settings.mode = 302;
  settings.values = {{"Variable", "2"}};
  settings.options = {{"report", ""}, {"offset", "3"}, {"offset", "1"}};
  CliRunOutcome outcome = table.Run({&in, nullptr, nullptr}, settings);
  EXPECT_TRUE(outcome.applied);
  EXPECT_EQ(log, (std::vector<std::string>{"before 3", "before 1", "after"}));
  EXPECT_EQ(outcome.results.Find("Reported")->AsNumber(), 6); // 2 + 3 + 1
  ASSERT_EQ(outcome.images.size(), 1u);
  EXPECT_EQ(outcome.images[0].second->Data->GetValue(0, 0), 6);
}

TEST(CliOperatorTable, UnknownOptionsAndParametersAreUsageErrors)
{
  std::vector<std::string> log;
  const auto table = Table(log);
  DCM_STRUCT in(2, 2, nullptr);
  CliSettings unknownOption;
  unknownOption.options = {{"nonsense", "1"}};
  EXPECT_THROW(table.Run({&in, nullptr, nullptr}, unknownOption), CliUsageError);
  CliSettings badValue;
  badValue.options = {{"offset", "abc"}};
  EXPECT_THROW(table.Run({&in, nullptr, nullptr}, badValue), CliUsageError);
  CliSettings unknownParameter;
  unknownParameter.values = {{"Nothing", "1"}};
  EXPECT_THROW(table.Run({&in, nullptr, nullptr}, unknownParameter), CliUsageError);
  EXPECT_THROW(table.Run({nullptr, nullptr, nullptr}, CliSettings{}), CliUsageError);
}
