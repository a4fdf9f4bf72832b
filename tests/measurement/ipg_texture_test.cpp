// SPDX-License-Identifier: Apache-2.0
#include "ipg/measurement/ipg_texture.h"

#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

IPG_TEXTURE Texture(DCM_STRUCT* image, int angle, int distance = 1, DCM_STRUCT* roi = nullptr)
{
  IPG_TEXTURE texture(image, roi);
  texture.SetGreyLevels(2);
  texture.SetAngle(angle);
  texture.SetDistance(distance);
  EXPECT_TRUE(texture.Apply());
  return texture;
}

using V = std::vector<double>;

TEST(IpgTexture, CheckerboardStripesAndConstantByHand)
{
  auto board = ImageOf(8, 8, [](unsigned c, unsigned r) { return (c + r) % 2 ? 100 : 0; });
  // Horizontal neighbours always differ: half the pairs 0-1, half 1-0.
  IPG_TEXTURE across = Texture(board.get(), 0);
  EXPECT_EQ(across.GetMatrix(), (V{0, 0.5, 0.5, 0}));
  EXPECT_DOUBLE_EQ(across.GetEnergy(), 0.5);
  EXPECT_DOUBLE_EQ(across.GetResult(), 0.5);
  EXPECT_DOUBLE_EQ(across.GetContrast(), 1.0);
  EXPECT_DOUBLE_EQ(across.GetCorrelation(), -1.0);
  EXPECT_DOUBLE_EQ(across.GetHomogeneity(), 0.5);
  EXPECT_DOUBLE_EQ(across.GetEntropy(), std::log(2.0));
  // Diagonal neighbours are alike: of the 49 up-right pairs, 24 are dark
  // (even col + row) and 25 bright.
  IPG_TEXTURE diagonal = Texture(board.get(), 45);
  const V& m = diagonal.GetMatrix();
  ASSERT_EQ(m.size(), 4u);
  EXPECT_DOUBLE_EQ(m[0], 24.0 / 49.0);
  EXPECT_DOUBLE_EQ(m[3], 25.0 / 49.0);
  EXPECT_EQ(m[1] + m[2], 0.0);
  EXPECT_DOUBLE_EQ(diagonal.GetContrast(), 0.0);
  EXPECT_DOUBLE_EQ(diagonal.GetCorrelation(), 1.0);

  // Columns 0 1 1 0 0 1 1 0 ...: at distance 1 across, 1/2 of the pairs differ.
  auto stripes = ImageOf(8, 4, [](unsigned c, unsigned) { return ((c + 1) / 2) % 2 ? 7 : 3; });
  EXPECT_NEAR(Texture(stripes.get(), 0).GetContrast(), 4.0 / 7.0, 1e-12); // 4 of the 7 pairs in a row differ
  IPG_TEXTURE along = Texture(stripes.get(), 90);
  EXPECT_DOUBLE_EQ(along.GetContrast(), 0.0);
  EXPECT_DOUBLE_EQ(along.GetHomogeneity(), 1.0);

  auto flat = ImageOf(6, 6, [](unsigned, unsigned) { return 12; });
  IPG_TEXTURE constant = Texture(flat.get(), 135, 2);
  EXPECT_DOUBLE_EQ(constant.GetEnergy(), 1.0);
  EXPECT_DOUBLE_EQ(constant.GetContrast(), 0.0);
  EXPECT_DOUBLE_EQ(constant.GetEntropy(), 0.0);
}

TEST(IpgTexture, RoiAndBadInput)
{
  // Inside the ROI (left half) the image is constant; the right half is noise.
  auto image = ImageOf(8, 8, [](unsigned c, unsigned r) { return c < 4 ? 5 : static_cast<int>((c * 7 + r * 3) % 11); });
  auto roi = ImageOf(8, 8, [](unsigned c, unsigned) { return c < 4 ? 16777217 : 0; });
  EXPECT_DOUBLE_EQ(Texture(image.get(), 0, 1, roi.get()).GetEnergy(), 1.0);

  auto check = [&](DCM_STRUCT* in, DCM_STRUCT* r, int levels, int distance, int angle) {
    MessageCapture messages;
    IPG_TEXTURE texture(in, r);
    texture.SetGreyLevels(levels);
    texture.SetDistance(distance);
    texture.SetAngle(angle);
    EXPECT_FALSE(texture.Apply());
    EXPECT_EQ(messages.Texts.size(), 1u);
  };
  auto empty = ImageOf(8, 8, [](unsigned, unsigned) { return 0; });
  auto tiny = ImageOf(1, 1, [](unsigned, unsigned) { return 3; });
  check(nullptr, nullptr, 16, 1, 0);
  check(image.get(), empty.get(), 16, 1, 0);
  check(tiny.get(), nullptr, 16, 1, 0);
  check(image.get(), nullptr, 1, 1, 0);
  check(image.get(), nullptr, 16, 0, 0);
  check(image.get(), nullptr, 16, 8, 0);
  check(image.get(), nullptr, 16, 1, 30);
}

} // namespace
