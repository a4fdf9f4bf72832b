// SPDX-License-Identifier: Apache-2.0
#include "ipg/segmentation/ipg_connexity_processing.h"

#include "ipg/framework/ipg_threads.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <set>
#include <utility>

namespace {

using Pixels = std::vector<std::pair<int, int>>;

Pixels ResidentsOf(const IPG_CONNECTED_COMPONENT* component)
{
  Pixels out;
  for (int i = 0; i < component->GetNbResidents(); ++i)
    out.emplace_back(static_cast<int>(component->GetResidents()[i].GetX()),
                     static_cast<int>(component->GetResidents()[i].GetY()));
  return out;
}

std::vector<Pixels> ComponentsOf(const IPG_CONNEXITY_PROCESSING& op)
{
  std::vector<Pixels> out;
  for (int k = 0; k < op.GetNbComponents(); ++k)
    out.push_back(ResidentsOf(op.GetComponent(k)));
  return out;
}

TEST(Labelling, ResidentsInRasterOrderComponentsBySurvivingProvisionalLabel)
{
  auto u = MaskFromText({"X.X", "X.X", "XXX"});
  IPG_CONNEXITY_PROCESSING one(u.get(), kRoiInside);
  ASSERT_TRUE(one.Labelling_8Neighbors());
  EXPECT_EQ(ComponentsOf(one), (std::vector<Pixels>{{{0, 0}, {2, 0}, {0, 1}, {2, 1}, {0, 2}, {1, 2}, {2, 2}}}));
  EXPECT_EQ(one.GetComponent(0)->GetIndex(), 0);

  // The U takes provisional labels 0 and 2 and merges toward 2; the dot keeps 1,
  // so it comes first although the U starts earlier in raster order.
  auto image = MaskFromText({"X.X.X", "X...X", "XXXXX"});
  IPG_CONNEXITY_PROCESSING op(image.get(), kRoiInside);
  ASSERT_TRUE(op.Labelling_8Neighbors());
  ASSERT_EQ(op.GetNbComponents(), 2);
  EXPECT_EQ(ResidentsOf(op.GetComponent(0)), (Pixels{{2, 0}}));
  EXPECT_EQ(op.GetComponent(1)->GetNbResidents(), 9);
  EXPECT_EQ(op.GetComponent(1)->GetIndex(), 1);
}

TEST(Labelling, LabelLimitStrikesBeforeAnyRemainingPixelUnusableOnesAreRefused)
{
  MessageCapture capture;
  // Three separate pixels issue labels 0, 1, 2; the third is issued at (4, 0).
  auto early = MaskFromText({"X.X.X", "....."});
  IPG_CONNEXITY_PROCESSING op(early.get(), kRoiInside);
  op.SetNbCompMax(3);
  EXPECT_FALSE(op.Labelling_8Neighbors());
  EXPECT_EQ(op.GetComponents(), nullptr);
  EXPECT_FALSE(op.Labelling_8NeighborsTwoPass());
  EXPECT_EQ(capture.Texts, std::vector<std::string>(2, "Nombre d'étiquettes max dépassés"));
  EXPECT_EQ(capture.Captions[0], "Information");

  // Issued at the very last pixel: success.
  auto last = MaskFromText({".....", "X.X.X"});
  IPG_CONNEXITY_PROCESSING atEnd(last.get(), kRoiInside);
  atEnd.SetNbCompMax(3);
  EXPECT_TRUE(atEnd.Labelling_8Neighbors());
  EXPECT_EQ(atEnd.GetNbComponents(), 3);
  EXPECT_TRUE(atEnd.Labelling_8NeighborsTwoPass());
  EXPECT_EQ(capture.Texts.size(), 2u);

  // Provisional labels count, not components: the U issues two.
  auto u = MaskFromText({"X.X", "XXX", "..."});
  IPG_CONNEXITY_PROCESSING twoLabels(u.get(), kRoiInside);
  twoLabels.SetNbCompMax(2);
  EXPECT_FALSE(twoLabels.Labelling_8Neighbors());

  // An unusable limit is refused as an allocation.
  MessageCapture allocation;
  auto single = MaskFromText({"X"});
  IPG_CONNEXITY_PROCESSING unusable(single.get(), kRoiInside);
  unusable.SetNbCompMax(-1);
  EXPECT_FALSE(unusable.Labelling_8Neighbors());
  unusable.SetNbCompMax(70000);
  EXPECT_FALSE(unusable.Labelling_8NeighborsTwoPass());
  EXPECT_EQ(allocation.Texts, (std::vector<std::string>{"Allocation mémoire impossible", "Allocation mémoire impossible"}));
  IPG_CONNEXITY_PROCESSING noInput(nullptr, kRoiInside);
  EXPECT_FALSE(noInput.Apply());
}

// 8-connected components by a depth-first flood, each as a sorted pixel set.
std::set<std::set<std::pair<int, int>>> FloodComponents(const DCM_STRUCT& image, int value)
{
  const int cols = static_cast<int>(image.GetNbOfCols()), rows = static_cast<int>(image.GetNbOfRows());
  auto on = [&](int x, int y) { return x >= 0 && y >= 0 && x < cols && y < rows && image.Data->GetValue(x, y) == value; };
  std::set<std::pair<int, int>> seen;
  std::set<std::set<std::pair<int, int>>> out;
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < cols; ++c) {
      std::set<std::pair<int, int>> component;
      for (std::vector<std::pair<int, int>> todo{{c, r}}; !todo.empty();) {
        const auto [x, y] = todo.back();
        todo.pop_back();
        if (!on(x, y) || !seen.insert({x, y}).second)
          continue;
        component.insert({x, y});
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx)
            todo.push_back({x + dx, y + dy});
      }
      if (!component.empty())
        out.insert(component);
    }
  return out;
}

