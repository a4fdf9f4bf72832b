// SPDX-License-Identifier: Apache-2.0
#include "cli/json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>
#include <ostream>
#include <stdexcept>

const Json* Json::Find(const std::string& key) const
{
  if (!IsObject())
    return nullptr;
  for (const auto& [name, value] : AsObject())
    if (name == key)
      return &value;
  return nullptr;
}

void Json::Set(const std::string& key, Json value)
{
  if (IsNull())
    Value = Object{};
  for (auto& [name, existing] : AsObject())
    if (name == key) {
      existing = std::move(value);
      return;
    }
  AsObject().emplace_back(key, std::move(value));
}

namespace {

void DumpString(std::string& out, const std::string& s)
{
  out += '"';
  for (unsigned char c : s) {
    switch (c) {
    case '"': out += "\\\""; break;
    case '\\': out += "\\\\"; break;
    case '\n': out += "\\n"; break;
    case '\r': out += "\\r"; break;
    case '\t': out += "\\t"; break;
    default:
      if (c < 0x20) {
        char buf[8];
        std::snprintf(buf, sizeof buf, "\\u%04x", c);
        out += buf;
      } else {
        out += static_cast<char>(c);
      }
    }
  }
  out += '"';
}

void DumpNumber(std::string& out, double v)
{
  if (!std::isfinite(v)) {
    out += "null"; // JSON has no NaN or infinity
    return;
  }
  char buf[32];
  const bool whole = v == std::floor(v) && std::fabs(v) < 1e15;
  if (whole && v == 0 && std::signbit(v))
    std::snprintf(buf, sizeof buf, "-0");
  else if (whole) // as "%.0f" prints it
    *std::to_chars(buf, buf + sizeof buf - 1, static_cast<long long>(v)).ptr = '\0';
  else
    *std::to_chars(buf, buf + sizeof buf - 1, v).ptr = '\0'; // the shortest text that reads back as v
  out += buf;
}

void NewLine(std::string& out, int indent, int depth)
{
  if (indent < 0)
    return;
  out += '\n';
  out.append(static_cast<std::size_t>(indent * depth), ' ');
}

void Spill(std::string& out, std::ostream* spill)
{
  constexpr std::size_t kPiece = std::size_t{1} << 16;
  if (spill != nullptr && out.size() >= kPiece) {
    spill->write(out.data(), static_cast<std::streamsize>(out.size()));
    out.clear();
  }
}

// A table as the arrays it stands for: a row of Width 1 is a bare number.
void DumpTable(std::string& out, const Json::Table& table, int indent, int depth, std::ostream* spill)
{
  const std::size_t rows = table.Rows();
  out += '[';
  for (std::size_t r = 0; r < rows; ++r) {
    if (r > 0)
      out += ',';
    Spill(out, spill);
    NewLine(out, indent, depth + 1);
    const double* row = table.Values.data() + r * table.Width;
    if (table.Width == 1) {
      DumpNumber(out, row[0]);
      continue;
    }
    out += '[';
    for (std::size_t k = 0; k < table.Width; ++k) {
      if (k > 0)
        out += ',';
      NewLine(out, indent, depth + 2);
      DumpNumber(out, row[k]);
    }
    NewLine(out, indent, depth + 1);
    out += ']';
  }
  if (rows > 0)
    NewLine(out, indent, depth);
  out += ']';
}

int HexDigit(char h)
{
  if (h >= '0' && h <= '9')
    return h - '0';
  if (h >= 'a' && h <= 'f')
    return h - 'a' + 10;
  return h >= 'A' && h <= 'F' ? h - 'A' + 10 : -1;
}

class Parser {
public:
  Parser(const std::string& text, bool tables) : Text(text), Tables(tables) {}

