// SPDX-License-Identifier: Apache-2.0
// IPG_CONTAINER in the program: `ipg run IPG_CONTAINER --set ClassType=N ...`
// builds the operator of class-type N as `ipg run` would, fills a container
// from it and runs the container as a host does.
#include "cli/cli_pipeline.h"
#include "cli/operator_registry.h"
#include "ipg/framework/ipg_container.h"
#include "ipg/framework/ipg_one_input_no_output.h"

#include <cctype>

namespace {

// ClassType=20005 or ClassType=IPG_ARITHMETIC1.
int ParseClassType(const std::string& text)
{
  if (!text.empty() && !std::isdigit(static_cast<unsigned char>(text[0])) && text[0] != '-') {
    if (const std::optional<int> code = Cli_ContainerClassType(text))
      return *code;
    throw CliUsageError("ClassType: " + text + " is not a class that IPG_CONTAINER holds");
  }
  return Cli_ParseValue<int>("ClassType", text);
}

class CliContainer : public CliOperator {
public:
  const std::string& Name() const override { return ClassName; }
  const std::string& Summary() const override { return Description; }
  const std::vector<CliCode>& Codes() const override { return CodeList; }
  const std::vector<CliParameter>& Parameters() const override { return ParamList; }
  const std::vector<std::string>& ResultNames() const override { return ResultList; }
  bool NeedsSecondInput() const override { return false; }
  bool WritesImage() const override { return true; }

  CliRunOutcome Run(const CliImages& images, const CliSettings& settings) const override
  {
    CliSettings held = settings;
    std::optional<int> type;
    std::erase_if(held.values, [&](const auto& p) {
      if (p.first != "ClassType" && p.first != "SetClassType")
        return false;
      type = ParseClassType(p.second);
      return true;
    });
    if (!type)
      throw CliUsageError("IPG_CONTAINER needs --set ClassType=N (20001 to 20014, or a class name)");
    const std::string className = Cli_ContainerClassName(*type);
    const CliOperator* inner = className.empty() ? nullptr : Cli_FindOperator(className);
    if (inner == nullptr)
      throw CliUsageError("class type " + std::to_string(*type) + " holds no operator class of this ipg");
    if (inner->NeedsSecondInput() && images.second == nullptr)
      throw CliUsageError(className + " needs a second input image (--second FILE)");

    // As a host: configure an operator, fill the container from it (the class's
    // copy constructor decides what is carried), set the code through the
    // container, give it the images and apply.
    const std::shared_ptr<void> source = inner->Build(images, held);
    IPG_CONTAINER container;
    if (source == nullptr || !container.SetIpgContainer(source.get(), *type) || Ipg_HeldOperator(source.get(), *type) == nullptr)
      throw CliUsageError(className + " cannot be held by IPG_CONTAINER in this ipg");
    IPG_ONE_INPUT_NO_OUTPUT* op = Ipg_HeldOperator(container.GetIPGClassAddress(), *type);
    op->SetTools(settings.tools ? *settings.tools : static_cast<int>(Ipg_HeldOperator(source.get(), *type)->GetTools()));
    if (settings.mode)
      op->SetMode(*settings.mode); // kept only by the classes that keep their own mode
    container.SetImageIn(images.in);
    container.SetSecondImageIn(images.second);
    container.SetImageROI(images.roi);

    CliRunOutcome outcome;
    outcome.applied = container.Apply();
    outcome.results.Set("class", ClassName);
    outcome.results.Set("classType", *type);
    outcome.results.Set("heldClass", className);
    outcome.results.Set("tools", Json(op->GetTools()));
    outcome.results.Set("applied", outcome.applied);
    outcome.results.Set("Result", Json(op->GetResult()));
    outcome.results.Set("NumericalResult", Json(container.GetNumericalResult()));
    if (inner->WritesImage())
      if (DCM_STRUCT* result = container.GetResult())
        outcome.images.emplace_back("out", std::unique_ptr<DCM_STRUCT>(result));
    return outcome;
  }

private:
  std::string ClassName = "IPG_CONTAINER";
  std::string Description = "holds any operator by class-type code (--set ClassType=N) and runs it as a host's "
                            "container does: output mode 302, precision 10000 for the arithmetic results";
  std::vector<CliCode> CodeList = [] {
    std::vector<CliCode> codes;
    for (const IPG_HELD_CLASS& held : Ipg_HeldClasses())
      codes.push_back({held.ClassType, held.Name});
    return codes;
  }();
  std::vector<CliParameter> ParamList = {
      {"ClassType", "integer",
       "class-type code or class name of the held operator; the other --set, --tools and --mode go to "
       "that class (parameters reach the held copy as far as its copy constructor carries them)"}};
  std::vector<std::string> ResultList = {"classType", "heldClass", "NumericalResult"};
};

const bool registered = Cli_Register(std::make_unique<CliContainer>());

} // namespace
