// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/filtering/ipg_filter.h"
#include "ipg/filtering/ipg_filter_virtual.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

const char* kRotationMessage = "la rotation des filtres non 3x3 n'est pas gérée : RotateFilter";

// Coefficients written as in the catalogue: rows separated by '/'.
std::vector<int> Parse(const std::string& text)
{
  std::istringstream in(text);
  std::vector<int> values;
  std::string token;
  while (in >> token)
    if (token != "/")
      values.push_back(std::stoi(token));
  return values;
}

std::vector<int> Ones(int n) { return std::vector<int>(n * n, 1); }

std::vector<int> Coefficients(const IPG_FILTER& f)
{
  std::vector<int> values;
  for (short i = 0; i < f.GetSizeX() * f.GetSizeY(); ++i)
    values.push_back(static_cast<int>(f.GetIndex(i)));
  return values;
}

struct CatalogueEntry {
  int number;
  short size;
  std::vector<int> coefficients;
};

std::vector<CatalogueEntry> Catalogue()
{
  std::vector<int> pyramid;
  const int a[7] = {1, 2, 3, 4, 3, 2, 1};
  for (int r = 0; r < 7; ++r)
    for (int c = 0; c < 7; ++c)
      pyramid.push_back(a[r] * a[c]);
  return {
      {0, 3, Parse("1 1 1 / 1 1 1 / 1 1 1")},
      {1, 3, Parse("1 1 1 / 1 2 1 / 1 1 1")},
      {2, 3, Parse("1 2 1 / 2 4 2 / 1 2 1")},
      {3, 3, Parse("0 -1 0 / -1 4 -1 / 0 -1 0")},
      {4, 3, Parse("-1 -2 -1 / -2 12 -2 / -1 -2 -1")},
      {5, 3, Parse("0 -2 0 / -2 9 -2 / 0 -2 0")},
      {6, 3, Parse("-1 0 1 / -2 0 2 / -1 0 1")},
      {7, 3, Parse("1 0 -1 / 2 0 -2 / 1 0 -1")},
      {8, 3, Parse("-1 -2 -1 / 0 0 0 / 1 2 1")},
      {9, 3, Parse("1 2 1 / 0 0 0 / -1 -2 -1")},
      {10, 3, Parse("-2 -1 0 / -1 0 1 / 0 1 2")},
      {11, 3, Parse("2 1 0 / 1 0 -1 / 0 -1 -2")},
      {12, 3, Parse("0 -1 -2 / 1 0 -1 / 2 1 0")},
      {13, 3, Parse("0 1 2 / -1 0 1 / -2 -1 0")},
      {14, 3, Parse("-1 0 1 / -1 0 1 / -1 0 1")},
      {15, 3, Parse("1 0 -1 / 1 0 -1 / 1 0 -1")},
      {16, 3, Parse("-1 -1 -1 / 0 0 0 / 1 1 1")},
      {17, 3, Parse("1 1 1 / 0 0 0 / -1 -1 -1")},
      {18, 3, Parse("-1 -1 0 / -1 0 1 / 0 1 1")},
      {19, 3, Parse("1 1 0 / 1 0 -1 / 0 -1 -1")},
      {20, 3, Parse("0 -1 -1 / 1 0 -1 / 1 1 0")},
      {21, 3, Parse("0 1 1 / -1 0 1 / -1 -1 0")},
      {22, 3, Parse("1 1 1 / 1 -8 1 / 1 1 1")},
      {23, 3, Parse("0 0 0 / 2 2 2 / 1 1 1")},
      {50, 5, Ones(5)},
      {51, 5, Parse("0 -2 -2 -2 0 / -2 5 1 5 -2 / -2 1 10 1 -2 / -2 5 1 5 -2 / 0 -2 -2 -2 0")},
      {52, 5, Parse("0 -1 -2 -1 0 / -1 1 4 1 -1 / -2 4 12 4 -2 / -1 1 4 1 -1 / 0 -1 -2 -1 0")},
      {100, 7, Ones(7)},
      {101, 7, pyramid},
      {102, 7, Parse("1 4 8 10 8 4 1 / 4 12 25 29 25 12 4 / 8 25 49 58 49 25 8 / 10 29 58 67 58 29 10 / "
                     "8 25 49 58 49 25 8 / 4 12 25 29 25 12 4 / 1 4 8 10 8 4 1")},
      {200, 3, Ones(3)},
      {201, 3, Parse("0 1 0 / 1 1 1 / 0 1 0")},
      {202, 3, Parse("0 1 0 / 0 1 0 / 1 1 1")},
      {203, 5, Ones(5)},
      {204, 5, Parse("0 1 1 1 0 / 1 1 1 1 1 / 1 1 1 1 1 / 1 1 1 1 1 / 0 1 1 1 0")},
      {205, 5, Parse("0 0 1 0 0 / 0 1 1 1 0 / 0 1 1 1 0 / 0 1 1 1 0 / 1 1 1 1 1")},
      {206, 7, Ones(7)},
      {207, 7, Parse("0 0 1 1 1 0 0 / 0 1 1 1 1 1 0 / 1 1 1 1 1 1 1 / 1 1 1 1 1 1 1 / 1 1 1 1 1 1 1 / "
                     "0 1 1 1 1 1 0 / 0 0 1 1 1 0 0")},
      {208, 7, Parse("0 0 0 1 0 0 0 / 0 0 1 1 1 0 0 / 0 0 1 1 1 0 0 / 0 1 1 1 1 1 0 / 0 1 1 1 1 1 0 / "
                     "1 1 1 1 1 1 1 / 1 1 1 1 1 1 1")},
      {209, 11, Parse("0 0 0 1 1 1 1 1 0 0 0 / 0 0 1 1 1 1 1 1 1 0 0 / 0 1 1 1 1 1 1 1 1 1 0 / "
                      "1 1 1 1 1 1 1 1 1 1 1 / 1 1 1 1 1 1 1 1 1 1 1 / 1 1 1 1 1 1 1 1 1 1 1 / "
                      "1 1 1 1 1 1 1 1 1 1 1 / 1 1 1 1 1 1 1 1 1 1 1 / 0 1 1 1 1 1 1 1 1 1 0 / "
                      "0 0 1 1 1 1 1 1 1 0 0 / 0 0 0 1 1 1 1 1 0 0 0")},
      {401, 3, Parse("0 1 0 / 1 0 1 / 0 1 0")},
      {402, 3, Parse("1 0 1 / 0 0 0 / 1 0 1")},
      {403, 3, Parse("1 1 1 / 1 0 1 / 1 1 1")},
  };
}

} // namespace

