// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_container.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/arithmetic/ipg_change_dynamic.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/filtering/ipg_generic_processing.h"
#include "ipg/filtering/ipg_morpho_processing.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"
#include "ipg/frequency/ipg_transformation.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/measurement/ipg_statistic2.h"
#include "ipg/segmentation/ipg_convert_binary_to_object.h"
#include "ipg/segmentation/ipg_region.h"
#include "support/images.h"
#include "support/message_capture.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

namespace {

using Image = std::unique_ptr<DCM_STRUCT>;

Image Ramp() { return ImageOf(8, 6, [](unsigned c, unsigned r) { return static_cast<int>((c * 7 + r * 13) % 50 + 1); }); }
Image OtherRamp() { return ImageOf(8, 6, [](unsigned c, unsigned r) { return static_cast<int>((c * 3 + r * r) % 40 + 2); }); }
Image LeftHalfRoi() { return ImageOf(8, 6, [](unsigned c, unsigned) { return c < 4 ? kRoiInside : 0; }); }

void ExpectSameImage(DCM_STRUCT& actual, DCM_STRUCT& expected)
{
  ASSERT_EQ(actual.GetNbOfCols(), expected.GetNbOfCols());
  EXPECT_EQ(PixelsOf(actual), PixelsOf(expected));
  EXPECT_EQ(actual.Data->GetMin(), expected.Data->GetMin());
  EXPECT_EQ(actual.Data->GetMax(), expected.Data->GetMax());
  EXPECT_EQ(actual.Data->GetPrecision(), expected.Data->GetPrecision());
}

template <class Op>
constexpr bool kHasOutput = requires(Op& op) { op.SetImaOut(nullptr); };
template <class Op>
constexpr bool kHasSecondInput = requires(Op& op) { op.SetInSecond(nullptr); };

// Fills a container from `source`, gives it the images and `tools` and applies
// it; then runs `source` itself with Mode 302 (or its own mode where the
// container keeps it) into a copy of the image the container's result started
// from, and expects the same success, pixels or numerical result.
template <class Op>
void ExpectContainerRunsLikeTheOperator(int type, Op& source, int tools, DCM_STRUCT* in, DCM_STRUCT* second = nullptr,
                                        DCM_STRUCT* roi = nullptr)
{
  SCOPED_TRACE("class type " + std::to_string(type) + ", code " + std::to_string(tools));
  IPG_CONTAINER container;
  ASSERT_TRUE(container.SetIpgContainer(&source, type));
  static_cast<Op*>(container.GetIPGClassAddress())->SetTools(tools);
  container.SetImageIn(in);
  container.SetSecondImageIn(second);
  container.SetImageROI(roi);
  const Image carried(container.GetResult()); // the output the copy constructor carried, if any
  const bool viaContainer = container.Apply();

  DCM_STRUCT& start = carried                                  ? *carried
                      : type == kIpgClassConvertBinaryToObject ? *second
                      : roi != nullptr                         ? *roi
                                                               : *in;
  DCM_STRUCT out(start, true);
  if (type == kIpgClassArithmetic1 || type == kIpgClassArithmetic2)
    out.Data->SetPrecision(10000);
  if (type != kIpgClassConvertBinaryToObject && type != kIpgClassChangeDynamic)
    source.SetMode(302);
  source.SetTools(tools);
  source.SetImaIn(in);
  source.SetRoi(roi);
  if constexpr (kHasSecondInput<Op>)
    source.SetInSecond(second);
  [[maybe_unused]] DCM_STRUCT* sourceOut = nullptr;
  if constexpr (kHasOutput<Op>) {
    sourceOut = source.GetImaOut();
    source.SetImaOut(&out);
  }
  const bool direct = static_cast<bool>(source.Apply());
  if constexpr (kHasOutput<Op>)
    source.SetImaOut(sourceOut);

  EXPECT_TRUE(direct); // every case here is one the operator can run
  EXPECT_EQ(viaContainer, direct);
  if constexpr (kHasOutput<Op>) {
    const Image result(container.GetResult());
    ASSERT_NE(result, nullptr);
    ExpectSameImage(*result, out);
    // The contours go to the output's object list, which an image copy leaves behind.
    DCM_STRUCT* heldOut = static_cast<Op*>(container.GetIPGClassAddress())->GetImaOut();
    ASSERT_NE(heldOut, nullptr);
    EXPECT_EQ(heldOut->GetObjectsList()->GetNbObjects(), out.GetObjectsList()->GetNbObjects());
    EXPECT_TRUE(type != kIpgClassConvertBinaryToObject || out.GetObjectsList()->GetNbObjects() > 0);
  } else {
    EXPECT_EQ(container.GetNumericalResult(), static_cast<float>(source.GetResult()));
  }
}

TEST(Container, FillsRefusedCarriedAndForwarded)
{
  auto in = Ramp();
  IPG_ARITHMETIC1 op(in.get());
  IPG_CONTAINER container;
  EXPECT_FALSE(container.Apply()); // empty: class 20000, nothing held
  EXPECT_EQ(container.GetResult(), nullptr);
  EXPECT_FALSE(container.SetImageIn(in.get())); // kept, though no operator takes it
  EXPECT_EQ(container.GetInImageAddress(), in.get());
  EXPECT_FALSE(container.SetIpgContainer(nullptr, kIpgClassArithmetic1));
  EXPECT_EQ(container.GetIpgClassType(), 20000);

  for (int type : {20012, 20000, 19999, 20015}) {
    ASSERT_TRUE(container.SetIpgContainer(&op, kIpgClassArithmetic1));
    EXPECT_FALSE(container.SetIpgContainer(&op, type));
    EXPECT_EQ(container.GetIpgClassType(), type);
    EXPECT_EQ(container.GetIPGClassAddress(), nullptr);
    EXPECT_FALSE(container.Apply());
  }

  ASSERT_TRUE(container.SetIpgContainer(&op, kIpgClassArithmetic1));
  EXPECT_FALSE(container.SetIpgContainer(nullptr, kIpgClassArithmetic2));
  EXPECT_EQ(container.GetIpgClassType(), kIpgClassArithmetic1);
  EXPECT_NE(container.GetIPGClassAddress(), nullptr);

  auto ramp = Ramp();
  auto roi = LeftHalfRoi();
  auto out = OtherRamp();

  // One-image arithmetic copies only Variable: no images, Tools 0.
  IPG_ARITHMETIC1 arithmetic(ramp.get(), roi.get());
  arithmetic.SetVariable(3.5f);
  arithmetic.SetImaOut(out.get());
  IPG_CONTAINER carrier;
  carrier.SetImageIn(ramp.get());
  ASSERT_TRUE(carrier.SetIpgContainer(&arithmetic, kIpgClassArithmetic1));
  auto* held = static_cast<IPG_ARITHMETIC1*>(carrier.GetIPGClassAddress());
  EXPECT_NE(held, &arithmetic);
  EXPECT_EQ(held->GetVariable(), 3.5f);
  EXPECT_EQ(held->GetTools(), 0.0);
  EXPECT_EQ(held->GetImaIn(), nullptr);
  EXPECT_EQ(held->GetImaOut(), nullptr);
  EXPECT_EQ(held->GetRoi(), nullptr);
  EXPECT_EQ(carrier.GetInImageAddress(), nullptr); // the copy's input replaces the one set before
  EXPECT_EQ(carrier.GetBinaryRoi(), nullptr);
  EXPECT_FALSE(carrier.Apply()); // Tools 0 does nothing until the host sets a code

  // The dynamic change copies its input and output: the container keeps the
  // input pointer and a deep copy of the output as its result.
  IPG_CHANGE_DYNAMIC dynamic(ramp.get(), out.get());
  dynamic.SetTools(300);
  ASSERT_TRUE(carrier.SetIpgContainer(&dynamic, kIpgClassChangeDynamic));
  auto* heldDynamic = static_cast<IPG_CHANGE_DYNAMIC*>(carrier.GetIPGClassAddress());
  EXPECT_EQ(heldDynamic->GetTools(), 300.0);
  EXPECT_EQ(carrier.GetInImageAddress(), ramp.get());
  EXPECT_EQ(heldDynamic->GetImaIn(), ramp.get());
  ASSERT_NE(heldDynamic->GetImaOut(), nullptr);
  EXPECT_NE(heldDynamic->GetImaOut(), out.get());
  const Image result(carrier.GetResult());
  ExpectSameImage(*result, *out);

  // The forwarding setters report whether the operator takes the image.
  IPG_ARITHMETIC1 one(ramp.get());
  IPG_CONTAINER forwarding;
  ASSERT_TRUE(forwarding.SetIpgContainer(&one, kIpgClassArithmetic1));
  EXPECT_TRUE(forwarding.SetImageIn(ramp.get()));
  EXPECT_EQ(static_cast<IPG_ARITHMETIC1*>(forwarding.GetIPGClassAddress())->GetImaIn(), ramp.get());
  EXPECT_FALSE(forwarding.SetSecondImageIn(out.get()));
  EXPECT_EQ(forwarding.GetSecondImageIn(), out.get());

  IPG_ARITHMETIC2 two(ramp.get(), ramp.get());
  IPG_STATISTIC2 similarity(ramp.get(), ramp.get());
  IPG_FFT_TWO_INPUTS fourier(ramp.get(), ramp.get(), nullptr);
  for (auto [source, type] : {std::pair<void*, int>{&similarity, kIpgClassStatistic2}, {&two, kIpgClassArithmetic2},
                              {&fourier, kIpgClassFftTwoInputs}}) {
    ASSERT_TRUE(forwarding.SetIpgContainer(source, type));
    EXPECT_TRUE(forwarding.SetSecondImageIn(out.get())) << type;
    EXPECT_TRUE(forwarding.SetImageIn(ramp.get())) << type;
  }
  EXPECT_EQ(static_cast<IPG_FFT_TWO_INPUTS*>(forwarding.GetIPGClassAddress())->GetInSecond(), out.get());

  // The ROI is kept as a deep copy, handed over at Apply().
  EXPECT_TRUE(forwarding.SetImageROI(roi.get()));
  ASSERT_NE(forwarding.GetBinaryRoi(), nullptr);
  EXPECT_NE(forwarding.GetBinaryRoi(), roi.get());
  ExpectSameImage(*forwarding.GetBinaryRoi(), *roi);
  EXPECT_TRUE(forwarding.SetImageROI(nullptr));
  EXPECT_EQ(forwarding.GetBinaryRoi(), nullptr);
}

TEST(Container, EveryHeldClassRunsAsItsOperatorWithMode302)
{
  MessageCapture capture;
  auto in = Ramp();
  auto second = OtherRamp();
  auto roi = LeftHalfRoi();

  // Each class with one code on the whole image, then another under the ROI.
  auto twice = [&](int type, auto& op, int code, int roiCode, DCM_STRUCT* other = nullptr) {
    ExpectContainerRunsLikeTheOperator(type, op, code, in.get(), other);
    ExpectContainerRunsLikeTheOperator(type, op, roiCode, in.get(), other, roi.get());
  };
  IPG_REGION region(in.get());
  region.SetSeed(1, 1); // value 21, inside the range
  region.SetMinGL(10);
  region.SetMaxGL(45);
  twice(kIpgClassRegion, region, 900, 900);
  IPG_GENERIC_PROCESSING generic(in.get());
  generic.SetSeuilMin(20);
  generic.SetSeuilMax(40);
  twice(kIpgClassGenericProcessing, generic, 401, 403);
  IPG_STATISTIC1 statistics(in.get());
  twice(kIpgClassStatistic1, statistics, 0, 12);
  IPG_STATISTIC2 similarity(in.get(), second.get());
  twice(kIpgClassStatistic2, similarity, 100, 102, second.get());
  IPG_ARITHMETIC1 arithmetic(in.get());
  arithmetic.SetVariable(2.5f);
  twice(kIpgClassArithmetic1, arithmetic, 201, 204);
  IPG_ARITHMETIC2 twoImages(in.get(), second.get());
  twoImages.SetThresholdMin(0);
  twoImages.SetThresholdMax(30);
  twice(kIpgClassArithmetic2, twoImages, 303, 305, second.get());
  IPG_FILTER_PROCESSING filter(in.get());
  filter.SetLaplacianGaussianSize(5);
  filter.SetLaplacianGaussianSigma(0.8);
  filter.setWaitbarVisible(false);
  twice(kIpgClassFilterProcessing, filter, 507, 515);
  IPG_TRANSFORMATION transformation(in.get());
  transformation.SetenX(2.0);
  transformation.SetenY(1.0);
  transformation.SetAngle(0.4);
  twice(kIpgClassTransformation, transformation, 600, 601);
  IPG_MORPHO_PROCESSING morphology(in.get());
  twice(kIpgClassMorphoProcessing, morphology, 1100, 1103);
  auto dynamicOut = Ramp();
  IPG_CHANGE_DYNAMIC dynamic(in.get(), dynamicOut.get());
  dynamic.SetLimitInf(10.0f);
  dynamic.SetLimitSup(30.0f);
  twice(kIpgClassChangeDynamic, dynamic, 301, 300);

  IPG_FFT_ONE_INPUT fourier(in.get(), nullptr);
  fourier.SetThreshold(1);
  ExpectContainerRunsLikeTheOperator(kIpgClassFftOneInput, fourier, 1202, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassFftOneInput, fourier, 1216, in.get());
  IPG_FFT_TWO_INPUTS fourierTwo(in.get(), second.get(), nullptr);
  ExpectContainerRunsLikeTheOperator(kIpgClassFftTwoInputs, fourierTwo, 1303, in.get(), second.get());
  auto mask = TestImage(8, 6).Rect(1, 1, 2, 4, kRoiInside).Rect(5, 2, 2, 2, kRoiInside).Build();
  IPG_CONVERT_BINARY_TO_OBJECT contours(mask.get(), second.get());
  contours.SetStep(1);
  ExpectContainerRunsLikeTheOperator(kIpgClassConvertBinaryToObject, contours, 0, mask.get(), second.get());
}

TEST(Container, ApplySetsMode302AndPrecisionKeepsTheDynamicModeStartsFromTheRoiElseTheInput)
{
  auto in = Ramp();
  IPG_ARITHMETIC1 arithmetic(in.get());
  IPG_CONTAINER container;
  ASSERT_TRUE(container.SetIpgContainer(&arithmetic, kIpgClassArithmetic1));
  auto* held = static_cast<IPG_ARITHMETIC1*>(container.GetIPGClassAddress());
  held->SetTools(200);
  held->SetMode(301);
  container.SetImageIn(in.get());
  ASSERT_TRUE(container.Apply());
  EXPECT_EQ(held->GetMode(), 302);
  const Image result(container.GetResult());
  EXPECT_EQ(result->Data->GetPrecision(), 10000);
  EXPECT_EQ(result->Data->GetValueReal(3, 2), in->Data->GetValue(3, 2) + 200.0); // not re-scaled to the bit depth

  auto out = Ramp();
  IPG_CHANGE_DYNAMIC dynamic(in.get(), out.get());
  ASSERT_TRUE(container.SetIpgContainer(&dynamic, kIpgClassChangeDynamic));
  auto* heldDynamic = static_cast<IPG_CHANGE_DYNAMIC*>(container.GetIPGClassAddress());
  heldDynamic->SetMode(300);
  ASSERT_TRUE(container.Apply());
  EXPECT_EQ(heldDynamic->GetMode(), 300);
  EXPECT_EQ(heldDynamic->GetRoi(), nullptr);

  // The first Apply() writes into a copy of the ROI, else of the input.
  auto roi = LeftHalfRoi();
  IPG_CONTAINER fromInput;
  fromInput.SetImageIn(in.get());
  EXPECT_FALSE(fromInput.Apply()); // no operator, but the result image exists now
  Image given(fromInput.GetResult());
  ASSERT_NE(given, nullptr);
  ExpectSameImage(*given, *in);
  given->Data->SetValue(0, 0, 999); // each call hands out a new copy
  given.reset(fromInput.GetResult());
  EXPECT_EQ(given->Data->GetValue(0, 0), in->Data->GetValue(0, 0));

  IPG_CONTAINER fromRoi;
  fromRoi.SetImageIn(in.get());
  fromRoi.SetImageROI(roi.get());
  EXPECT_FALSE(fromRoi.Apply());
  given.reset(fromRoi.GetResult());
  ExpectSameImage(*given, *roi);

  // An existing result image is kept: a later input does not replace it.
  auto other = OtherRamp();
  fromRoi.SetImageIn(other.get());
  fromRoi.Apply();
  given.reset(fromRoi.GetResult());
  ExpectSameImage(*given, *roi);
}

TEST(Container, CopiesOwnTheirOperatorRoiAndResultAndLeaveNothingBehind)
{
  auto in = Ramp();
  auto second = OtherRamp();
  auto roi = LeftHalfRoi();
  IPG_ARITHMETIC2 op(in.get(), second.get());
  op.SetThresholdMin(5);
  IPG_CONTAINER source;
  ASSERT_TRUE(source.SetIpgContainer(&op, kIpgClassArithmetic2));
  static_cast<IPG_ARITHMETIC2*>(source.GetIPGClassAddress())->SetTools(302);
  source.SetImageIn(in.get());
  source.SetSecondImageIn(second.get());
  source.SetImageROI(roi.get());
  ASSERT_TRUE(source.Apply());

  IPG_CONTAINER copy(&source);
  EXPECT_EQ(copy.GetIpgClassType(), kIpgClassArithmetic2);
  auto* held = static_cast<IPG_ARITHMETIC2*>(copy.GetIPGClassAddress());
  ASSERT_NE(held, nullptr);
  EXPECT_NE(held, source.GetIPGClassAddress());
  EXPECT_EQ(held->GetThresholdMin(), 5);
  EXPECT_EQ(held->GetTools(), 0.0); // the copy goes through the class's copy constructor
  EXPECT_EQ(copy.GetInImageAddress(), in.get());
  EXPECT_EQ(copy.GetSecondImageIn(), second.get());
  ASSERT_NE(copy.GetBinaryRoi(), nullptr);
  EXPECT_NE(copy.GetBinaryRoi(), source.GetBinaryRoi());
  ExpectSameImage(*copy.GetBinaryRoi(), *roi);
  const Image copied(copy.GetResult());
  const Image original(source.GetResult());
  ExpectSameImage(*copied, *original);

  // Running the copy leaves the source's result alone.
  held->SetTools(303);
  ASSERT_TRUE(copy.Apply());
  const Image sourceAfter(source.GetResult());
  ExpectSameImage(*sourceAfter, *original);

  IPG_CONTAINER fromEmpty(static_cast<IPG_CONTAINER*>(nullptr));
  EXPECT_EQ(fromEmpty.GetIpgClassType(), 20000);
  IPG_CONTAINER empty;
  IPG_CONTAINER copyOfEmpty(&empty);
  EXPECT_EQ(copyOfEmpty.GetIPGClassAddress(), nullptr);
  EXPECT_EQ(copyOfEmpty.GetResult(), nullptr);

  // Under the sanitizer build: every image and operator the container made
  // is freed, and the held operator never points at a freed image.
  auto out = OtherRamp();
  IPG_CHANGE_DYNAMIC dynamic(in.get(), out.get());
  IPG_MORPHO_PROCESSING morphology(in.get());

  auto container = std::make_unique<IPG_CONTAINER>();
  ASSERT_TRUE(container->SetIpgContainer(&dynamic, kIpgClassChangeDynamic));
  container->SetImageROI(roi.get());
  container->SetImageROI(roi.get());
  ASSERT_TRUE(container->Apply());

  // Refilled from the operator it holds: its output image is its own result.
  ASSERT_TRUE(container->SetIpgContainer(container->GetIPGClassAddress(), kIpgClassChangeDynamic));
  ASSERT_TRUE(container->Apply());

  auto again = std::make_unique<IPG_CONTAINER>(container.get());
  auto* heldCopy = static_cast<IPG_CHANGE_DYNAMIC*>(again->GetIPGClassAddress());
  ASSERT_NE(heldCopy->GetImaOut(), nullptr);
  const Image copyResult(again->GetResult());
  ExpectSameImage(*heldCopy->GetImaOut(), *copyResult); // a live image, not the freed first copy
  container.reset();
  ASSERT_TRUE(again->Apply());

  ASSERT_TRUE(again->SetIpgContainer(&morphology, kIpgClassMorphoProcessing));
  again->SetImageIn(in.get());
  again->SetImageROI(nullptr);
  EXPECT_EQ(static_cast<IPG_MORPHO_PROCESSING*>(again->GetIPGClassAddress())->GetRoi(), nullptr);
  static_cast<IPG_MORPHO_PROCESSING*>(again->GetIPGClassAddress())->SetTools(1101);
  EXPECT_TRUE(again->Apply());
  again->DeleteIpgContainer();
  again->DeleteIpgContainer();
  EXPECT_EQ(again->GetIPGClassAddress(), nullptr);
  again.reset();
}

} // namespace
