// SPDX-License-Identifier: Apache-2.0
// The class tables of the library against the program: every class the program
// runs has a table (the container aside), `ipg list` shows exactly each table
// plus the few parameters that only the program has, every code of a table
// runs, every declared default is a value of its parameter, and an unknown code
// fails without a message.
#include "cli/operator_registry.h"
#include "ipg/ipg.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace {

template <class... Class>
struct ClassList {
  template <typename Check>
  static void ForEach(Check&& check)
  {
    (check(Class::ClassInfo()), ...);
  }
};

using TabledClasses =
    ClassList<IPG_ARITHMETIC1, IPG_ARITHMETIC2, IPG_CHANGE_DYNAMIC, IPG_FILTER_PROCESSING, IPG_GENERIC_PROCESSING,
              IPG_HISTO, IPG_MORPHO_PROCESSING, IPG_FFT_ONE_INPUT, IPG_FFT_TWO_INPUTS, IPG_TRANSFORMATION, IPG_WAVELET,
              IPG_HOLDER, IPG_STATISTIC1, IPG_STATISTIC2, IPG_TEXTURE, IPG_TEXTURE_LOCAL,
              IPG_CLASSIFICATION_PROCESSING, IPG_CONNEXITY_PROCESSING, IPG_ROI, IPG_CONVERT_BINARY_TO_OBJECT,
              IPG_REGION, IPG_GRIDCORRECTION, IPG_DEFORMABLE_SURFACE, IPG_DEFORMABLE_SURFACE_COST_FCT>;

// What the program adds after a table: where to write a file, and a value the
// library takes only through a constructor.
const std::map<std::string, std::vector<std::string>> kProgramOnlyParameters = {
    {"IPG_HISTO", {"Save"}},
    {"IPG_GENERIC_PROCESSING", {"ResolutionFactor"}},
};

std::unique_ptr<DCM_STRUCT> Ramp()
{
  std::vector<int> pixels;
  for (int row = 0; row < 16; ++row)
    for (int col = 0; col < 16; ++col)
      pixels.push_back((col * 7 + row * 3) % 50);
  return ImageOf(16, 16, pixels);
}

const CliOperator& Registered(const char* name)
{
  const CliOperator* op = Cli_FindOperator(name);
  if (op == nullptr)
    throw std::runtime_error(std::string(name) + " is not registered");
  return *op;
}

} // namespace

TEST(ClassTables, ListedByTheProgramAsDeclared)
{
  TabledClasses::ForEach([](const auto& info) {
    const CliOperator& op = Registered(info.Name);
    ASSERT_EQ(op.Codes().size(), info.Operations.size()) << info.Name;
    for (std::size_t i = 0; i < info.Operations.size(); ++i) {
      EXPECT_EQ(op.Codes()[i].code, info.Operations[i].Code) << info.Name;
      EXPECT_EQ(op.Codes()[i].method, info.Operations[i].Method) << info.Name;
    }
    std::vector<std::string> expected;
    for (const auto& parameter : info.Parameters)
      expected.emplace_back(parameter.Name);
    if (const auto own = kProgramOnlyParameters.find(info.Name); own != kProgramOnlyParameters.end())
      expected.insert(expected.end(), own->second.begin(), own->second.end());
    std::vector<std::string> listed;
    for (const CliParameter& parameter : op.Parameters())
      listed.push_back(parameter.name);
    EXPECT_EQ(listed, expected) << info.Name;
  });
  for (const IPG_HELD_CLASS& held : Ipg_HeldClasses())
    EXPECT_NE(Cli_FindOperator(held.Name), nullptr) << held.ClassType;
}

TEST(ClassTables, EveryClassOfTheProgramHasOne)
{
  std::set<std::string> tabled;
  TabledClasses::ForEach([&](const auto& info) { tabled.insert(info.Name); });
  for (const CliOperator* op : Cli_Operators())
    EXPECT_TRUE(op->Name() == "IPG_CONTAINER" || tabled.contains(op->Name())) << op->Name();
}

TEST(ClassTables, SettingsOnceOnlyInTheProgramReachTheOperator)
{
  const auto in = Ramp();
  CliSettings settings;
  settings.values = {{"AdaptatifFiltreParameters", "9,3,1.5"}};
  const auto built = Registered("IPG_FILTER_PROCESSING").Build({in.get(), nullptr, nullptr}, settings);
  const auto& filter = *static_cast<const IPG_FILTER_PROCESSING*>(built.get());
  EXPECT_EQ(filter.GetAdaptatifFirst(), 9);
  EXPECT_EQ(filter.GetAdaptatifSecond(), 3);
  EXPECT_EQ(filter.GetAdaptatifReal(), 1.5);
  settings.values = {{"AdaptatifFiltreParameters", "9,3"}};
  EXPECT_THROW(Registered("IPG_FILTER_PROCESSING").Build({in.get(), nullptr, nullptr}, settings), CliUsageError);

  // Histogram specification (model 1) undoes any increasing change of levels
  // exactly; the default gain and gamma fit cannot undo 2a + 3.
  std::vector<int> changed = PixelsOf(*in);
  for (int& level : changed)
    level = 2 * level + 3;
  const auto second = ImageOf(16, 16, changed);
  CliSettings difference;
  difference.tools = 301;
  difference.mode = 302;
  const auto differs = [&] {
    const CliRunOutcome run = Registered("IPG_ARITHMETIC2").Run({in.get(), second.get(), nullptr}, difference);
    const std::vector<int> out = PixelsOf(*run.images.front().second);
    return std::any_of(out.begin(), out.end(), [](int v) { return v != 0; });
  };
  EXPECT_TRUE(differs());
  difference.values = {{"OptimalModel", "1"}};
  EXPECT_FALSE(differs());
}

TEST(ClassTables, EveryCodeRunsAndEveryDefaultIsAValue)
{
  const auto in = Ramp(), second = Ramp();
  MessageCapture quiet;
  TabledClasses::ForEach([&](const auto& info) {
    const CliOperator& op = Registered(info.Name);
    CliSettings settings;
    for (const auto& parameter : info.Parameters)
      if (*parameter.Default != '\0') {
        EXPECT_NO_THROW(Cli_ParseParameter(parameter.Name, parameter.Type, parameter.Min, parameter.Max,
                                           parameter.Largest, parameter.Default))
            << info.Name << " " << parameter.Name;
        settings.values.emplace_back(parameter.Name, parameter.Default);
      }
    for (const auto& operation : info.Operations) {
      settings.tools = operation.Code;
      EXPECT_NO_THROW(op.Run({in.get(), second.get(), nullptr}, settings)) << info.Name << " " << operation.Code;
    }
  });
}

TEST(ClassTables, AnUnknownCodeFailsWithoutAMessage)
{
  const auto in = Ramp(), second = Ramp();
  TabledClasses::ForEach([&](const auto& info) {
    const std::string name = info.Name;
    // IPG_ROI names a wrong code, IPG_CHANGE_DYNAMIC copies its output back
    // for one, and IPG_CONVERT_BINARY_TO_OBJECT has no code.
    if (name == "IPG_ROI" || name == "IPG_CHANGE_DYNAMIC" || name == "IPG_CONVERT_BINARY_TO_OBJECT")
      return;
    CliSettings settings;
    settings.tools = 99999;
    MessageCapture messages;
    EXPECT_FALSE(Registered(info.Name).Run({in.get(), second.get(), nullptr}, settings).applied) << name;
    EXPECT_TRUE(messages.Texts.empty()) << name;
  });
}