// Both readings on one image at one label limit: the same outcome, messages,
// components in the same order with the same residents. Returns the outcome.
bool SameAsThePixelScan(DCM_STRUCT* image, int limit, const std::string& where)
{
  MessageCapture fastMessages;
  IPG_CONNEXITY_PROCESSING fast(image, 1), plain(image, 1);
  fast.SetNbCompMax(limit);
  plain.SetNbCompMax(limit);
  const bool fastOk = fast.Labelling_8Neighbors();
  const std::vector<std::string> fastTexts = fastMessages.Texts;
  MessageCapture plainMessages;
  EXPECT_EQ(fastOk, plain.Labelling_8NeighborsTwoPass()) << where;
  EXPECT_EQ(fastTexts, plainMessages.Texts) << where;
  EXPECT_EQ(ComponentsOf(fast), ComponentsOf(plain)) << where;
  for (int k = 0; k < std::min(fast.GetNbComponents(), plain.GetNbComponents()); ++k)
    EXPECT_EQ(fast.GetComponent(k)->GetIndex(), k) << where;
  return fastOk;
}

TEST(Labelling, RunsMatchThePixelScanOnRandomImagesUpToTheLabelLimit)
{
  std::mt19937 random(12345);
  for (int trial = 0; trial < 60; ++trial) {
    const unsigned cols = 1 + random() % 50, rows = 1 + random() % 40;
    std::bernoulli_distribution set(0.2 + 0.05 * (trial % 10));
    auto built = ImageOf(cols, rows, [&](unsigned, unsigned) { return set(random) ? 1 : 0; });
    if (trial % 2 == 0) { // the last label issued at the very last pixel
      for (const auto& [c, r] : {std::pair{cols - 1, rows - 1}, {cols - 2, rows - 1}, {cols - 2, rows - 2}, {cols - 1, rows - 2}})
        if (c < cols && r < rows)
          built->Data->SetValue(c, r, 0);
      built->Data->SetValue(cols - 1, rows - 1, 1);
    }
    const std::string where = "trial " + std::to_string(trial);
    ASSERT_TRUE(SameAsThePixelScan(built.get(), 2000, where));
    int least = 0; // the smallest limit that succeeds, and the two sides of it
    while (least < 2000 && !SameAsThePixelScan(built.get(), least, where))
      ++least;
    ASSERT_FALSE(::testing::Test::HasFailure()) << where;
    IPG_CONNEXITY_PROCESSING fast(built.get(), 1);
    ASSERT_TRUE(fast.Labelling_8Neighbors());
    std::set<std::set<std::pair<int, int>>> found;
    for (const Pixels& p : ComponentsOf(fast))
      found.insert(std::set<std::pair<int, int>>(p.begin(), p.end()));
    ASSERT_EQ(found, FloodComponents(*built, 1)) << where;
  }
}

