// SPDX-License-Identifier: Apache-2.0
#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_one_input_two_output.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"

#include <gtest/gtest.h>

#include <type_traits>

// Each level's copy keeps only its own fields; the second-output getter reads the first output.
TEST(BaseClasses, CopiesKeepOnlyTheFieldsOfTheirOwnLevel)
{
  DCM_STRUCT in(1, 1, nullptr), roi(1, 1, nullptr), out(1, 1, nullptr), out2(1, 1, nullptr);
  IPG_ONE_INPUT_NO_OUTPUT root;
  root.SetTools(7);
  root.SetImaIn(&in);
  root.SetRoi(&roi);
  root.SetResult(2.5);
  root.SetMode(300);
  const IPG_ONE_INPUT_NO_OUTPUT rootCopy(static_cast<const IPG_ONE_INPUT_NO_OUTPUT*>(&root));
  EXPECT_EQ(rootCopy.GetTools(), 7.0);
  EXPECT_EQ(rootCopy.GetRoi(), &roi);
  EXPECT_EQ(rootCopy.GetResult(), 2.5);
  EXPECT_EQ(rootCopy.GetMode(), 300);

  IPG_ONE_INPUT_TWO_OUTPUT two;
  static_assert(std::is_same_v<decltype(two.GetTools()), double>);
  EXPECT_EQ(two.GetMode(), 301);
  two.SetTools(7);
  two.SetImaIn(&in);
  two.SetMode(303);
  two.SetImaOut(&out);
  two.SetImaOutTwo(&out2);
  EXPECT_EQ(two.GetImaOutTwo(), &out);
  const IPG_ONE_INPUT_ONE_OUTPUT oneCopy(static_cast<const IPG_ONE_INPUT_ONE_OUTPUT*>(&two));
  EXPECT_EQ(oneCopy.GetMode(), 301);
  EXPECT_EQ(oneCopy.GetTools(), 0.0);
  EXPECT_EQ(oneCopy.GetImaIn(), nullptr);
  EXPECT_EQ(oneCopy.GetImaOut(), &out);
  const IPG_ONE_INPUT_TWO_OUTPUT twoCopy(two);
  EXPECT_EQ(twoCopy.GetImaOutTwo(), nullptr) << "the getter reads the first output, which was not copied";

  IPG_TWO_INPUTS_ONE_OUTPUT pair;
  pair.SetInSecond(&in);
  pair.SetImaOut(&out);
  const IPG_TWO_INPUTS_ONE_OUTPUT pairCopy(pair);
  EXPECT_EQ(pairCopy.GetImaOut(), &out);
  EXPECT_EQ(pairCopy.GetInSecond(), nullptr);

  IPG_TWO_INPUTS_NO_OUTPUT measure;
  measure.SetInSecond(&in);
  measure.SetTools(101);
  const IPG_TWO_INPUTS_NO_OUTPUT measureCopy(measure);
  EXPECT_EQ(measureCopy.GetInSecond(), &in);
  EXPECT_EQ(measureCopy.GetTools(), 0.0);
}