  Json ParseDocument()
  {
    Json value = ParseValue();
    SkipSpace();
    if (Pos != Text.size())
      Fail("unexpected text after the value");
    return value;
  }

private:
  [[noreturn]] void Fail(const std::string& what)
  {
    throw std::runtime_error("JSON error at offset " + std::to_string(Pos) + ": " + what);
  }
  void SkipSpace()
  {
    while (Pos < Text.size() && (Text[Pos] == ' ' || Text[Pos] == '\n' || Text[Pos] == '\t' || Text[Pos] == '\r'))
      ++Pos;
  }
  template <std::size_t N>
  bool Consume(const char (&word)[N])
  {
    if (Text.compare(Pos, N - 1, word, N - 1) == 0) {
      Pos += N - 1;
      return true;
    }
    return false;
  }
  Json ParseValue()
  {
    SkipSpace();
    if (Pos >= Text.size())
      Fail("unexpected end");
    const char c = Text[Pos];
    if (c == '{' || c == '[') {
      // Each level is a call: a hostile file must not reach the stack's end.
      if (Depth == kDeepest)
        Fail("values nested more than " + std::to_string(kDeepest) + " deep");
      ++Depth;
      Json nested = c == '{' ? ParseObject() : ParseArray();
      --Depth;
      return nested;
    }
    if (c == '"')
      return Json(ParseString());
    if (c == 't' && Consume("true"))
      return Json(true);
    if (c == 'f' && Consume("false"))
      return Json(false);
    if (c == 'n' && Consume("null"))
      return Json();
    return ParseNumber();
  }
  Json ParseNumber()
  {
    if (const std::optional<double> whole = WholeNumber())
      return Json(*whole);
    const char* begin = Text.c_str() + Pos;
    char* end = nullptr;
    const double v = std::strtod(begin, &end);
    if (end == begin)
      Fail("expected a value");
    Pos += static_cast<std::size_t>(end - begin);
    return Json(v);
  }
  // A plain integer of up to 15 digits, the common case, read without strtod
  // (to the same double: it is exact); nullopt for anything else.
  std::optional<double> WholeNumber()
  {
    std::size_t at = Pos + (Pos < Text.size() && Text[Pos] == '-' ? 1 : 0);
    const std::size_t first = at;
    long long value = 0;
    while (at < Text.size() && at - first < 16 && Text[at] >= '0' && Text[at] <= '9')
      value = value * 10 + (Text[at++] - '0');
    const bool ends = at == Text.size() || std::strchr(".eExX0123456789", Text[at]) == nullptr;
    const bool plain = at > first && at - first <= 15 && ends;
    if (!plain)
      return std::nullopt;
    const bool negative = first > Pos;
    Pos = at;
    return negative ? -static_cast<double>(value) : static_cast<double>(value);
  }
  std::string ParseString()
  {
    ++Pos; // opening quote
    std::string s;
    while (Pos < Text.size() && Text[Pos] != '"') {
      char c = Text[Pos++];
      if (c != '\\') {
        s += c;
        continue;
      }
      if (Pos >= Text.size())
        Fail("unterminated escape");
      c = Text[Pos++];
      switch (c) {
      case 'n': s += '\n'; break;
      case 't': s += '\t'; break;
      case 'r': s += '\r'; break;
      case 'b': s += '\b'; break;
      case 'f': s += '\f'; break;
      case 'u': {
        if (Pos + 4 > Text.size())
          Fail("short \\u escape");
        unsigned code = 0;
        for (int k = 0; k < 4; ++k) {
          const int digit = HexDigit(Text[Pos++]);
          if (digit < 0)
            Fail("\\u escape without four hexadecimal digits");
          code = code * 16 + static_cast<unsigned>(digit);
        }
        if (code < 0x80) {
          s += static_cast<char>(code);
        } else if (code < 0x800) {
          s += static_cast<char>(0xC0 | (code >> 6));
          s += static_cast<char>(0x80 | (code & 0x3F));
        } else {
          s += static_cast<char>(0xE0 | (code >> 12));
          s += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
          s += static_cast<char>(0x80 | (code & 0x3F));
        }
        break;
      }
      default: s += c; break;
      }
    }
    if (Pos >= Text.size())
      Fail("unterminated string");
    ++Pos;
    return s;
  }
  Json ParseArray()
  {
    ++Pos;
    Json::Array items;
    Json::Table table{{}, 0}; // the items so far, while they fit a table
    bool tabular = Tables;
    SkipSpace();
    if (Pos < Text.size() && Text[Pos] == ']') {
      ++Pos;
      return Json(items);
    }
    for (;;) {
      Json item = ParseValue();
      if (tabular && !AddRow(table, item)) {
        items = RowsOf(table);
        tabular = false;
      }
      if (!tabular)
        items.push_back(std::move(item));
      SkipSpace();
      if (Pos < Text.size() && Text[Pos] == ',') {
        ++Pos;
        continue;
      }
      if (Pos < Text.size() && Text[Pos] == ']') {
        ++Pos;
        return tabular ? Json(std::move(table)) : Json(std::move(items));
      }
      Fail("expected ',' or ']'");
    }
  }
  // A number joins a table of numbers, a list of two numbers or more (itself
  // read as a table) a table of rows that long; false for anything else.
  static bool AddRow(Json::Table& table, const Json& item)
  {
    if (item.IsNumber() && table.Width <= 1) {
      table.Width = 1;
      table.Values.push_back(item.AsNumber());
      return true;
    }
    if (!item.IsTable() || item.AsTable().Width != 1 || item.AsTable().Values.size() < 2)
      return false;
    const std::vector<double>& row = item.AsTable().Values;
    if (table.Width == 0)
      table.Width = row.size();
    if (table.Width != row.size())
      return false;
    table.Values.insert(table.Values.end(), row.begin(), row.end());
    return true;
  }
  // The items a table holds, as they were read.
  static Json::Array RowsOf(const Json::Table& table)
  {
    Json::Array items;
    for (std::size_t r = 0; r < table.Rows(); ++r) {
      const double* row = table.Values.data() + r * table.Width;
      if (table.Width == 1)
        items.emplace_back(row[0]);
      else
        items.emplace_back(Json::Table{{row, row + table.Width}, 1});
    }
    return items;
  }
  Json ParseObject()
  {
    ++Pos;
    Json::Object members;
    SkipSpace();
    if (Pos < Text.size() && Text[Pos] == '}') {
      ++Pos;
      return Json(members);
    }
    for (;;) {
      SkipSpace();
      if (Pos >= Text.size() || Text[Pos] != '"')
        Fail("expected a member name");
      std::string key = ParseString();
      SkipSpace();
      if (Pos >= Text.size() || Text[Pos] != ':')
        Fail("expected ':'");
      ++Pos;
      members.emplace_back(std::move(key), ParseValue());
      SkipSpace();
      if (Pos < Text.size() && Text[Pos] == ',') {
        ++Pos;
        continue;
      }
      if (Pos < Text.size() && Text[Pos] == '}') {
        ++Pos;
        return Json(members);
      }
      Fail("expected ',' or '}'");
    }
  }