TEST(Labelling, BandsOfRowsWriteTheSameResidentsAtAnyThreadCount)
{
  std::mt19937 random(99);
  std::vector<std::array<int, 3>> discs(300); // centre and squared radius
  for (auto& d : discs)
    d = {static_cast<int>(random() % 720), static_cast<int>(random() % 720), static_cast<int>(4 + random() % 400)};
  auto image = ImageOf(720, 720, [&](unsigned c, unsigned r) {
    for (const auto& [x, y, r2] : discs)
      if ((static_cast<int>(c) - x) * (static_cast<int>(c) - x) + (static_cast<int>(r) - y) * (static_cast<int>(r) - y) < r2)
        return 1;
    return 0;
  });
  // Noise: labels and pairs on every seam between bands, chains of them
  // through several bands, and a label limit that the bands reach.
  std::bernoulli_distribution set(0.65);
  auto noise = ImageOf(700, 660, [&](unsigned, unsigned) { return set(random) ? 1 : 0; });
  for (DCM_STRUCT* tested : {image.get(), noise.get()}) {
    IPG_CONNEXITY_PROCESSING plain(tested, 1);
    plain.SetNbCompMax(8000);
    ASSERT_TRUE(plain.Labelling_8NeighborsTwoPass());
    ASSERT_GT(plain.GetNbComponents(), 20);
    for (const int threads : {1, 2, 7}) {
      Ipg_SetNumThreads(threads);
      IPG_CONNEXITY_PROCESSING fast(tested, 1);
      fast.SetNbCompMax(8000);
      ASSERT_TRUE(fast.Labelling_8Neighbors());
      EXPECT_EQ(ComponentsOf(fast), ComponentsOf(plain)) << threads << " threads";
    }
  }
  Ipg_SetNumThreads(7);
  for (const int limit : {2000, 4000})
    SameAsThePixelScan(noise.get(), limit, "noise, limit " + std::to_string(limit));
  Ipg_SetNumThreads(0);
}

class KeepComponents : public ::testing::Test {
protected:
  std::unique_ptr<DCM_STRUCT> In = MaskFromText({"XX...X.", "XX...X.", "X..X.X.", "...X.X."});
  DCM_STRUCT Out{7, 4};
  MessageCapture Capture;
};

TEST_F(KeepComponents, LargestKeepsOnlyTheBiggestTheValueRuleDecidesWhatErasingWrites)
{
  IPG_CONNEXITY_PROCESSING op(In.get(), kRoiInside);
  op.SetImaOut(&Out);
  ASSERT_TRUE(op.Apply()); // code 800 labels
  ASSERT_TRUE((op.SetTools(801), op.Apply()));
  EXPECT_EQ(TextFromMask(Out), (std::vector<std::string>{"XX.....", "XX.....", "X......", "......."}));
  EXPECT_EQ(Out.Data->GetMax(), kRoiInside);

  auto tie = MaskFromText({"X.X", "X.X"}); // a tie keeps the first listed
  DCM_STRUCT out(3, 2);
  IPG_CONNEXITY_PROCESSING first(tie.get(), kRoiInside);
  first.SetImaOut(&out);
  ASSERT_TRUE(first.Labelling_8Neighbors());
  ASSERT_TRUE(first.KeepLargestConnectedComponent());
  EXPECT_EQ(TextFromMask(out), (std::vector<std::string>{"X..", "X.."}));

  // Value 0: the background components are the objects; erased ones become 16777217.
  auto inverse = MaskFromText({"XX...X.", "......."}, 0, kRoiInside);
  DCM_STRUCT small(7, 2);
  IPG_CONNEXITY_PROCESSING zero(inverse.get(), 0);
  zero.SetImaOut(&small);
  ASSERT_TRUE(zero.Labelling_8Neighbors());
  ASSERT_TRUE(zero.KeepLargestConnectedComponent());
  EXPECT_EQ(TextFromMask(small, 0), (std::vector<std::string>{"XX.....", "......."}));
  EXPECT_EQ(small.Data->GetValue(5, 0), kRoiInside);

  // Any other Value: the output stays a copy of the input.
  auto grey = MaskFromText({"XX...X.", "......."}, 5, 2);
  IPG_CONNEXITY_PROCESSING five(grey.get(), 5);
  five.SetImaOut(&small);
  ASSERT_TRUE(five.Labelling_8Neighbors());
  ASSERT_TRUE(five.KeepLargestConnectedComponent());
  EXPECT_EQ(TextFromMask(small, 5), (std::vector<std::string>{"XX...X.", "......."}));
  EXPECT_EQ(small.Data->GetValue(2, 0), 2);
}

