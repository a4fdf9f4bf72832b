// The class tables of the library against the program: `ipg list` shows exactly
// each table, every code of a table runs, every declared default is a value of
// its parameter, and an unknown code fails without a message.
#include "cli/operator_registry.h"
#include "ipg/ipg.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

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
              IPG_HOLDER, IPG_STATISTIC1, IPG_STATISTIC2, IPG_TEXTURE, IPG_CONNEXITY_PROCESSING, IPG_ROI,
              IPG_CONVERT_BINARY_TO_OBJECT, IPG_REGION>;

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
    // The program's own parameters come after the table's.
    ASSERT_GE(op.Parameters().size(), info.Parameters.size()) << info.Name;
    for (std::size_t i = 0; i < info.Parameters.size(); ++i)
      EXPECT_EQ(op.Parameters()[i].name, info.Parameters[i].Name) << info.Name;
  });
  for (const IPG_HELD_CLASS& held : Ipg_HeldClasses())
    EXPECT_NE(Cli_FindOperator(held.Name), nullptr) << held.ClassType;
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
