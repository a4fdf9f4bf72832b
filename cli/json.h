// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

// A JSON value, enough for the numerical results the program prints and the
// descriptions it saves and reads back.
class Json {
public:
  using Array = std::vector<Json>;
  using Object = std::vector<std::pair<std::string, Json>>; // keeps insertion order
  // Numbers held flat, Width to a row: a list of numbers (Width 1) or a list
  // of [a, b, ...] rows. It prints as the arrays it stands for but keeps 8
  // bytes a number: per-pixel results (histogram bins, residents, contour
  // points) held as one value per number would take tens of bytes each,
  // hundreds of megabytes on a large image.
  struct Table {
    std::vector<double> Values;
    std::size_t Width = 1;
    std::size_t Rows() const { return Width == 0 ? 0 : Values.size() / Width; }
  };

  Json() = default; // null
  Json(std::nullptr_t) {}
  Json(bool b) : Value(b) {}
  Json(int v) : Value(static_cast<double>(v)) {}
  Json(unsigned v) : Value(static_cast<double>(v)) {}
  Json(long v) : Value(static_cast<double>(v)) {}
  Json(long long v) : Value(static_cast<double>(v)) {}
  Json(short v) : Value(static_cast<double>(v)) {}
  Json(unsigned short v) : Value(static_cast<double>(v)) {}
  Json(float v) : Value(static_cast<double>(v)) {}
  Json(double v) : Value(v) {}
  Json(const char* s) : Value(std::string(s)) {}
  Json(std::string s) : Value(std::move(s)) {}
  Json(Array a) : Value(std::move(a)) {}
  Json(Object o) : Value(std::move(o)) {}
  Json(Table t) : Value(std::make_shared<const Table>(std::move(t))) {}

  bool IsNull() const { return std::holds_alternative<std::monostate>(Value); }
  bool IsBool() const { return std::holds_alternative<bool>(Value); }
  bool IsNumber() const { return std::holds_alternative<double>(Value); }
  bool IsString() const { return std::holds_alternative<std::string>(Value); }
  bool IsArray() const { return std::holds_alternative<Array>(Value); }
  bool IsObject() const { return std::holds_alternative<Object>(Value); }
  bool IsTable() const { return std::holds_alternative<std::shared_ptr<const Table>>(Value); }

  bool AsBool() const { return std::get<bool>(Value); }
  double AsNumber() const { return std::get<double>(Value); }
  const std::string& AsString() const { return std::get<std::string>(Value); }
  const Array& AsArray() const { return std::get<Array>(Value); }
  Array& AsArray() { return std::get<Array>(Value); }
  const Object& AsObject() const { return std::get<Object>(Value); }
  Object& AsObject() { return std::get<Object>(Value); }
  const Table& AsTable() const { return *std::get<std::shared_ptr<const Table>>(Value); }

  // Object member access; Find returns null when absent or not an object.
  const Json* Find(const std::string& key) const;
  // Adds or replaces a member (turns a null value into an object first).
  void Set(const std::string& key, Json value);

  // Compact when indent < 0, else pretty-printed with that many spaces.
  std::string Dump(int indent = 2) const;
  // The text of Dump, written to out a piece at a time: a result of millions
  // of numbers is never held whole as text.
  void Write(std::ostream& out, int indent = 2) const;
  // As the program's text lines show a value: a string as its characters,
  // anything else as compact JSON.
  void WriteText(std::ostream& out) const;
  // Throws std::runtime_error with the position of the first error.
  static Json Parse(const std::string& text);
  // As Parse, with every array of numbers, or of lists of the same two or
  // more numbers, read as a table: for results read back in bulk.
  static Json ParseTables(const std::string& text);

private:
  // With spill, the text so far goes to it whenever it grows long.
  void DumpTo(std::string& out, int indent, int depth, std::ostream* spill = nullptr) const;
  // A table is shared, never changed, by the copies of a value.
  std::variant<std::monostate, bool, double, std::string, Array, Object, std::shared_ptr<const Table>> Value;
};