TEST(IpgFilter, CatalogueMatchesEveryPredefinedKernel)
{
  for (const CatalogueEntry& entry : Catalogue()) {
    SCOPED_TRACE("kernel " + std::to_string(entry.number));
    IPG_FILTER f(entry.number);
    EXPECT_EQ(f.GetSizeX(), entry.size);
    EXPECT_EQ(f.GetSizeY(), entry.size);
    ASSERT_EQ(entry.coefficients.size(), static_cast<size_t>(entry.size * entry.size));
    EXPECT_EQ(Coefficients(f), entry.coefficients);
    EXPECT_NE(f.GetDataFilter(), nullptr);
    EXPECT_EQ(f.GetDatadFilter(), nullptr);
  }
}

TEST(IpgFilter, UnknownNumbersGiveTheBoxAndFactorsSumTheCoefficients)
{
  for (int number : {-1, 24, 99, 999}) {
    IPG_FILTER f(number);
    EXPECT_EQ(Coefficients(f), Ones(3));
    EXPECT_FLOAT_EQ(f.GetFactor(), 9.0f);
  }
  for (auto [number, factor] : {std::pair{6, 0.0f}, {4, 0.0f}, {102, 999.0f}, {22, 0.0f}, {209, 97.0f}})
    EXPECT_FLOAT_EQ(IPG_FILTER(number).GetFactor(), factor) << number;
}

