// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_texture_local.h"
#include "ipg/measurement/ipg_texture.h"

#include "support/images.h"
#include "support/message_capture.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

constexpr int kMark = 16777300;
constexpr short kPrecision = 10000;
constexpr double kStep = 1.0 / kPrecision + 1e-12; // stored values are truncated to the precision

std::unique_ptr<DCM_STRUCT> Crop(DCM_STRUCT& image, int col0, int row0, int col1, int row1)
{
  return ImageOf(col1 - col0 + 1, row1 - row0 + 1,
                     [&](unsigned c, unsigned r) { return image.Data->GetValue(col0 + c, row0 + r); });
}

std::unique_ptr<DCM_STRUCT> Output(DCM_STRUCT& like)
{
  auto out = std::make_unique<DCM_STRUCT>(like, false);
  out->Data->SetPrecision(kPrecision);
  return out;
}

struct Settings {
  int Angle, Distance;
  bool Symmetric;
  int Feature, FeatureTwo;
};

// Every window of a random 4-level image (with a ROI hole and a mark) against
// IPG_TEXTURE on the cropped window. Levels 0..3 in 4 classes: where the crop
// holds both 0 and 3 its own quantisation is the image's, so the features must
// agree to the output's precision.
void CompareWithCroppedWindows(const Settings& s)
{
  constexpr int kCols = 12, kRows = 9, kWindow = 5, kHalf = kWindow / 2;
  std::mt19937 random(7);
  auto image = ImageOf(kCols, kRows, [&](unsigned c, unsigned r) {
    return c == 6 && r == 4 ? kMark : static_cast<int>(random() % 4);
  });
  auto roi = ImageOf(kCols, kRows, [](unsigned c, unsigned r) { return c == 2 && r < 5 ? 0 : 16777217; });
  auto first = Output(*image), second = Output(*image);
  IPG_TEXTURE_LOCAL map(image.get(), roi.get());
  map.SetImaOut(first.get());
  map.SetImaOutTwo(second.get());
  map.SetMode(302);
  map.SetWindowSize(kWindow);
  map.SetGreyLevels(4);
  map.SetAngle(s.Angle);
  map.SetDistance(s.Distance);
  map.SetSymmetric(s.Symmetric);
  map.SetFeature(s.Feature);
  map.SetFeatureTwo(s.FeatureTwo);
  ASSERT_TRUE(map.Apply());

  int compared = 0;
  for (int row = 0; row < kRows; ++row)
    for (int col = 0; col < kCols; ++col) {
      const int value = image->Data->GetValue(col, row);
      if (value == kMark || roi->Data->GetValue(col, row) != 16777217) {
        EXPECT_EQ(first->Data->GetValue(col, row), value);
        EXPECT_EQ(second->Data->GetValue(col, row), value);
        continue;
      }
      const int c0 = std::max(0, col - kHalf), c1 = std::min(kCols - 1, col + kHalf);
      const int r0 = std::max(0, row - kHalf), r1 = std::min(kRows - 1, row + kHalf);
      auto crop = Crop(*image, c0, r0, c1, r1);
      auto cropRoi = Crop(*roi, c0, r0, c1, r1);
      int lo = 3, hi = 0;
      for (int r = 0; r <= r1 - r0; ++r)
        for (int c = 0; c <= c1 - c0; ++c)
          if (crop->Data->GetValue(c, r) <= 3 && cropRoi->Data->GetValue(c, r) == 16777217) {
            lo = std::min(lo, crop->Data->GetValue(c, r));
            hi = std::max(hi, crop->Data->GetValue(c, r));
          }
      if (lo != 0 || hi != 3)
        continue;
      IPG_TEXTURE texture(crop.get(), cropRoi.get());
      texture.SetGreyLevels(4);
      texture.SetAngle(s.Angle);
      texture.SetDistance(s.Distance);
      texture.SetSymmetric(s.Symmetric);
      MessageCapture noPair; // a crop too small for the displacement has no pair
      if (!texture.Apply()) {
        EXPECT_EQ(first->Data->GetValue(col, row), 0);
        EXPECT_EQ(second->Data->GetValue(col, row), 0);
        continue;
      }
      const double expected[5] = {texture.GetEnergy(), texture.GetContrast(), texture.GetCorrelation(),
                                  texture.GetHomogeneity(), texture.GetEntropy()};
      EXPECT_NEAR(first->Data->GetValueReal(col, row), expected[s.Feature], kStep) << col << "," << row;
      EXPECT_NEAR(second->Data->GetValueReal(col, row), expected[s.FeatureTwo], kStep) << col << "," << row;
      ++compared;
    }
  EXPECT_GT(compared, 60); // most of the 96 windows in the ROI
}

TEST(IpgTextureLocal, EqualsTheCoOccurrenceOfEachWindow)
{
  CompareWithCroppedWindows({0, 1, true, 0, 4});
  CompareWithCroppedWindows({45, 2, false, 1, 2});
  CompareWithCroppedWindows({135, 1, false, 3, 2});
  CompareWithCroppedWindows({90, 3, true, 2, 1});
}

TEST(IpgTextureLocal, BadInputAndCancellation)
{
  auto image = ImageOf(8, 8, [](unsigned c, unsigned r) { return static_cast<int>((c * 5 + r * 3) % 7); });
  auto out = Output(*image);
  auto small = ImageOf(4, 4, [](unsigned, unsigned) { return 0; });
  auto tiny = ImageOf(1, 1, [](unsigned, unsigned) { return 3; });
  auto marks = ImageOf(8, 8, [](unsigned, unsigned) { return kMark; });
  auto tinyOut = Output(*tiny);
  auto check = [&](DCM_STRUCT* in, DCM_STRUCT* o, int window, int distance, int feature) {
    MessageCapture messages;
    IPG_TEXTURE_LOCAL map(in);
    map.SetImaOut(o);
    map.SetWindowSize(window);
    map.SetDistance(distance);
    map.SetFeature(feature);
    EXPECT_FALSE(map.Apply());
    EXPECT_EQ(messages.Texts.size(), 1u);
  };
  check(nullptr, out.get(), 3, 1, 0);
  check(image.get(), nullptr, 3, 1, 0);
  check(image.get(), small.get(), 3, 1, 0);
  check(tiny.get(), tinyOut.get(), 3, 1, 0);
  check(image.get(), out.get(), 4, 1, 0);
  check(image.get(), out.get(), 3, 3, 0);
  check(image.get(), out.get(), 3, 1, 5);
  check(marks.get(), out.get(), 3, 1, 0);

  ProgressCapture progress;
  progress.CancelAfter = 2;
  MessageCapture messages;
  IPG_TEXTURE_LOCAL map(image.get());
  map.SetImaOut(out.get());
  EXPECT_FALSE(map.Apply());
  ASSERT_EQ(messages.Texts.size(), 1u);
  EXPECT_EQ(messages.Texts[0], kIpgMsgCancelled);
}

} // namespace
