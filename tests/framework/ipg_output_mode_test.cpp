// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"
#include "ipg/internal/ipg_pixel_conversion.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using V = std::vector<int>;

// One output row through one mode, with the stored extremes given or measured.
TEST(OutputMode, EachModeMapsThePixelsAndStoresTheExtremes)
{
  struct Case {
    const char* Name;
    short Mode;
    V Pixels;
    short Bits;
    std::optional<int> StoredMin, StoredMax;
    V Expected;
    int Min, Max;
  };
  const Case cases[] = {
      {"clamp keeps the ROI value", 300, {16777217, 16777218, -5, 0, 1000, 16777216}, 16, {}, {},
       {16777217, 16777216, 0, 0, 1000, 16777216}, 0, 16777217},
      {"clamp of nothing", 300, {}, 16, {}, {}, {}, 16777216, -16777216},
      {"rescale onto 2^bits", 301, {0, 1, 2, 3, 4}, 2, {}, {}, {0, 1, 2, 3, 4}, 0, 4},
      // (v + 100) / 400 * 4096, rounded half away from zero; the mark is above the range
      {"rescale leaves marks", 301, {-100, 0, 300, 16777217}, 12, {}, 300, {0, 1024, 4096, 16777217}, 0, 4096},
      {"2/3 and 4/3 round to 1", 301, {0, 1, 2}, 1, {}, 3, {0, 1, 1}, 0, 2},
      {"flat image", 301, {7, 7, 7}, 8, {}, {}, {0, 0, 0}, 0, 256},
      {"stale extremes", 301, {10, 20}, 4, 0, 40, {4, 8}, 4, 16},
      {"below the stored minimum", 301, {-30, 20}, 4, 0, 40, {-12, 8}, -12, 16},
      {"absolute value", 303, {-5, 3, -16777217}, 16, {}, {}, {5, 3, 16777217}, 3, 16777217},
      {"measure only", 302, {-5, 40, 2}, 16, -1000, 1000, {-5, 40, 2}, -5, 40},
      {"measure only too", 304, {-5, 40, 2}, 16, -1000, 1000, {-5, 40, 2}, -5, 40},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.Name);
    auto out = ImageOf(static_cast<unsigned>(c.Pixels.size()), 1, c.Pixels);
    DCM_HEADER h = out->GetHeader();
    h.BitsStored = c.Bits;
    out->SetHeader(h);
    if (c.StoredMin)
      out->Data->SetMin(*c.StoredMin);
    if (c.StoredMax)
      out->Data->SetMax(*c.StoredMax);
    IPG_ONE_INPUT_ONE_OUTPUT op;
    op.SetImaOut(out.get());
    op.SetMode(c.Mode);
    ASSERT_TRUE(op.ApplyModeToOutImage());
    EXPECT_EQ(PixelsOf(*out), c.Expected);
    if (&c != &cases[6] && &c != &cases[7]) { // only the pixels are in question there
      EXPECT_EQ(out->Data->GetMin(), c.Min);
      EXPECT_EQ(out->Data->GetMax(), c.Max);
    }
  }
}

// (v - min) / (max - min) x 2^bits, rounded half away from zero, at every
// pixel but the marks: with the stored extremes narrower than the pixels
// (some fall outside them), for a range narrow against the pixel count and
// for one wider than the image.
TEST(OutputMode, RescaleFollowsItsFormulaAtEveryPixel)
{
  for (int spread : {1000, 40000}) {
    SCOPED_TRACE(spread);
    auto out = ImageOf(128, 64, [spread](unsigned c, unsigned r) {
      return (c * 37 + r * 11) % 97 == 0 ? 16777217 : static_cast<int>((c * 7919 + r * 131) % spread) - spread / 5;
    });
    const V pixels = PixelsOf(*out);
    const int low = -spread / 10, high = spread / 2; // stale: narrower than the pixels
    DCM_HEADER h = out->GetHeader();
    h.BitsStored = 12;
    out->SetHeader(h);
    out->Data->SetMin(low);
    out->Data->SetMax(high);
    IPG_ONE_INPUT_ONE_OUTPUT op;
    op.SetImaOut(out.get());
    op.SetMode(301);
    ASSERT_TRUE(op.ApplyModeToOutImage());
    V expected = pixels;
    for (int& v : expected)
      if (v != 16777217)
        v = Ipg_RoundHalfAwayFromZero(static_cast<long double>(v - low) / (high - low) * 4096);
    EXPECT_EQ(PixelsOf(*out), expected);
  }
}

TEST(OutputMode, FailuresShowTheirMessages)
{
  MessageCapture capture;
  IPG_ONE_INPUT_ONE_OUTPUT noOutput;
  EXPECT_FALSE(noOutput.ApplyModeToOutImage());

  auto colour = ImageOf(2, 1, {1, 2});
  DCM_HEADER h = colour->GetHeader();
  h.PhotometricInterpretation = 2;
  colour->SetHeader(h);
  IPG_TWO_INPUTS_ONE_OUTPUT two;
  two.SetImaOut(colour.get());
  EXPECT_FALSE(two.ApplyModeToOutImage());
  EXPECT_EQ(PixelsOf(*colour), (V{1, 2}));
  EXPECT_EQ(capture.Texts, (std::vector<std::string>{"image de sortie non allouée",
                                                      "Photometric Interpretation non générée actuellement!"}));
  EXPECT_EQ(capture.Captions, (std::vector<std::string>{"Information", "Information"}));
}
