// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_classification_processing.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace {

constexpr int kMark = 16777300;
constexpr int kLevels = 256;
constexpr double kSigma = 14.0;

struct Population {
  double Weight, Centre;
};

double Density(const std::vector<Population>& mixture, double v)
{
  double f = 0.0;
  for (const Population& p : mixture)
    f += p.Weight * std::exp(-(v - p.Centre) * (v - p.Centre) / (2.0 * kSigma * kSigma));
  return f;
}

// Column v holds count(v) pixels of grey level v from the top, marks below:
// the histogram of the grey levels is exactly `count`.
std::unique_ptr<DCM_STRUCT> ImageWithHistogram(const std::vector<int>& count)
{
  const int rows = *std::max_element(count.begin(), count.end()) + 1;
  return ImageOf(kLevels, rows, [&](unsigned c, unsigned r) { return static_cast<int>(r) < count[c] ? static_cast<int>(c) : kMark; });
}

std::vector<int> Counts(const std::vector<Population>& mixture, double noise)
{
  std::mt19937 random(3);
  std::uniform_real_distribution<double> ripple(-noise, noise);
  std::vector<int> count(kLevels);
  for (int v = 0; v < kLevels; ++v)
    count[v] = static_cast<int>(std::lround(300.0 * Density(mixture, v) * (1.0 + ripple(random))));
  return count;
}

// The level of lowest mixture density between two centres.
int TrueValley(const std::vector<Population>& mixture, int from, int to)
{
  int best = from;
  for (int v = from; v <= to; ++v)
    if (Density(mixture, v) < Density(mixture, best))
      best = v;
  return best;
}

TEST(IpgClassificationProcessing, TrimodalSplitsAtItsValleysUnimodalIsOneClass)
{
  const std::vector<Population> mixture{{1.0, 50}, {0.6, 120}, {0.9, 190}};
  auto image = ImageWithHistogram(Counts(mixture, 0.1));
  DCM_STRUCT out(*image, false);
  IPG_CLASSIFICATION_PROCESSING classify(image.get(), nullptr, &out);
  ASSERT_TRUE(classify.Apply());
  EXPECT_EQ(classify.GetResult(), 3.0);
  const std::vector<int>& t = classify.GetThresholds();
  ASSERT_EQ(t.size(), 2u);
  EXPECT_NEAR(t[0], TrueValley(mixture, 50, 120), 2);
  EXPECT_NEAR(t[1], TrueValley(mixture, 120, 190), 2);
  EXPECT_EQ(out.Data->GetValue(50, 0), 0);
  EXPECT_EQ(out.Data->GetValue(120, 0), 1);
  EXPECT_EQ(out.Data->GetValue(190, 0), 2);
  EXPECT_EQ(out.Data->GetValue(t[0], 0), 0); // the valley level stays below
  EXPECT_EQ(out.Data->GetValue(t[0] + 1, 0), 1);
  EXPECT_EQ(out.Data->GetValue(0, 100), kMark); // marks copied through

  classify.SetMaxClasses(2);
  ASSERT_TRUE(classify.Apply());
  EXPECT_EQ(classify.GetResult(), 2.0);

  // One mode: one class.
  auto single = ImageWithHistogram(Counts({{1.0, 128}}, 0.1));
  DCM_STRUCT singleOut(*single, false);
  IPG_CLASSIFICATION_PROCESSING unimodal(single.get(), nullptr, &singleOut);
  ASSERT_TRUE(unimodal.Apply());
  EXPECT_EQ(unimodal.GetResult(), 1.0);
  EXPECT_TRUE(unimodal.GetThresholds().empty());
  EXPECT_EQ(singleOut.Data->GetValue(128, 0), 0);

  // Only the left half (levels below 128) in the ROI: still one class, and
  // the right half is copied.
  auto roi = ImageOf(single->GetNbOfCols(), single->GetNbOfRows(),
                         [](unsigned c, unsigned) { return c < 128 ? 16777217 : 0; });
  unimodal.SetRoi(roi.get());
  ASSERT_TRUE(unimodal.Apply());
  EXPECT_EQ(unimodal.GetResult(), 1.0);
  EXPECT_EQ(singleOut.Data->GetValue(127, 0), 0);
  EXPECT_EQ(singleOut.Data->GetValue(140, 0), 140);
}

TEST(IpgClassificationProcessing, BadInput)
{
  auto image = ImageOf(8, 8, [](unsigned c, unsigned r) { return static_cast<int>(c * r); });
  auto tiny = ImageOf(1, 1, [](unsigned, unsigned) { return 3; });
  auto empty = ImageOf(8, 8, [](unsigned, unsigned) { return 0; });
  DCM_STRUCT out(*image, false), tinyOut(*tiny, false);
  auto check = [&](DCM_STRUCT* in, DCM_STRUCT* roi, DCM_STRUCT* o, int width, double depth, int classes) {
    MessageCapture messages;
    IPG_CLASSIFICATION_PROCESSING classify(in, roi, o);
    classify.SetSmoothingWidth(width);
    classify.SetMinValleyDepth(depth);
    classify.SetMaxClasses(classes);
    EXPECT_FALSE(classify.Apply());
    EXPECT_EQ(messages.Texts.size(), 1u);
  };
  check(nullptr, nullptr, &out, 5, 0.05, 16);
  check(image.get(), nullptr, nullptr, 5, 0.05, 16);
  check(tiny.get(), nullptr, &tinyOut, 5, 0.05, 16);
  check(image.get(), empty.get(), &out, 5, 0.05, 16);
  check(image.get(), nullptr, &out, 4, 0.05, 16);
  check(image.get(), nullptr, &out, 0, 0.05, 16);
  check(image.get(), nullptr, &out, 5, -0.1, 16);
  check(image.get(), nullptr, &out, 5, std::numeric_limits<double>::quiet_NaN(), 16);
  check(image.get(), nullptr, &out, 5, 0.05, 0);
}

} // namespace
