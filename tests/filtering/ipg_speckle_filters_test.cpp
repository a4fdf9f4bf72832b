#include "ipg/filtering/ipg_filter_processing.h"

#include "dcm/dcm_struct.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

std::unique_ptr<DCM_STRUCT> Image(unsigned cols, unsigned rows, std::initializer_list<int> values)
{
  auto image = std::make_unique<DCM_STRUCT>(cols, rows, nullptr);
  int* p = image->Data->GetIDataAddress();
  for (int v : values)
    *p++ = v;
  return image;
}

std::vector<int> Pixels(DCM_STRUCT& image)
{
  const int* p = image.Data->GetIDataAddress();
  return std::vector<int>(p, p + image.Data->GetSize());
}

// Runs code on in with n passes and returns the output pixels.
std::vector<int> Filtered(DCM_STRUCT& in, int code, int passes = 1, double damping = 0.0)
{
  DCM_STRUCT out(in, false);
  IPG_FILTER_PROCESSING filter(&in);
  filter.SetImaOut(&out);
  filter.SetTools(code);
  filter.SetNbIter(passes);
  filter.SetAdaptatifFiltreParameters(0, 0, damping);
  EXPECT_EQ(filter.Apply(), 1);
  return Pixels(out);
}

// 10 with one bright pixel at (1, 1): global variance 504; the first window
// has mean 20 and variance 800.
std::unique_ptr<DCM_STRUCT> SpikeStrip()
{
  return Image(5, 3, {10, 10, 10, 10, 10, 10, 100, 10, 10, 10, 10, 10, 10, 10, 10});
}

// A vertical step from 100 to 200 between columns 5 and 6.
std::unique_ptr<DCM_STRUCT> Step(unsigned cols, unsigned rows)
{
  auto image = std::make_unique<DCM_STRUCT>(cols, rows, nullptr);
  for (unsigned r = 0; r < rows; ++r)
    for (unsigned c = 0; c < cols; ++c)
      image->Data->SetValue(c, r, c < 6 ? 100 : 200);
  return image;
}

} // namespace

TEST(IpgSpeckleFilters, LeeWeighsByLocalAgainstGlobalVarianceInPlace)
{
  auto in = SpikeStrip();
  // (1,1): w = (800 - 504) / 800 = 0.37, 0.63 * 20 + 0.37 * 100 = 49.6.
  // (2,1) sees that 49.6: mean 14.4, variance 154.88 < 504, w clips to 0.
  // (3,1) sees 14.4: mean 10.49, w 0.
  EXPECT_EQ(Filtered(*in, 513), (std::vector<int>{10, 10, 10, 10, 10, 10, 49, 14, 10, 10, 10, 10, 10, 10, 10}));
}

TEST(IpgSpeckleFilters, LeeKeepsFlatPatchesAndCopiesWithoutPasses)
{
  auto in = Image(5, 4, {7, 7, 7, 50, 0, 7, 7, 7, 90, 3, 7, 7, 7, 20, 40, 1, 2, 3, 4, 5});
  const std::vector<int> out = Filtered(*in, 513);
  EXPECT_EQ(out[6], 7); // its 3x3 patch is flat: variance 0, the mean is the centre
  EXPECT_EQ(Filtered(*in, 513, 0), Pixels(*in));
}

TEST(IpgSpeckleFilters, KuanReadsTheUnchangedInputAndDoesNotClip)
{
  auto in = SpikeStrip();
  // (1,1) and (2,1): mean 20, variance 800, w = 0.5 (1 - 20/800) = 0.4875;
  // (3,1): flat, the mean.
  const std::vector<int> expected{10, 10, 10, 10, 10, 10, 59, 15, 10, 10, 10, 10, 10, 10, 10};
  EXPECT_EQ(Filtered(*in, 517), expected);
  EXPECT_EQ(Filtered(*in, 517, 3), expected); // every pass computes the same

  // Mean 93/9, variance 8/9: w = -5.3125, -3.83 truncated toward zero.
  auto faint = Image(3, 3, {10, 10, 10, 10, 13, 10, 10, 10, 10});
  EXPECT_EQ(Filtered(*faint, 517)[4], -3);
}

TEST(IpgSpeckleFilters, FrostKeepsFlatAreasAndTheFrame)
{
  auto flat = Image(6, 6, {});
  flat->Data->Init(321);
  EXPECT_EQ(Filtered(*flat, 516, 3), Pixels(*flat));

  auto in = Step(12, 9);
  in->Data->SetValue(4u, 4u, 180);
  const std::vector<int> out = Filtered(*in, 516);
  for (unsigned r = 0; r < 9; ++r)
    for (unsigned c = 0; c < 12; ++c)
      if (r < 2 || r > 6 || c == 0 || c > 8) { // the written positions are c - 1 of columns 2..9
        EXPECT_EQ(out[r * 12 + c], in->Data->GetValue(c, r)) << c << "," << r;
      }
  EXPECT_EQ(Filtered(*in, 516, 0), Pixels(*in));
}

TEST(IpgSpeckleFilters, FrostKeepsAStepSharperThanTheMeanFilter)
{
  auto in = Step(16, 9);
  const std::vector<int> original = Pixels(*in);
  auto blur = [&](const std::vector<int>& out) {
    long total = 0;
    for (std::size_t i = 0; i < out.size(); ++i)
      total += std::labs(out[i] - original[i]);
    return total;
  };
  const long mean = blur(Filtered(*in, 515));
  const long frost = blur(Filtered(*in, 516));
  const long frostStrong = blur(Filtered(*in, 516, 1, 20.0));
  EXPECT_GT(mean, 0);
  EXPECT_LT(frost, mean);
  EXPECT_LT(frostStrong, frost); // a larger damping factor preserves the edge better
}

TEST(IpgSpeckleFilters, FrameRulesProgressAndNoRoi)
{
  auto in = SpikeStrip();
  auto roi = Image(5, 3, {}); // selects nothing: the speckle filters ignore it
  for (const auto& [code, label] : {std::pair{513, "LEE FILTER"}, std::pair{516, "FROST FILTER"}, std::pair{517, "KUAN FILTER"}}) {
    ProgressCapture sink;
    DCM_STRUCT out(*in, false);
    IPG_FILTER_PROCESSING filter(in.get(), roi.get());
    filter.SetImaOut(&out);
    filter.SetTools(code);
    filter.SetNbrOfIter(2);
    ASSERT_EQ(filter.Apply(), 1) << code;
    EXPECT_EQ(sink.Events, (std::vector<std::string>{"open " + std::string(label) + " 2", "step 1", "step 2", "close"}));
    EXPECT_EQ(out.Data->GetMax(), 0) << code; // extremes are not recomputed
    if (code != 516) { // Frost's 5x5 window does not fit in three rows
      EXPECT_NE(out.Data->GetValue(1u, 1u), 100) << code;
    }
  }
}
