#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_one_input_one_output.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// A one-row output holding the given raw pixels, extremes recomputed.
struct Output {
  explicit Output(const std::vector<int>& pixels, short bits = 16)
      : Image(static_cast<unsigned>(pixels.size()), 1, nullptr)
  {
    DCM_HEADER h = Image.GetHeader();
    h.BitsStored = bits;
    Image.SetHeader(h);
    for (unsigned c = 0; c < pixels.size(); ++c)
      Image.Data->SetValue(c, 0u, pixels[c]);
    Image.Data->SetMin();
    Image.Data->SetMax();
  }
  std::vector<int> Pixels() const
  {
    std::vector<int> p;
    for (unsigned c = 0; c < Image.GetNbOfCols(); ++c)
      p.push_back(Image.Data->GetValue(c, 0));
    return p;
  }
  DCM_STRUCT Image;
};

bool RunMode(Output& out, short mode)
{
  IPG_ONE_INPUT_ONE_OUTPUT op;
  op.SetImaOut(&out.Image);
  op.SetMode(mode);
  return op.ApplyModeToOutImage();
}

} // namespace

TEST(OutputMode, ClampKeepsTheRoiValueAndBoundsEverythingElse)
{
  Output out({16777217, 16777218, -5, 0, 1000, 16777216});
  ASSERT_TRUE(RunMode(out, 300));
  EXPECT_EQ(out.Pixels(), (std::vector<int>{16777217, 16777216, 0, 0, 1000, 16777216}));
  EXPECT_EQ(out.Image.Data->GetMin(), 0);
  EXPECT_EQ(out.Image.Data->GetMax(), 16777217);

  Output empty({});
  ASSERT_TRUE(RunMode(empty, 300));
  EXPECT_EQ(empty.Image.Data->GetMin(), 16777216);
  EXPECT_EQ(empty.Image.Data->GetMax(), -16777216);
}

TEST(OutputMode, RescaleMapsTheStoredRangeOntoTwoToTheBits)
{
  Output out({0, 1, 2, 3, 4}, 2); // N = 4
  ASSERT_TRUE(RunMode(out, 301));
  EXPECT_EQ(out.Pixels(), (std::vector<int>{0, 1, 2, 3, 4}));

  Output twelve({-100, 0, 300, 16777217}, 12);
  twelve.Image.Data->SetMax(300); // the mark is above the grey range and is left alone
  ASSERT_TRUE(RunMode(twelve, 301));
  // (v + 100) / 400 * 4096, rounded half away from zero
  EXPECT_EQ(twelve.Pixels(), (std::vector<int>{0, 1024, 4096, 16777217}));
  EXPECT_EQ(twelve.Image.Data->GetMin(), 0);
  EXPECT_EQ(twelve.Image.Data->GetMax(), 4096);

  Output rounding({0, 1, 2}, 1); // N = 2 over a stored range of 3
  rounding.Image.Data->SetMax(3);
  ASSERT_TRUE(RunMode(rounding, 301));
  EXPECT_EQ(rounding.Pixels(), (std::vector<int>{0, 1, 1})) << "2/3 rounds to 1, 4/3 rounds to 1";
}

TEST(OutputMode, RescaleOfAFlatImageGivesZerosAndStoresTheTop)
{
  Output flat({7, 7, 7}, 8);
  ASSERT_TRUE(RunMode(flat, 301));
  EXPECT_EQ(flat.Pixels(), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(flat.Image.Data->GetMax(), 256);
}

TEST(OutputMode, RescaleUsesTheStoredExtremesEvenWhenStale)
{
  Output out({10, 20}, 4);
  out.Image.Data->SetMin(0);
  out.Image.Data->SetMax(40);
  ASSERT_TRUE(RunMode(out, 301));
  EXPECT_EQ(out.Pixels(), (std::vector<int>{4, 8}));

  Output below({-30, 20}, 4); // a pixel below the stored minimum gets the same formula
  below.Image.Data->SetMin(0);
  below.Image.Data->SetMax(40);
  ASSERT_TRUE(RunMode(below, 301));
  EXPECT_EQ(below.Pixels(), (std::vector<int>{-12, 8}));
}

TEST(OutputMode, AbsoluteValueAndMeasureOnlyModes)
{
  Output out({-5, 3, -16777217});
  ASSERT_TRUE(RunMode(out, 303));
  EXPECT_EQ(out.Pixels(), (std::vector<int>{5, 3, 16777217}));
  EXPECT_EQ(out.Image.Data->GetMin(), 3);
  EXPECT_EQ(out.Image.Data->GetMax(), 16777217);

  for (short mode : {302, 304}) {
    Output measured({-5, 40, 2});
    measured.Image.Data->SetMin(-1000);
    measured.Image.Data->SetMax(1000);
    ASSERT_TRUE(RunMode(measured, mode));
    EXPECT_EQ(measured.Pixels(), (std::vector<int>{-5, 40, 2}));
    EXPECT_EQ(measured.Image.Data->GetMin(), -5);
    EXPECT_EQ(measured.Image.Data->GetMax(), 40);
  }
}

TEST(OutputMode, FailuresShowTheirMessages)
{
  MessageCapture capture;
  IPG_ONE_INPUT_ONE_OUTPUT noOutput;
  EXPECT_FALSE(noOutput.ApplyModeToOutImage());

  Output colour({1, 2});
  DCM_HEADER h = colour.Image.GetHeader();
  h.PhotometricInterpretation = 2;
  colour.Image.SetHeader(h);
  IPG_TWO_INPUTS_ONE_OUTPUT two;
  two.SetImaOut(&colour.Image);
  EXPECT_FALSE(two.ApplyModeToOutImage());
  EXPECT_EQ(colour.Pixels(), (std::vector<int>{1, 2}));

  ASSERT_EQ(capture.Texts.size(), 2u);
  EXPECT_EQ(capture.Texts[0], "image de sortie non allou\xC3\xA9" "e");
  EXPECT_EQ(capture.Texts[1], "Photometric Interpretation non g\xC3\xA9n\xC3\xA9r\xC3\xA9" "e actuellement!");
  EXPECT_EQ(capture.Captions[0], "Information");
  EXPECT_EQ(capture.Captions[1], "Information");
}
