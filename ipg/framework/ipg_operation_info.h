// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cfloat>
#include <climits>
#include <functional>
#include <limits>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

// What each operator class declares once about itself: the operation codes that
// Apply() runs and the parameters a host may set. Apply() dispatches through
// this table, and the program, its pipeline files and language bindings read it
// at run time, so that a code or a parameter is never listed twice.

// The kinds of value a parameter takes. Reals is a short list of numbers that
// one setter takes together.
enum class IPG_VALUE_TYPE { Bool, Integer, Real, Text, Point, RealPoint, Kernel, Reals };

// The textual name of a kind ("bool", "integer", "real", "text", "point",
// "real point", "kernel", "reals").
const char* Ipg_ValueTypeName(IPG_VALUE_TYPE type);

struct IPG_POINT {
  int X = 0;
  int Y = 0;
};

struct IPG_REAL_POINT {
  double X = 0.0;
  double Y = 0.0;
};

// A kernel or structuring element: Cols x Rows values, row by row.
struct IPG_KERNEL {
  int Cols = 0;
  int Rows = 0;
  std::vector<int> Values;
};

// A parameter's value; the alternative follows IPG_VALUE_TYPE's order.
using IPG_VALUE =
    std::variant<bool, long long, double, std::string, IPG_POINT, IPG_REAL_POINT, IPG_KERNEL, std::vector<double>>;

// One operation code: the method it runs and how. Run returns what Apply()
// returns for that code.
template <class C>
struct IPG_OPERATION_INFO {
  int Code;
  const char* Method;
  int (*Run)(C& op);
};

// One settable parameter. Integers lie in [Min, Max] and reals within
// [-Largest, Largest] (the range of the setter's own type); a Reals list holds
// Min to Max values, each within [-Largest, Largest]. Default is the value a
// new operator holds, as text. Set receives a value of the declared type.
template <class C>
struct IPG_PARAMETER_INFO {
  const char* Name;
  IPG_VALUE_TYPE Type;
  long long Min;
  long long Max;
  double Largest;
  const char* Default;
  const char* Description;
  void (*Set)(C& op, const IPG_VALUE& value);
};

// The table of one class, returned by its static ClassInfo().
template <class C>
struct IPG_CLASS_INFO {
  const char* Name;
  std::span<const IPG_OPERATION_INFO<C>> Operations;
  std::span<const IPG_PARAMETER_INFO<C>> Parameters;

  // The operation of that code, or null.
  const IPG_OPERATION_INFO<C>* FindOperation(int code) const
  {
    for (const IPG_OPERATION_INFO<C>& operation : Operations)
      if (operation.Code == code)
        return &operation;
    return nullptr;
  }
  // The parameter of that name, or null.
  const IPG_PARAMETER_INFO<C>* FindParameter(std::string_view name) const
  {
    for (const IPG_PARAMETER_INFO<C>& parameter : Parameters)
      if (name == parameter.Name)
        return &parameter;
    return nullptr;
  }
};

// Shows the allocation message; what every Apply() does when memory runs out.
void Ipg_InformAllocationFailure();

// Calls run() and returns its result; a std::bad_alloc from it shows the
// allocation message and gives 0. The one place where Apply() meets a failed
// allocation.
template <typename Run>
int Ipg_FailOnAllocation(Run&& run)
{
  try {
    return static_cast<int>(run());
  } catch (const std::bad_alloc&) {
    Ipg_InformAllocationFailure();
    return 0;
  }
}

// Runs one operation of op under the allocation guard.
template <class C>
int Ipg_RunOperation(const IPG_OPERATION_INFO<C>& operation, C& op)
{
  return Ipg_FailOnAllocation([&] { return operation.Run(op); });
}

// Runs the operation of `code`; an unknown code gives 0 without a message.
template <class C>
int Ipg_Dispatch(const IPG_CLASS_INFO<C>& info, C& op, int code)
{
  const IPG_OPERATION_INFO<C>* operation = info.FindOperation(code);
  return operation != nullptr ? Ipg_RunOperation(*operation, op) : 0;
}

