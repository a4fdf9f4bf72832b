// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/cli_run_types.h"
#include "cli/cli_value_parsing.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// The registration table of one operator class. Each class's file in cli/ builds
// one of these: a factory that constructs the operator as a host would (its
// constructor calls SetDefaultParameters()), its operation codes, its settable
// parameters (by setter), its numerical results (by getter) and its outputs.
template <class Op>
class CliOperatorTable : public CliOperator {
public:
  using Factory = std::function<std::unique_ptr<Op>(const CliImages&)>;
  using Setter = std::function<void(Op&, const std::string&)>;
  using Getter = std::function<Json(Op&)>;
  using Attach = std::function<void(Op&, DCM_STRUCT*)>;
  using Hook = std::function<void(Op&, const CliImages&, CliRunOutcome&)>;
  // Receives the option's value; an AfterApply handler may add to the outcome.
  using OptionHandler = std::function<void(Op&, const std::string& value, CliRunOutcome& outcome)>;

  CliOperatorTable(std::string name, std::string summary, Factory make)
      : ClassName(std::move(name)), Description(std::move(summary)), Make(std::move(make)),
        ApplyFn([](Op& op) { return static_cast<bool>(op.Apply()); })
  {
    if constexpr (requires { Op::ClassInfo(); })
      ReadClassTable(Op::ClassInfo());
  }

  // For a class without a table of its own in the library.

  CliOperatorTable& Code(int code, std::string method)
  {
    CodeList.push_back({code, std::move(method)});
    return *this;
  }

  // --set Name=Value calls setter with the value parsed as the setter's type.
  template <typename T, typename R>
  CliOperatorTable& Param(const std::string& name, R (Op::*setter)(T), std::string description)
  {
    using Value = std::remove_cvref_t<T>;
    ParamList.push_back({name, Cli_TypeName<Value>(), std::move(description)});
    Setters.emplace_back(name, [name, setter](Op& op, const std::string& text) {
      (op.*setter)(Cli_ParseValue<Value>(name, text));
    });
    return *this;
  }
  // The same for a setter of a mutable setting, declared const.
  template <typename T, typename R>
  CliOperatorTable& Param(const std::string& name, R (Op::*setter)(T) const, std::string description)
  {
    using Value = std::remove_cvref_t<T>;
    ParamList.push_back({name, Cli_TypeName<Value>(), std::move(description)});
    Setters.emplace_back(name, [name, setter](Op& op, const std::string& text) {
      (op.*setter)(Cli_ParseValue<Value>(name, text));
    });
    return *this;
  }
  // A parameter set by custom code (several arguments, points, kernels...). For
  // a parameter of the class table, it replaces how the command line writes it
  // (the syntax shown as its type, and the parsing) and keeps its place.
  CliOperatorTable& ParamFn(const std::string& name, std::string type, std::string description, Setter set)
  {
    for (std::size_t i = 0; i < ParamList.size(); ++i)
      if (ParamList[i].name == name) {
        ParamList[i] = {name, std::move(type), std::move(description)};
        Setters[i].second = std::move(set);
        return *this;
      }
    ParamList.push_back({name, std::move(type), std::move(description)});
    Setters.emplace_back(name, std::move(set));
    return *this;
  }

  // A numerical result printed under name, read with getter after Apply().
  template <typename R>
  CliOperatorTable& Result(const std::string& name, R (Op::*getter)() const)
  {
    ResultList.push_back(name);
    Getters.emplace_back(name, [getter](Op& op) { return Json((op.*getter)()); });
    return *this;
  }
  CliOperatorTable& ResultFn(const std::string& name, Getter get)
  {
    ResultList.push_back(name);
    Getters.emplace_back(name, std::move(get));
    return *this;
  }

  // Only the operation codes listed fill the result `name` (a getter or
  // "Result"): a run with another code leaves it out, so that fields still at
  // their starting values are not shown as measures.
  CliOperatorTable& FilledBy(const std::string& name, std::vector<int> codes)
  {
    Filling.emplace_back(name, std::move(codes));
    return *this;
  }
  const std::vector<int>* FillingCodes(const std::string& result) const override
  {
    for (const auto& [name, codes] : Filling)
      if (name == result)
        return &codes;
    return nullptr;
  }

