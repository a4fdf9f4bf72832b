// SPDX-License-Identifier: Apache-2.0
#include "py_operator_binding.h"

#include "py_library_call.h"

#include "cli/operator_registry.h"
#include "ipg/filtering/ipg_filter_processing.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace {

using Assignments = std::vector<std::pair<std::string, std::string>>;

const CliOperator& FindClass(const std::string& name)
{
  const CliOperator* op = Cli_FindOperator(name);
  if (op == nullptr)
    throw py::value_error("unknown operator class '" + name + "' (ipg.classes() lists them)");
  return *op;
}

// Numbers that are whole print as integers in the program's JSON, and come
// back as int here too.
bool IsWhole(double v) { return std::isfinite(v) && v == std::trunc(v) && std::fabs(v) < 9007199254740992.0; }

py::object NumberToPython(double v)
{
  if (IsWhole(v))
    return py::int_(static_cast<long long>(v));
  return py::float_(v);
}

// A table as a NumPy array, one row per row (a flat array for Width 1), of
// integers when every number is whole.
py::array TableToArray(const Json::Table& table, bool whole)
{
  const std::size_t rows = table.Rows();
  std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(rows)};
  if (table.Width > 1)
    shape.push_back(static_cast<py::ssize_t>(table.Width));
  const auto end = table.Values.begin() + static_cast<std::ptrdiff_t>(rows * table.Width);
  if (whole) {
    py::array_t<long long> integers(shape);
    std::copy(table.Values.begin(), end, integers.mutable_data());
    return integers;
  }
  py::array_t<double> reals(shape);
  std::copy(table.Values.begin(), end, reals.mutable_data());
  return reals;
}

bool AllWhole(const Json::Table& table) { return std::all_of(table.Values.begin(), table.Values.end(), IsWhole); }

// A table as the lists it prints as: numbers, or lists of Width numbers.
// Whole numbers (residents, bins) go through NumPy's tolist, which makes the
// same ints several times faster than one call per number.
py::list TableToPython(const Json::Table& table)
{
  if (AllWhole(table))
    return TableToArray(table, true).attr("tolist")();
  py::list list;
  for (std::size_t r = 0; r < table.Rows(); ++r) {
    const double* row = table.Values.data() + r * table.Width;
    if (table.Width == 1) {
      list.append(NumberToPython(row[0]));
      continue;
    }
    py::list items;
    for (std::size_t k = 0; k < table.Width; ++k)
      items.append(NumberToPython(row[k]));
    list.append(items);
  }
  return list;
}

py::object ToPython(const Json& value, bool arrays)
{
  if (value.IsBool())
    return py::bool_(value.AsBool());
  if (value.IsNumber())
    return NumberToPython(value.AsNumber());
  if (value.IsTable() && arrays)
    return TableToArray(value.AsTable(), AllWhole(value.AsTable()));
  if (value.IsTable())
    return TableToPython(value.AsTable());
  if (value.IsString())
    return py::str(value.AsString());
  if (value.IsArray()) {
    py::list list;
    for (const Json& item : value.AsArray())
      list.append(ToPython(item, arrays));
    return list;
  }
  if (value.IsObject()) {
    py::dict dict;
    for (const auto& [key, item] : value.AsObject())
      dict[py::str(key)] = ToPython(item, arrays);
    return dict;
  }
  return py::none();
}

py::dict Describe(const CliOperator& op)
{
  py::list codes, parameters, options;
  for (const CliCode& code : op.Codes())
    codes.append(py::make_tuple(code.code, code.method));
  for (const CliParameter& p : op.Parameters())
    parameters.append(py::make_tuple(p.name, p.type, p.description));
  for (const CliOption& o : op.Options())
    options.append(py::make_tuple(o.name, o.valueName, o.description));
  py::dict info;
  info["name"] = op.Name();
  info["summary"] = op.Summary();
  info["codes"] = codes;
  info["parameters"] = parameters;
  info["results"] = op.ResultNames();
  info["options"] = options;
  info["second_input"] = op.NeedsSecondInput();
  info["writes_image"] = op.WritesImage();
  return info;
}