  const std::string& Text;
  bool Tables; // arrays that fit a table are read as one
  std::size_t Pos = 0;
  static constexpr int kDeepest = 256;
  int Depth = 0;
};

} // namespace

void Json::DumpTo(std::string& out, int indent, int depth, std::ostream* spill) const
{
  if (IsNull()) {
    out += "null";
  } else if (IsBool()) {
    out += AsBool() ? "true" : "false";
  } else if (IsNumber()) {
    DumpNumber(out, AsNumber());
  } else if (IsString()) {
    DumpString(out, AsString());
  } else if (IsTable()) {
    DumpTable(out, AsTable(), indent, depth, spill);
  } else if (IsArray()) {
    const Array& a = AsArray();
    out += '[';
    for (std::size_t k = 0; k < a.size(); ++k) {
      if (k > 0)
        out += ',';
      Spill(out, spill);
      NewLine(out, indent, depth + 1);
      a[k].DumpTo(out, indent, depth + 1, spill);
    }
    if (!a.empty())
      NewLine(out, indent, depth);
    out += ']';
  } else {
    const Object& o = AsObject();
    out += '{';
    for (std::size_t k = 0; k < o.size(); ++k) {
      if (k > 0)
        out += ',';
      Spill(out, spill);
      NewLine(out, indent, depth + 1);
      DumpString(out, o[k].first);
      out += indent < 0 ? ":" : ": ";
      o[k].second.DumpTo(out, indent, depth + 1, spill);
    }
    if (!o.empty())
      NewLine(out, indent, depth);
    out += '}';
  }
}

std::string Json::Dump(int indent) const
{
  std::string out;
  DumpTo(out, indent, 0);
  return out;
}

void Json::Write(std::ostream& out, int indent) const
{
  std::string text;
  DumpTo(text, indent, 0, &out);
  out << text;
}

void Json::WriteText(std::ostream& out) const
{
  if (IsString())
    out << AsString();
  else
    Write(out, -1);
}

Json Json::Parse(const std::string& text)
{
  return Parser(text, false).ParseDocument();
}

Json Json::ParseTables(const std::string& text)
{
  return Parser(text, true).ParseDocument();
}
