#include "dcm/dcm_struct.h"
#include "ipg/framework/ipg_one_input_two_output.h"
#include "ipg/framework/ipg_two_inputs_one_output.h"

#include <gtest/gtest.h>

TEST(BaseClasses, DefaultsAndTheToolsGetterReturningAReal)
{
  IPG_ONE_INPUT_TWO_OUTPUT op;
  EXPECT_EQ(op.GetMode(), 301);
  EXPECT_EQ(op.GetTools(), 0.0);
  EXPECT_EQ(op.GetResult(), 0.0);
  EXPECT_EQ(op.GetImaIn(), nullptr);
  EXPECT_EQ(op.GetRoi(), nullptr);
  EXPECT_EQ(op.GetImaOut(), nullptr);
  op.SetTools(1210);
  static_assert(std::is_same_v<decltype(op.GetTools()), double>);
  EXPECT_EQ(op.GetTools(), 1210.0);
}

TEST(BaseClasses, SecondOutputGetterReturnsTheFirstOutput)
{
  DCM_STRUCT first(1, 1, nullptr), second(1, 1, nullptr);
  IPG_ONE_INPUT_TWO_OUTPUT op;
  op.SetImaOut(&first);
  op.SetImaOutTwo(&second);
  EXPECT_EQ(op.GetImaOutTwo(), &first);
}

TEST(BaseClasses, CopiesKeepOnlyTheFieldsOfTheirOwnLevel)
{
  DCM_STRUCT in(1, 1, nullptr), roi(1, 1, nullptr), out(1, 1, nullptr), out2(1, 1, nullptr);

  IPG_ONE_INPUT_NO_OUTPUT root;
  root.SetTools(7);
  root.SetImaIn(&in);
  root.SetRoi(&roi);
  root.SetResult(2.5);
  root.SetMode(300);
  const IPG_ONE_INPUT_NO_OUTPUT* rootSource = &root;
  IPG_ONE_INPUT_NO_OUTPUT rootCopy(rootSource);
  EXPECT_EQ(rootCopy.GetTools(), 7.0);
  EXPECT_EQ(rootCopy.GetImaIn(), &in);
  EXPECT_EQ(rootCopy.GetRoi(), &roi);
  EXPECT_EQ(rootCopy.GetResult(), 2.5);
  EXPECT_EQ(rootCopy.GetMode(), 300);

  IPG_ONE_INPUT_ONE_OUTPUT one;
  one.SetTools(7);
  one.SetImaIn(&in);
  one.SetRoi(&roi);
  one.SetMode(300);
  one.SetImaOut(&out);
  const IPG_ONE_INPUT_ONE_OUTPUT* oneSource = &one;
  IPG_ONE_INPUT_ONE_OUTPUT oneCopy(oneSource);
  EXPECT_EQ(oneCopy.GetMode(), 301);
  EXPECT_EQ(oneCopy.GetTools(), 0.0);
  EXPECT_EQ(oneCopy.GetImaIn(), nullptr);
  EXPECT_EQ(oneCopy.GetRoi(), nullptr);
  EXPECT_EQ(oneCopy.GetImaOut(), &out);

  IPG_ONE_INPUT_TWO_OUTPUT two;
  two.SetImaOut(&out);
  two.SetImaOutTwo(&out2);
  two.SetMode(303);
  IPG_ONE_INPUT_TWO_OUTPUT twoCopy(two);
  EXPECT_EQ(twoCopy.GetImaOut(), nullptr);
  EXPECT_EQ(twoCopy.GetImaOutTwo(), nullptr) << "the getter reads the first output, which was not copied";
  EXPECT_EQ(twoCopy.GetMode(), 301);

  IPG_TWO_INPUTS_ONE_OUTPUT pair;
  pair.SetImaIn(&in);
  pair.SetInSecond(&in);
  pair.SetImaOut(&out);
  IPG_TWO_INPUTS_ONE_OUTPUT pairCopy(pair);
  EXPECT_EQ(pairCopy.GetImaOut(), &out);
  EXPECT_EQ(pairCopy.GetInSecond(), nullptr);
  EXPECT_EQ(pairCopy.GetImaIn(), nullptr);

  IPG_TWO_INPUTS_NO_OUTPUT measure;
  measure.SetInSecond(&in);
  measure.SetTools(101);
  IPG_TWO_INPUTS_NO_OUTPUT measureCopy(measure);
  EXPECT_EQ(measureCopy.GetInSecond(), &in);
  EXPECT_EQ(measureCopy.GetTools(), 0.0);
}
