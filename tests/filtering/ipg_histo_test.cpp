// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_histo.h"

#include "ipg/framework/ipg_threads.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<int> Bins(const IPG_HISTO& h)
{
  return std::vector<int>(h.GetHistoAddress(), h.GetHistoAddress() + h.GetNbOfValues());
}

} // namespace

TEST(IpgHisto, ConstantImageGivesOneFullBin)
{
  auto image = ImageOf(3, 2, {7, 7, 7, 7, 7, 7});
  IPG_HISTO h(image.get());
  h.SetTools(1400);
  ASSERT_TRUE(h.Apply());
  EXPECT_EQ(h.GetMinHisto(), 7);
  EXPECT_EQ(h.GetMaxHisto(), 7);
  EXPECT_EQ(h.GetNbOfValues(), 1);
  EXPECT_EQ(h.GetCurrentMaxIndice(), 0);
  EXPECT_EQ(h.GetMax(), 6);
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(7), 6);
}

TEST(IpgHisto, CountsEveryLevelOfTheImageRange)
{
  auto image = ImageOf(3, 2, {-2, 0, 3, 3, -2, 3});
  IPG_HISTO h(image.get());
  ASSERT_TRUE(h.ComputeHisto());
  EXPECT_EQ(h.GetMinHisto(), -2);
  EXPECT_EQ(h.GetMaxHisto(), 3);
  EXPECT_EQ(Bins(h), (std::vector<int>{2, 0, 1, 0, 0, 3}));
  EXPECT_EQ(h.GetCurrentMaxIndice(), 5); // an index, not the grey level 3
  EXPECT_EQ(h.GetMax(), 3);
}

TEST(IpgHisto, MarkValueWidensTheRangeButIsNotCounted)
{
  auto image = ImageOf(3, 1, {1, 2, 16777217});
  IPG_HISTO h(image.get());
  ASSERT_TRUE(h.ComputeHisto());
  EXPECT_EQ(h.GetMinHisto(), 1);
  EXPECT_EQ(h.GetMaxHisto(), 16777217);
  EXPECT_EQ(h.GetNbOfValues(), 16777217);
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(16777217), 0);
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(1), 1);
}

TEST(IpgHisto, OutOfRangeLookups)
{
  IPG_HISTO h(std::vector<int>{1, 2, 2});
  EXPECT_EQ(h.GetHistoValue(0), -1) << "nothing computed yet";
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(1), -1);
  EXPECT_EQ(h.GetMax(), 0);
  ASSERT_TRUE(h.ComputeHisto());
  ASSERT_EQ(h.GetNbOfValues(), 3);
  EXPECT_EQ(h.GetHistoValue(-1), -1);
  EXPECT_EQ(h.GetHistoValue(2), 2);
  EXPECT_EQ(h.GetHistoValue(3), 0) << "the index equal to the bin count reads as an empty bin";
  EXPECT_EQ(h.GetHistoValue(4), -1);
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(-1), -1);
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(3), -1);
  EXPECT_EQ(h.GetHistoValueFromGreyLevel(0), 0);
}

TEST(IpgHisto, ListRangeAlwaysContainsZero)
{
  IPG_HISTO positive(std::vector<int>{5, 7, 9});
  EXPECT_EQ(positive.GetMinHisto(), 0);
  EXPECT_EQ(positive.GetMaxHisto(), 9);
  ASSERT_TRUE(positive.ComputeHisto());
  EXPECT_EQ(positive.GetNbOfValues(), 10);
  EXPECT_EQ(Bins(positive), (std::vector<int>{0, 0, 0, 0, 0, 1, 0, 1, 0, 1}));

  IPG_HISTO negative(std::vector<int>{-3, -5, -1});
  EXPECT_EQ(negative.GetMinHisto(), -5);
  EXPECT_EQ(negative.GetMaxHisto(), 0);
  ASSERT_TRUE(negative.ComputeHisto());
  EXPECT_EQ(Bins(negative), (std::vector<int>{1, 0, 1, 0, 1, 0}));
}

