// SPDX-License-Identifier: Apache-2.0
// The program's JSON values: tables print as the arrays they stand for.
#include "cli/json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace {

Json ArrayOf(const std::vector<double>& values, std::size_t width)
{
  Json::Array rows;
  for (std::size_t r = 0; r + width <= values.size(); r += width) {
    if (width == 1) {
      rows.emplace_back(values[r]);
      continue;
    }
    Json::Array row;
    for (std::size_t k = 0; k < width; ++k)
      row.emplace_back(values[r + k]);
    rows.emplace_back(std::move(row));
  }
  return Json(std::move(rows));
}

} // namespace

TEST(Json, TablesPrintAsTheirArraysAtEveryIndent)
{
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::pair<std::vector<double>, std::size_t>> cases = {
      {{}, 1}, {{}, 2}, {{7}, 1}, {{0, -3, 2.5, 1e20, nan}, 1}, {{1, 2, 3, 4, 5, 6}, 2}, {{1, 2, 3, 4, 5, 6}, 3}};
  for (const auto& [values, width] : cases) {
    const Json table(Json::Table{values, width});
    const Json array = ArrayOf(values, width);
    for (int indent : {-1, 0, 2}) {
      EXPECT_EQ(table.Dump(indent), array.Dump(indent)) << "width " << width << ", indent " << indent;
      Json inObject(Json::Object{});
      inObject.Set("t", table);
      Json arrayInObject(Json::Object{});
      arrayInObject.Set("t", array);
      EXPECT_EQ(inObject.Dump(indent), arrayInObject.Dump(indent));
    }
  }
  EXPECT_EQ(Json(Json::Table{{1, 2, 3, 4}, 2}).Dump(-1), "[[1,2],[3,4]]");
  // A last row short of Width is not printed.
  EXPECT_EQ(Json(Json::Table{{1, 2, 3}, 2}).Dump(-1), "[[1,2]]");
}

TEST(Json, ReadingTablesKeepsTheTextAndTablesOnlyWhatFits)
{
  const char* texts[] = {"[]", "[1,2.5,-0,1e300]", "[[1,2],[3,4],[5,6]]", "[[1],[2]]", "[[1,2],[3]]",
                         "[1,[2,3]]", "[[1,2],4]", "[\"a\",1]", "[[[1,2],[3,4]],[[5,6],[7,8]]]",
                         "{\"r\":[[1,2,3],[4,5,6]],\"s\":[null,1],\"t\":[1,null]}", "[[1,2],[3,\"x\"]]"};
  for (const char* text : texts)
    for (int indent : {-1, 2})
      EXPECT_EQ(Json::ParseTables(text).Dump(indent), Json::Parse(text).Dump(indent)) << text;
  EXPECT_TRUE(Json::ParseTables("[1,2,3]").IsTable());
  const Json pairs = Json::ParseTables("[[1,2],[3,4]]");
  ASSERT_TRUE(pairs.IsTable());
  EXPECT_EQ(pairs.AsTable().Width, 2u);
  EXPECT_EQ(pairs.AsTable().Values, (std::vector<double>{1, 2, 3, 4}));
  EXPECT_TRUE(Json::ParseTables("[]").IsArray());
  EXPECT_TRUE(Json::ParseTables("[[1],[2]]").IsArray());
  EXPECT_TRUE(Json::ParseTables("[1,[2,3]]").IsArray());
  EXPECT_TRUE(Json::Parse("[1,2,3]").IsArray());
}

TEST(Json, NumbersReadAsStrtodReadsThem)
{
  const char* texts[] = {"0", "-0", "7", "-42", "007", "123456789012345", "-123456789012345", "1234567890123456",
                         "99999999999999999999", "1.5", "-2e3", "1E2", "0x10", "4.9e-324", "1e400"};
  for (const char* text : texts) {
    const Json value = Json::Parse(text);
    ASSERT_TRUE(value.IsNumber()) << text;
    const double expected = std::strtod(text, nullptr);
    EXPECT_EQ(value.AsNumber(), expected) << text;
    EXPECT_EQ(std::signbit(value.AsNumber()), std::signbit(expected)) << text;
  }
  EXPECT_EQ(Json::Parse("[12,-3]").Dump(-1), "[12,-3]");
  EXPECT_THROW(Json::Parse("1x"), std::runtime_error);
  EXPECT_THROW(Json::Parse("-"), std::runtime_error);
}

TEST(Json, DeepNestingIsAnErrorNotACrash)
{
  const auto nested = [](int depth) { return std::string(depth, '[') + std::string(depth, ']'); };
  EXPECT_NO_THROW(Json::Parse(nested(256)));
  EXPECT_THROW(Json::Parse(nested(257)), std::runtime_error);
  EXPECT_THROW(Json::ParseTables(nested(1000000)), std::runtime_error);
  EXPECT_THROW(Json::Parse(std::string(1000000, '{')), std::runtime_error);
}

TEST(Json, UnicodeEscapesTakeFourHexadecimalDigits)
{
  EXPECT_EQ(Json::Parse("\"\\u00e9\\u0041\\u20AC\"").AsString(), "\u00e9A\u20ac");
  for (const char* bad : {"\"\\uZZZZ\"", "\"\\u12zz\"", "\"\\u-123\"", "\"\\u12\""})
    EXPECT_THROW(Json::Parse(bad), std::runtime_error) << bad;
}