  // An output image of the input's geometry, allocated before the run and handed
  // to the operator with attach; written as the label's file ("out" is -o).
  CliOperatorTable& Output(const std::string& label, Attach attach)
  {
    Outputs.emplace_back(label, std::move(attach));
    return *this;
  }
  // The second input image (--second), required when `required`.
  CliOperatorTable& SecondInput(Attach attach, bool required = true)
  {
    AttachSecond = std::move(attach);
    SecondRequired = required;
    return *this;
  }
  // How the ROI (--roi) reaches the operator when not through SetRoi.
  CliOperatorTable& RoiInput(Attach attach)
  {
    AttachRoi = std::move(attach);
    return *this;
  }
  // Replaces op.Apply() as the run.
  CliOperatorTable& ApplyWith(std::function<bool(Op&)> apply)
  {
    ApplyFn = std::move(apply);
    return *this;
  }
  // A command-line option of this class only (`ipg run CLASS --name VALUE`).
  // Handlers run in command-line order, before or after Apply() as `when` says;
  // a handler throws CliUsageError for a bad value.
  CliOperatorTable& Option(const std::string& name, std::string valueName, std::string description,
                           CliWhen when, OptionHandler handler)
  {
    OptionList.push_back({name, std::move(valueName), std::move(description), when});
    OptionHandlers.emplace_back(name, std::move(handler));
    return *this;
  }

  // Runs after Apply(): extra result images or values.
  CliOperatorTable& After(Hook hook)
  {
    Hooks.push_back(std::move(hook));
    return *this;
  }

  const std::string& Name() const override { return ClassName; }
  const std::string& Summary() const override { return Description; }
  const std::vector<CliCode>& Codes() const override { return CodeList; }
  const std::vector<CliParameter>& Parameters() const override { return ParamList; }
  const std::vector<std::string>& ResultNames() const override { return ResultList; }
  const std::vector<CliOption>& Options() const override { return OptionList; }
  bool NeedsSecondInput() const override { return static_cast<bool>(AttachSecond) && SecondRequired; }
  bool WritesImage() const override { return !Outputs.empty(); }

  std::shared_ptr<void> Build(const CliImages& images, const CliSettings& settings) const override
  {
    std::shared_ptr<Op> op = Prepare(images, settings);
    CliRunOutcome unused;
    RunOptions(*op, settings, CliWhen::BeforeApply, unused);
    // A program-side subclass names the library class it extends.
    if constexpr (requires { typename Op::LibraryClass; })
      return std::shared_ptr<void>(op, static_cast<typename Op::LibraryClass*>(op.get()));
    else
      return op;
  }

  CliRunOutcome Run(const CliImages& images, const CliSettings& settings) const override
  {
    std::unique_ptr<Op> op = Prepare(images, settings);
    CliRunOutcome outcome;
    RunOptions(*op, settings, CliWhen::BeforeApply, outcome);
    for (const auto& [label, attach] : Outputs) {
      auto image = std::make_unique<DCM_STRUCT>(*images.in, false);
      if (settings.precision)
        image->Data->SetPrecision(*settings.precision);
      attach(*op, image.get());
      outcome.images.emplace_back(label, std::move(image));
    }
    outcome.applied = ApplyFn(*op);
    outcome.results.Set("class", ClassName);
    if constexpr (requires(Op& o) { o.GetTools(); })
      outcome.results.Set("tools", Json(op->GetTools()));
    outcome.results.Set("applied", outcome.applied);
    if constexpr (requires(Op& o) { o.GetResult(); })
      outcome.results.Set("Result", Json(op->GetResult()));
    for (const auto& [name, get] : Getters)
      outcome.results.Set(name, get(*op));
    DropUnfilled(outcome.results);
    for (const Hook& hook : Hooks)
      hook(*op, images, outcome);
    RunOptions(*op, settings, CliWhen::AfterApply, outcome);
    return outcome;
  }

private:
  // The codes and parameters the library declares for the class (a base
  // class of Op for a program-side class).
  template <class Library>
  void ReadClassTable(const IPG_CLASS_INFO<Library>& info)
  {
    for (const IPG_OPERATION_INFO<Library>& operation : info.Operations)
      CodeList.push_back({operation.Code, operation.Method});
    for (const IPG_PARAMETER_INFO<Library>& parameter : info.Parameters) {
      ParamList.push_back({parameter.Name, Cli_TypeName(parameter.Type), parameter.Description});
      const IPG_PARAMETER_INFO<Library>* declared = &parameter;
      Setters.emplace_back(parameter.Name, [declared](Op& op, const std::string& text) {
        declared->Set(op, Cli_ParseParameter(declared->Name, declared->Type, declared->Min, declared->Max,
                                             declared->Largest, text));
      });
    }
  }