py::list Classes()
{
  py::list list;
  for (const CliOperator* op : Cli_Operators())
    list.append(Describe(*op));
  return list;
}

// What a call returns to the Python layer, which raises or hands the messages
// to the user's handler.
py::dict Outcome(bool applied, py::dict images, py::object results, const PyLibraryCall& call)
{
  py::dict outcome;
  outcome["applied"] = applied;
  outcome["images"] = images;
  outcome["results"] = results;
  outcome["messages"] = call.Messages();
  return outcome;
}

py::dict Run(const std::string& name, DCM_STRUCT* in, DCM_STRUCT* second, DCM_STRUCT* roi, std::optional<int> tools,
             std::optional<short> mode, std::optional<short> precision, Assignments values, Assignments options,
             bool arrays)
{
  const CliOperator& op = FindClass(name);
  CliSettings settings;
  settings.tools = tools;
  settings.mode = mode;
  settings.precision = precision;
  settings.values = std::move(values);
  settings.options = std::move(options);
  PyLibraryCall call;
  CliRunOutcome outcome = call.Run([&] { return op.Run(CliImages{in, second, roi}, settings); });
  call.RaiseCallbackError();
  py::dict images;
  for (auto& [label, image] : outcome.images)
    images[py::str(label)] = py::cast(std::move(image));
  return Outcome(outcome.applied, images, ToPython(outcome.results, arrays), call);
}

// Builds the operator on a one-pixel image with these settings, so that a bad
// name or value is reported when it is set rather than at the run.
void CheckSettings(const std::string& name, Assignments values)
{
  const CliOperator& op = FindClass(name);
  DCM_STRUCT probe(1, 1);
  CliSettings settings;
  settings.values = std::move(values);
  PyLibraryCall call;
  call.Run([&] { op.Build(CliImages{&probe, &probe, nullptr}, settings); });
}

// The median filter alone: it has no operation code of its own (505 follows
// it with the Nagao filter). The window is size x size.
py::dict Median(DCM_STRUCT& in, int size)
{
  if (size < 1 || size % 2 == 0 || static_cast<unsigned>(size) > std::min(in.GetNbOfCols(), in.GetNbOfRows()))
    throw py::value_error("median: the window side must be odd, from 1 to the image's smaller side");
  auto out = std::make_unique<DCM_STRUCT>(in, false);
  PyLibraryCall call;
  const bool applied = call.Run([&] {
    IPG_FILTER_PROCESSING op(&in);
    std::vector<int> window(static_cast<std::size_t>(size) * size, 1);
    op.SetUserFilter(window.data(), size, size);
    op.SetImaOut(out.get());
    return op.MedianFilter();
  });
  call.RaiseCallbackError();
  py::dict images;
  images["out"] = py::cast(std::move(out));
  return Outcome(applied, images, py::dict(), call);
}

} // namespace

void Py_BindOperators(py::module_& m)
{
  py::register_exception_translator([](std::exception_ptr error) {
    try {
      if (error)
        std::rethrow_exception(error);
    } catch (const CliUsageError& usage) {
      PyErr_SetString(PyExc_ValueError, usage.what());
    }
  });
  m.def("classes", &Classes, "Every operator class: name, summary, codes, parameters, results, options.");
  m.def("run", &Run, py::arg("name"), py::arg("image"), py::arg("second") = nullptr, py::arg("roi") = nullptr,
        py::arg("tools") = std::nullopt, py::arg("mode") = std::nullopt, py::arg("precision") = std::nullopt,
        py::arg("values") = Assignments{}, py::arg("options") = Assignments{}, py::arg("arrays") = false,
        "Builds the operator as a host does, applies it once; the GIL is released meanwhile. "
        "arrays: lists of a number per pixel or level come as NumPy arrays, not lists.");
  m.def("check_settings", &CheckSettings, py::arg("name"), py::arg("values"),
        "Raises ValueError when the class has no such parameter or one cannot take its value.");
  m.def("median", &Median, py::arg("image"), py::arg("size"), "IPG_FILTER_PROCESSING::MedianFilter alone.");
}