TEST(IpgFilter, ConstructorsCopyAndRealDataTakesPrecedence)
{
  int ints[6] = {1, 2, 3, 4, 5, 6};
  IPG_FILTER wide(ints, 3, 2);
  ints[0] = 100; // the kernel holds its own copy
  EXPECT_EQ(Coefficients(wide), Parse("1 2 3 / 4 5 6"));
  EXPECT_EQ(wide.GetIndex(6), 0.0);
  EXPECT_EQ(wide.GetIndex(-1), 0.0);
  // Height as row stride: (2, 0) and (0, 1) both read linear index 2.
  EXPECT_EQ(wide.GetFilterValue(2, 0), 3);
  EXPECT_EQ(wide.GetFilterValue(0, 1), 3);
  EXPECT_EQ(wide.GetFilterValue(3, 0), 0);
  EXPECT_EQ(wide.GetFilterValue(0, 2), 0);

  double reals[9] = {0.5, -1.5, 2.5, 1, 1, 1, 1, 1, 1};
  IPG_FILTER real(reals, 3, 3);
  EXPECT_EQ(real.GetDataFilter(), nullptr);
  EXPECT_EQ(real.GetIndex(1), -1.5);
  EXPECT_EQ(real.GetFilterValue(1, 0), -1); // truncated toward zero
  EXPECT_FLOAT_EQ(real.GetFactor(), 7.5f);

  int tallData[6] = {1, 2, 3, 4, 5, 6};
  IPG_FILTER tall(tallData, 2, 3);
  IPG_FILTER copy(&tall);
  EXPECT_TRUE(copy.GetSizeX() == 2 && copy.GetSizeY() == 3);
  EXPECT_EQ(Coefficients(copy), Parse("1 2 / 3 4 / 5 6"));
  EXPECT_EQ(copy.GetDatadFilter(), nullptr);
  EXPECT_FLOAT_EQ(tall.GetFactor(), 10.0f); // the first width x width coefficients

  IPG_FILTER empty(static_cast<IPG_FILTER*>(nullptr));
  EXPECT_EQ(empty.GetIndex(0), 0.0);
  EXPECT_EQ(empty.GetFilterValue(0, 0), 0);
  EXPECT_FLOAT_EQ(empty.GetFactor(), 1.0f);
  EXPECT_FALSE(empty.RotateFilter(true));
}

TEST(IpgFilter, SetDataAndResizeFillWithByteOnes)
{
  IPG_FILTER f(0);
  int values[9] = {9, 8, 7, 6, 5, 4, 3, 2, 1};
  f.SetDataFilter(values);
  EXPECT_EQ(f.GetIndex(0), 9.0);
  f.SetDataFilter(nullptr);
  f.SetDatadFilter(nullptr); // no real array: nothing happens
  EXPECT_EQ(f.GetDatadFilter(), nullptr);

  f.SetSizeX(5);
  EXPECT_TRUE(f.GetSizeX() == 5 && f.GetSizeY() == 3);
  ASSERT_TRUE(f.GetDataFilter() && f.GetDatadFilter());
  EXPECT_EQ(f.GetDataFilter()[14], 16843009);
  EXPECT_NE(f.GetDatadFilter()[14], 0.0);

  f.SetSizeY(0);
  EXPECT_EQ(f.GetSizeY(), 1);
  EXPECT_EQ(f.GetDataFilter()[4], 16843009);
  EXPECT_NE(f.GetDatadFilter()[1], 0.0); // first half of the bytes
  EXPECT_EQ(f.GetDatadFilter()[4], 0.0);

  double reals[5] = {1, 2, 3, 4, 5};
  f.SetDatadFilter(reals);
  EXPECT_EQ(f.GetIndex(4), 5.0);
}

TEST(IpgFilter, RotationTurnsTheRingByOneStep)
{
  IPG_FILTER f(14);
  ASSERT_TRUE(f.RotateFilter(false));
  EXPECT_EQ(Coefficients(f), Coefficients(IPG_FILTER(18)));
  ASSERT_TRUE(f.RotateFilter(true));
  EXPECT_EQ(Coefficients(f), Coefficients(IPG_FILTER(14)));

  int ring[9] = {1, 2, 3, 4, 0, 5, 6, 7, 8};
  IPG_FILTER g(ring, 3, 3);
  g.RotateFilter(true); // each ring entry takes its clockwise neighbour
  EXPECT_EQ(Coefficients(g), Parse("2 3 5 / 1 0 8 / 4 6 7"));
  for (int k = 0; k < 7; ++k)
    g.RotateFilter(true);
  EXPECT_EQ(Coefficients(g), Parse("1 2 3 / 4 0 5 / 6 7 8"));
}

