// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the program's commands and the operator classes exchange: the images and
// settings of a run, what it produced, and an operator class as `ipg` sees it.
#include "cli/json.h"
#include "dcm/dcm_struct.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Bad usage of the program (exit status 2): unknown class, parameter or value.
class CliUsageError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// The images a run is given; only `in` is always present.
struct CliImages {
  DCM_STRUCT* in = nullptr;
  DCM_STRUCT* second = nullptr;
  DCM_STRUCT* roi = nullptr;
};

// What the user asked for on the command line.
struct CliSettings {
  std::optional<int> tools;
  std::optional<short> mode;
  std::optional<short> precision; // of the output images (default: the input's)
  std::vector<std::pair<std::string, std::string>> values; // --set Name=Value, in order
  std::vector<std::pair<std::string, std::string>> options; // class options (--name VALUE), in order
};

// What a run produced: Apply()'s result, the images to write (first one is the
// main output) and the numerical results as a JSON object.
struct CliRunOutcome {
  bool applied = false;
  std::vector<std::pair<std::string, std::unique_ptr<DCM_STRUCT>>> images;
  Json results = Json(Json::Object{});
};

struct CliCode {
  int code;
  std::string method;
};

struct CliParameter {
  std::string name;
  std::string type;
  std::string description;
};

// When a class's own command-line option acts: before Apply() (to configure the
// operator) or after it (to save or print something of the result).
enum class CliWhen { BeforeApply, AfterApply };

// An option that `ipg run` accepts for one class only, e.g. `--save FILE`.
// valueName is empty for a flag, which then receives the value "".
struct CliOption {
  std::string name;      // without the dashes: "save" is --save
  std::string valueName; // "FILE", "KERNEL"... shown in help
  std::string description;
  CliWhen when = CliWhen::BeforeApply;
};

// One operator class as the program sees it.
class CliOperator {
public:
  virtual ~CliOperator() = default;
  virtual const std::string& Name() const = 0;
  virtual const std::string& Summary() const = 0;
  virtual const std::vector<CliCode>& Codes() const = 0;
  virtual const std::vector<CliParameter>& Parameters() const = 0;
  virtual const std::vector<std::string>& ResultNames() const = 0;
  // The operation codes that fill a result ("Result" included); null when every
  // code does. Results that the run's code does not fill are left out of it.
  virtual const std::vector<int>* FillingCodes(const std::string& /*result*/) const { return nullptr; }
  // The class's own `ipg run` options; none unless the table declares some.
  virtual const std::vector<CliOption>& Options() const
  {
    static const std::vector<CliOption> none;
    return none;
  }
  virtual bool NeedsSecondInput() const = 0;
  virtual bool WritesImage() const = 0;
  // The operator built and configured as Run() builds it, not applied, as the
  // address of its library class (what IPG_CONTAINER::SetIpgContainer takes).
  virtual std::shared_ptr<void> Build(const CliImages&, const CliSettings&) const { return nullptr; }
  // Throws CliUsageError for an unknown parameter or a value of the wrong type.
  virtual CliRunOutcome Run(const CliImages& images, const CliSettings& settings) const = 0;
};

// Adds an operator class; returns true so that it can initialise a static.
bool Cli_Register(std::unique_ptr<CliOperator> op);
// Every registered class, sorted by name.
std::vector<const CliOperator*> Cli_Operators();
// The class of that name (case-insensitive), or null.
const CliOperator* Cli_FindOperator(const std::string& name);