namespace ipg_detail {

template <typename Setter>
struct SetterTraits;
template <class Owner, typename R, typename T>
struct SetterTraits<R (Owner::*)(T)> {
  using Class = Owner;
  using Value = std::remove_cvref_t<T>;
};
// Setters of mutable settings are const members.
template <class Owner, typename R, typename T>
struct SetterTraits<R (Owner::*)(T) const> {
  using Class = Owner;
  using Value = std::remove_cvref_t<T>;
};

template <typename T>
constexpr IPG_VALUE_TYPE TypeOf()
{
  if constexpr (std::is_same_v<T, bool>)
    return IPG_VALUE_TYPE::Bool;
  else if constexpr (std::is_floating_point_v<T>)
    return IPG_VALUE_TYPE::Real;
  else if constexpr (std::is_same_v<T, std::string>)
    return IPG_VALUE_TYPE::Text;
  else
    return IPG_VALUE_TYPE::Integer;
}

template <typename T>
T ValueAs(const IPG_VALUE& value)
{
  if constexpr (std::is_same_v<T, bool>)
    return std::get<bool>(value);
  else if constexpr (std::is_floating_point_v<T>)
    return static_cast<T>(std::get<double>(value));
  else if constexpr (std::is_same_v<T, std::string>)
    return std::get<std::string>(value);
  else
    return static_cast<T>(std::get<long long>(value));
}

} // namespace ipg_detail

// The entry of a parameter set by one public setter of C taking one scalar or
// text: its type and range follow from the setter's argument.
template <class C, auto Setter>
constexpr IPG_PARAMETER_INFO<C> Ipg_Parameter(const char* name, const char* defaultValue, const char* description)
{
  using T = typename ipg_detail::SetterTraits<decltype(Setter)>::Value;
  // Called on the class that declares the setter (a base class of C for the
  // kernel settings).
  using Owner = typename ipg_detail::SetterTraits<decltype(Setter)>::Class;
  long long min = 0, max = 0;
  double largest = 0.0;
  if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
    min = static_cast<long long>(std::numeric_limits<T>::lowest());
    max = static_cast<long long>(std::numeric_limits<T>::max());
  } else if constexpr (std::is_floating_point_v<T>) {
    largest = static_cast<double>(std::numeric_limits<T>::max());
  }
  return {name,
          ipg_detail::TypeOf<T>(),
          min,
          max,
          largest,
          defaultValue,
          description,
          [](C& op, const IPG_VALUE& value) { std::invoke(Setter, static_cast<Owner&>(op), ipg_detail::ValueAs<T>(value)); }};
}

// The entry of a parameter of another kind (points, kernels, several arguments)
// set by `set`.
template <class C>
constexpr IPG_PARAMETER_INFO<C> Ipg_Parameter(const char* name, IPG_VALUE_TYPE type, const char* defaultValue,
                                              const char* description, void (*set)(C&, const IPG_VALUE&))
{
  return {name, type, 0, 0, 0.0, defaultValue, description, set};
}

// The entry of a Reals parameter of `count` values, set by `set`.
template <class C>
constexpr IPG_PARAMETER_INFO<C> Ipg_RealsParameter(const char* name, int count, const char* defaultValue,
                                                   const char* description, void (*set)(C&, const IPG_VALUE&))
{
  return {name, IPG_VALUE_TYPE::Reals, count, count, std::numeric_limits<double>::max(), defaultValue, description, set};
}

// Set for a kernel parameter: hands the kernel to C::SetUserFilter.
template <class C>
void Ipg_SetUserKernel(C& op, const IPG_VALUE& value)
{
  IPG_KERNEL kernel = std::get<IPG_KERNEL>(value);
  op.SetUserFilter(kernel.Values.data(), kernel.Cols, kernel.Rows);
}