TEST(IpgFilter, RotationOfRealKernelsTruncatesTheCarriedValue)
{
  double reals[9] = {0.5, 1.5, 2.5, 3.5, 9.5, 5.5, 6.5, 7.5, 8.5};
  IPG_FILTER f(reals, 3, 3);
  ASSERT_TRUE(f.RotateFilter(true));
  const double* d = f.GetDatadFilter();
  EXPECT_EQ(d[0], 1.5);
  EXPECT_EQ(d[3], 0.0); // 0.5 carried across the wrap
  EXPECT_EQ(d[4], 9.5);
  IPG_FILTER g(reals, 3, 3);
  ASSERT_TRUE(g.RotateFilter(false));
  EXPECT_EQ(g.GetDatadFilter()[1], 0.0);
  EXPECT_EQ(g.GetDatadFilter()[0], 3.5);
}

TEST(IpgFilter, RotationRefusesKernelsWithNoSideOfThree)
{
  MessageCapture capture;
  IPG_FILTER big(50);
  EXPECT_FALSE(big.RotateFilter(true));
  std::vector<int> data(15);
  std::iota(data.begin(), data.end(), 0);
  IPG_FILTER narrow(data.data(), 3, 5); // one side of 3: the first nine turn
  EXPECT_TRUE(narrow.RotateFilter(true));
  EXPECT_EQ(capture.Texts, std::vector<std::string>{kRotationMessage});
  EXPECT_EQ(capture.Captions[0], "Information");
  EXPECT_EQ(narrow.GetIndex(0), 1.0);
  EXPECT_EQ(narrow.GetIndex(9), 9.0);

  IPG_FILTER tooSmall(data.data(), 3, 1);
  EXPECT_FALSE(tooSmall.RotateFilter(true));
}

TEST(IpgFilterVirtual, OwnsDefinedAndUserKernels)
{
  IPG_FILTER_VIRTUAL v;
  EXPECT_EQ(v.GetDefinedFilterNumber(), -1);
  EXPECT_TRUE(v.GetDefineFilter() == nullptr && v.GetUserFilter() == nullptr);
  EXPECT_EQ(v.GetImageBorderType(), 0);
  EXPECT_FALSE(v.RotateDefinedFilter(true));
  EXPECT_FALSE(v.RotateUserFilter(true));

  v.SetDefinedFilter(14);
  EXPECT_EQ(v.GetDefinedFilterNumber(), 14);
  EXPECT_TRUE(v.RotateDefinedFilter(false));
  EXPECT_EQ(Coefficients(*v.GetDefineFilter()), Coefficients(IPG_FILTER(18)));

  int user[3] = {1, 2, 1};
  v.SetUserFilter(user, 3, 1);
  EXPECT_EQ(v.GetDefinedFilterNumber(), -1);
  EXPECT_NE(v.GetDefineFilter(), nullptr);
  EXPECT_TRUE(v.GetUserFilter()->GetSizeX() == 3 && v.GetUserFilter()->GetSizeY() == 1);

  v.SetDefinedFilter(2);
  v.SetImageBorderType(3);
  DCM_STRUCT out(4, 4);
  v.SetImaOut(&out);
  IPG_FILTER_VIRTUAL copy(v);
  EXPECT_EQ(copy.GetDefinedFilterNumber(), 2);
  EXPECT_EQ(copy.GetImageBorderType(), 3);
  EXPECT_EQ(copy.GetImaOut(), nullptr);
  ASSERT_NE(copy.GetDefineFilter(), v.GetDefineFilter());
  EXPECT_EQ(Coefficients(*copy.GetDefineFilter()), Coefficients(IPG_FILTER(2)));
  EXPECT_EQ(Coefficients(*copy.GetUserFilter()), Parse("1 2 1"));

  IPG_FILTER_VIRTUAL userOnly;
  userOnly.SetUserFilter(user, 3, 1);
  userOnly.SetDefinedFilter(5);
  userOnly.SetUserFilter(user, 1, 3);
  IPG_FILTER_VIRTUAL copyOfUserOnly(userOnly);
  EXPECT_EQ(copyOfUserOnly.GetDefinedFilterNumber(), -1);
}