  // The operator as a host builds it: constructor, second input, ROI, then the
  // parameters, the code and the mode.
  std::unique_ptr<Op> Prepare(const CliImages& images, const CliSettings& settings) const
  {
    if (images.in == nullptr)
      throw CliUsageError(ClassName + " needs an input image");
    if (NeedsSecondInput() && images.second == nullptr)
      throw CliUsageError(ClassName + " needs a second input image (--second FILE)");
    std::unique_ptr<Op> op = Make(images);
    if (images.second != nullptr && AttachSecond)
      AttachSecond(*op, images.second);
    if (images.roi != nullptr) {
      if (AttachRoi)
        AttachRoi(*op, images.roi);
      else if constexpr (requires(Op& o, DCM_STRUCT* r) { o.SetRoi(r); })
        op->SetRoi(images.roi);
    }
    for (const auto& [name, text] : settings.values)
      FindSetter(name)(*op, text);
    if constexpr (requires(Op& o) { o.SetTools(0); }) {
      if (settings.tools)
        op->SetTools(*settings.tools);
    }
    if constexpr (requires(Op& o) { o.SetMode(short{0}); }) {
      if (settings.mode)
        op->SetMode(*settings.mode);
    }
    return op;
  }

  void DropUnfilled(Json& results) const
  {
    const Json* tools = results.Find("tools");
    if (tools == nullptr || !tools->IsNumber())
      return;
    const int code = static_cast<int>(tools->AsNumber());
    std::erase_if(results.AsObject(), [&](const auto& member) {
      const std::vector<int>* codes = FillingCodes(member.first);
      return codes != nullptr && std::find(codes->begin(), codes->end(), code) == codes->end();
    });
  }

  void RunOptions(Op& op, const CliSettings& settings, CliWhen when, CliRunOutcome& outcome) const
  {
    for (const auto& option : settings.options) {
      const std::string& name = option.first; // named, not bound: clang 14 lambdas cannot capture bindings
      const std::string& value = option.second;
      const auto declared = std::find_if(OptionList.begin(), OptionList.end(),
                                         [&](const CliOption& o) { return o.name == name; });
      if (declared == OptionList.end())
        throw CliUsageError("unknown option --" + name + " for " + ClassName);
      if (declared->when != when)
        continue;
      for (const auto& [known, handle] : OptionHandlers)
        if (known == name)
          handle(op, value, outcome);
    }
  }

  const Setter& FindSetter(const std::string& name) const
  {
    const std::string bare = name.rfind("Set", 0) == 0 && name.size() > 3 ? name.substr(3) : name;
    for (const auto& [known, set] : Setters)
      if (known == name || known == bare)
        return set;
    std::string list;
    for (const auto& p : ParamList)
      list += (list.empty() ? "" : ", ") + p.name;
    throw CliUsageError("unknown parameter '" + name + "' for " + ClassName +
                        (list.empty() ? " (it has none)" : " (known: " + list + ")"));
  }

  std::string ClassName;
  std::string Description;
  Factory Make;
  std::function<bool(Op&)> ApplyFn;
  std::vector<CliCode> CodeList;
  std::vector<CliParameter> ParamList;
  std::vector<std::pair<std::string, Setter>> Setters;
  std::vector<std::string> ResultList;
  std::vector<std::pair<std::string, Getter>> Getters;
  std::vector<std::pair<std::string, std::vector<int>>> Filling;
  std::vector<std::pair<std::string, Attach>> Outputs;
  Attach AttachSecond;
  bool SecondRequired = true;
  Attach AttachRoi;
  std::vector<Hook> Hooks;
  std::vector<CliOption> OptionList;
  std::vector<std::pair<std::string, OptionHandler>> OptionHandlers;
};