TEST_F(KeepComponents, NLargestSortsTheListAscendingAndEachNeedsAListOutputAndSize)
{
  IPG_CONNEXITY_PROCESSING op(In.get(), kRoiInside);
  op.SetImaOut(&Out);
  ASSERT_TRUE(op.Labelling_8Neighbors());
  op.SetNrOfComponentsToKeep(2);
  op.SetTools(802);
  ASSERT_TRUE(op.Apply());
  EXPECT_EQ(TextFromMask(Out), (std::vector<std::string>{"XX...X.", "XX...X.", "X....X.", ".....X."}));
  std::vector<int> sizes;
  for (const Pixels& component : ComponentsOf(op))
    sizes.push_back(static_cast<int>(component.size()));
  EXPECT_EQ(sizes, (std::vector<int>{2, 4, 5}));

  op.SetNrOfComponentsToKeep(0);
  ASSERT_TRUE(op.KeepNLargestConnectedComponent());
  EXPECT_EQ(Out.Data->GetMax(), 0);

  IPG_CONNEXITY_PROCESSING unlabelled(In.get(), kRoiInside);
  unlabelled.SetImaOut(&Out);
  for (int code = 801; code <= 807; ++code)
    EXPECT_FALSE((unlabelled.SetTools(code), unlabelled.Apply())) << code;
  EXPECT_TRUE(Capture.Texts.empty());
  ASSERT_TRUE(unlabelled.Labelling_8Neighbors());
  unlabelled.SetTools(803);
  EXPECT_FALSE(unlabelled.Apply());
  DCM_STRUCT wrong(7, 5);
  unlabelled.SetImaOut(&wrong);
  EXPECT_FALSE(unlabelled.KeepLargestConnectedComponent());
  EXPECT_FALSE(unlabelled.KeepNLargestConnectedComponent());
  EXPECT_EQ(Capture.Texts, (std::vector<std::string>{"Taille de l'image de sortie invalide",
                                                      "Taille de l'image de sortie invalide"}));
  unlabelled.SetImaOut(nullptr);
  EXPECT_FALSE(unlabelled.KeepLargestConnectedComponent());
  EXPECT_EQ(Capture.Texts.size(), 2u);
}

TEST(Moments, TruncatedGeometricSumsTinyCentralDistancesAndShapeFeatures)
{
  auto image = MaskFromText({"...", ".X.", ".X.", ".X."});
  IPG_CONNEXITY_PROCESSING op(image.get(), kRoiInside);
  ASSERT_TRUE(op.Labelling_8Neighbors());
  op.SetP(1);
  op.SetQ(1);
  ASSERT_TRUE((op.SetTools(804), op.Apply()));
  EXPECT_DOUBLE_EQ(op.GetMomentGeo()[0], 6.0); // 1*1 + 1*2 + 1*3
  op.SetP(0);
  op.SetQ(-1); // 1 + 1/2 + 1/3 truncates to 1 at each step
  ASSERT_TRUE(op.ComputeGeometricMomentOfComponents());
  EXPECT_DOUBLE_EQ(op.GetMomentGeo()[0], 1.0);

  auto dots = MaskFromText({"X..", "...", "..X"});
  IPG_CONNEXITY_PROCESSING two(dots.get(), kRoiInside);
  ASSERT_TRUE(two.Labelling_8Neighbors());
  ASSERT_EQ(two.GetNbComponents(), 2);
  two.SetP(1);
  two.SetQ(0);
  ASSERT_TRUE((two.SetTools(805), two.Apply()));
  EXPECT_DOUBLE_EQ(two.GetMomentCent()[0], 1e-9);
  EXPECT_DOUBLE_EQ(two.GetMomentCent()[1], 1e-9);
  EXPECT_EQ(two.GetP(), 1);
  EXPECT_EQ(two.GetQ(), 0);
  EXPECT_DOUBLE_EQ(two.GetMomentGeo()[1], 1.0); // m00 is left behind

  auto shapes = MaskFromText({"XXX..X...", "XXX...X..", ".......X."});
  IPG_CONNEXITY_PROCESSING features(shapes.get(), kRoiInside);
  ASSERT_TRUE(features.Labelling_8Neighbors());
  ASSERT_EQ(features.GetNbComponents(), 2);
  features.SetTools(806);
  ASSERT_TRUE(features.Apply());
  ASSERT_NE(features.GetShapeFeat(), nullptr);
  ASSERT_EQ(features.GetShapeFeat()->Count(), 2);
  const double* orientation = static_cast<double*>(features.GetShapeFeat()->Get(0));
  const double* elongation = static_cast<double*>(features.GetShapeFeat()->Get(1));
  // 3 x 2 block: mu20 = 4, mu02 = 1.5, mu11 ~ 0.
  EXPECT_NEAR(orientation[0], 0.0, 1e-12);
  EXPECT_NEAR(elongation[0], 6.25 / 30.25, 1e-12);
  // Diagonal: mu20 = mu02, so the squared difference is 0 and the angle pi/4.
  EXPECT_NEAR(orientation[1], std::atan(1.0), 1e-12);
  EXPECT_NEAR(elongation[1], 1.0, 1e-12);
  EXPECT_EQ(features.GetP(), 1);
  EXPECT_EQ(features.GetQ(), 1);
}

} // namespace
