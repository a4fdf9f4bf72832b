// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/filtering/ipg_generic_processing.h"
#include "ipg/filtering/ipg_morpho_processing.h"
#include "ipg/framework/ipg_container.h"
#include "ipg/frequency/ipg_transformation.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/measurement/ipg_statistic2.h"
#include "ipg/segmentation/ipg_region.h"
#include "ipg/segmentation/ipg_roi.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int kInside = 16777217;

// A ROI of another size than the input is refused by every operator that reads
// one, with the shared message naming the class, before anything is written.
TEST(IpgGuard, RoiOfAnotherSizeIsRefusedByEveryOperator)
{
  DCM_STRUCT in(8, 8, nullptr), second(8, 8, nullptr), roi(8, 4, nullptr);
  in.Data->Init(5.0);
  roi.Data->Init(static_cast<double>(kInside));
  using Run = std::function<bool(DCM_STRUCT& out)>;
  const std::vector<std::pair<std::string, Run>> operators = {
      {"IPG_ARITHMETIC1", [&](DCM_STRUCT& out) { IPG_ARITHMETIC1 op(&in, &roi); op.SetImaOut(&out); return op.Apply(); }},
      {"IPG_ARITHMETIC2",
       [&](DCM_STRUCT& out) { IPG_ARITHMETIC2 op(&in, &second, &roi); op.SetImaOut(&out); return op.Apply(); }},
      {"IPG_GENERIC_PROCESSING",
       [&](DCM_STRUCT& out) { IPG_GENERIC_PROCESSING op(&in, &roi); op.SetImaOut(&out); return op.Apply() != 0; }},
      {"IPG_FILTER_PROCESSING",
       [&](DCM_STRUCT& out) { IPG_FILTER_PROCESSING op(&in, &roi); op.SetImaOut(&out); return op.Apply() != 0; }},
      {"IPG_MORPHO_PROCESSING",
       [&](DCM_STRUCT& out) { IPG_MORPHO_PROCESSING op(&in, &roi); op.SetImaOut(&out); return op.Apply() != 0; }},
      {"IPG_TRANSFORMATION",
       [&](DCM_STRUCT& out) { IPG_TRANSFORMATION op(&in, &roi); op.SetImaOut(&out); return op.Apply(); }},
      {"IPG_STATISTIC1", [&](DCM_STRUCT&) { IPG_STATISTIC1 op(&in, &roi); return op.Apply(); }},
      {"IPG_STATISTIC2", [&](DCM_STRUCT&) { IPG_STATISTIC2 op(&in, &second, &roi); return op.Apply(); }},
      {"IPG_REGION",
       [&](DCM_STRUCT& out) { IPG_REGION op(&in); op.SetRoi(&roi); op.SetImaOut(&out); op.SetSeed(1, 1); return op.Apply(); }},
      {"IPG_ROI", [&](DCM_STRUCT& out) { IPG_ROI op(&in, &roi, &out); return op.Apply(); }},
  };
  for (const auto& [name, run] : operators) {
    SCOPED_TRACE(name);
    MessageCapture capture;
    DCM_STRUCT out(8, 8, nullptr);
    out.Data->Init(-3.0);
    EXPECT_FALSE(run(out));
    EXPECT_EQ(capture.Texts, std::vector<std::string>{"La ROI n'a pas les mêmes dimensions que l'image : " + name + "::Apply()"});
    EXPECT_EQ(out.Data->GetValue(7u, 7u), -3); // untouched
  }

  // Through the container, refused before the result image is made from the ROI.
  MessageCapture capture;
  IPG_ARITHMETIC1 held(&in);
  IPG_CONTAINER container;
  ASSERT_TRUE(container.SetIpgContainer(&held, kIpgClassArithmetic1));
  container.SetImageIn(&in);
  container.SetImageROI(&roi);
  EXPECT_FALSE(container.Apply());
  DCM_STRUCT sameSize(8, 8, nullptr);
  container.SetImageROI(&sameSize);
  container.Apply(); // a ROI of the input's size passes
  EXPECT_EQ(capture.Texts, std::vector<std::string>{"La ROI n'a pas les mêmes dimensions que l'image : IPG_CONTAINER::Apply()"});
}

TEST(IpgGuard, MessagesAndPoints)
{
  EXPECT_EQ(Ipg_MsgParameterRange("Seed", "IPG_REGION"), "Paramètre Seed hors limites : IPG_REGION::Apply()");
  MessageCapture capture;
  EXPECT_TRUE(Ipg_ParameterInRange(true, "NbIter", "IPG_FILTER_PROCESSING"));
  EXPECT_FALSE(Ipg_ParameterInRange(false, "NbIter", "IPG_FILTER_PROCESSING"));
  EXPECT_EQ(capture.Texts, std::vector<std::string>{"Paramètre NbIter hors limites : IPG_FILTER_PROCESSING::Apply()"});
  DCM_STRUCT image(3, 2, nullptr);
  EXPECT_TRUE(Ipg_PointOnImage(&image, 2, 1));
  EXPECT_FALSE(Ipg_PointOnImage(&image, 3, 1));
  EXPECT_FALSE(Ipg_PointOnImage(&image, -1, 0));
  EXPECT_FALSE(Ipg_PointOnImage(&image, 2147483647LL, 2147483647LL));
  EXPECT_FALSE(Ipg_PointOnImage(nullptr, 0, 0));
}

} // namespace
