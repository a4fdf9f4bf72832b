// SPDX-License-Identifier: Apache-2.0
#include "mth/internal/mth_fft_plan_text.h"

#include <gtest/gtest.h>

TEST(FftPlanText, ReadsTheLineTransformOfAPrintedLoop)
{
  EXPECT_EQ(Mth_PlanText("  (dft-rank>=2/1\n    (a)\n\t(b  c))\n"), "(dft-rank>=2/1 (a) (b c))");
  const MTH_PLAN_NODE whole = Mth_ParsePlanNode("(dft-rank>=2/1 (x (y)) (z))");
  EXPECT_EQ(whole.Solver, "dft-rank>=2/1");
  EXPECT_EQ(whole.Children, (std::vector<std::string>{"(x (y))", "(z)"}));
  EXPECT_TRUE(Mth_ParsePlanNode("no parentheses").Solver.empty());

  bool scratch = true;
  EXPECT_EQ(Mth_PlanLineBody("(dft-vrank>=1-x64/1 (n1fv_64))", 64, 256, scratch), "(n1fv_64)");
  EXPECT_FALSE(scratch);
  EXPECT_EQ(Mth_PlanLineBody("(dft-vrank>=1-x63/1 (n1fv_64))", 64, 256, scratch), ""); // another count
  EXPECT_EQ(Mth_PlanLineBody("(dft-buffered-256-x8/64-6 (dft-vrank>=1-x8/1 (body)) (copy) (dft-nop))", 64, 256, scratch),
            "(body)");
  EXPECT_TRUE(scratch);
  // A partial last batch, another length or a batch that is not a loop of that many lines: no body.
  EXPECT_EQ(Mth_PlanLineBody("(dft-buffered-256-x8/64-6 (dft-vrank>=1-x8/1 (body)) (copy) (other))", 64, 256, scratch), "");
  EXPECT_EQ(Mth_PlanLineBody("(dft-buffered-128-x8/64-6 (dft-vrank>=1-x8/1 (body)) (copy) (dft-nop))", 64, 256, scratch), "");
  EXPECT_EQ(Mth_PlanLineBody("(dft-buffered-256-x8/64-6 (dft-vrank>=1-x4/1 (body)) (copy) (dft-nop))", 64, 256, scratch), "");
}