TEST(IpgHisto, TieKeepsTheBinThatReachedTheCountFirst)
{
  IPG_HISTO h(std::vector<int>{5, 5, 3, 3});
  ASSERT_TRUE(h.ComputeHisto());
  EXPECT_EQ(h.GetCurrentMaxIndice(), 5);
  EXPECT_EQ(h.GetMax(), 2);
}

// Counted in parallel bands, the counts and the mode are those of counting
// value after value, ties included, at any thread count.
TEST(IpgHisto, BandsGiveTheSerialCountsAndMode)
{
  std::mt19937 random(4);
  std::uniform_int_distribution<int> level(-5, 60);
  std::vector<std::unique_ptr<DCM_STRUCT>> images;
  images.push_back(TestImage(700, 400).Each([&](unsigned, unsigned) { return level(random); }).Build());
  images.push_back(TestImage(700, 400).Each([](unsigned c, unsigned r) { return int((c * 7 + r) % 4); }).Build());
  images.push_back(TestImage(700, 400).Each([](unsigned c, unsigned r) { return int(c * r % 70001); }).Build());
  for (const auto& image : images) {
    const std::vector<int> pixels = PixelsOf(*image);
    const auto [low, high] = std::minmax_element(pixels.begin(), pixels.end());
    std::vector<int> counts(static_cast<std::size_t>(*high - *low + 1), 0);
    int mode = 0;
    for (int v : pixels)
      if (++counts[v - *low] > counts[mode])
        mode = v - *low;
    for (int threads : {1, 2, 7}) {
      Ipg_SetNumThreads(threads);
      IPG_HISTO h(image.get());
      ASSERT_TRUE(h.ComputeHisto());
      EXPECT_EQ(Bins(h), counts);
      EXPECT_EQ(h.GetCurrentMaxIndice(), mode) << threads << " threads";
    }
  }
  Ipg_SetNumThreads(0);
}

TEST(IpgHisto, ApplyRunsOnlyCode1400)
{
  auto image = ImageOf(2, 1, {1, 2});
  IPG_HISTO h(image.get());
  EXPECT_DOUBLE_EQ(h.GetTools(), 0.0);
  EXPECT_FALSE(h.Apply());
  EXPECT_EQ(h.GetHistoAddress(), nullptr);
  EXPECT_EQ(h.GetMinHisto(), -1);
  EXPECT_EQ(h.GetMaxHisto(), -1);
  h.SetTools(1400);
  EXPECT_TRUE(h.Apply());
  EXPECT_NE(h.GetHistoAddress(), nullptr);

  IPG_HISTO none; // without input nothing is computed
  EXPECT_FALSE((none.SetTools(1400), none.Apply()));
  EXPECT_EQ(none.GetHistoAddress(), nullptr);
}

TEST(IpgHisto, RecomputingKeepsTheFirstRangeAndRecountsThePixels)
{
  auto image = ImageOf(3, 1, {1, 2, 3});
  IPG_HISTO h(image.get());
  ASSERT_TRUE(h.ComputeHisto());
  image->Data->SetValue(0u, 0u, 10);
  image->Data->SetValue(2u, 0u, 2);
  ASSERT_TRUE(h.ComputeHisto());
  EXPECT_EQ(h.GetMinHisto(), 1);
  EXPECT_EQ(h.GetMaxHisto(), 3);
  EXPECT_EQ(Bins(h), (std::vector<int>{0, 2, 0}));
  EXPECT_EQ(h.GetCurrentMaxIndice(), 1);
}

TEST(IpgHisto, SaveWritesTheRangeThenOneCountPerLine)
{
  MessageCapture capture;
  IPG_HISTO h(std::vector<int>{-1, 1, 1});
  ASSERT_TRUE(h.ComputeHisto());
  const std::string path = ::testing::TempDir() + "ipg_histo_save.txt";
  h.Save(path.c_str());
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  EXPECT_EQ(text.str(), "min = -1 \nmax = 1 \n1\n0\n2\n");
  std::remove(path.c_str());

  h.Save("/nonexistent-directory/histo.txt");
  EXPECT_TRUE(capture.Texts.empty());
}
