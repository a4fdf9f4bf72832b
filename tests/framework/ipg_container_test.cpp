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
    if (type == kIpgClassConvertBinaryToObject) {
      EXPECT_GT(out.GetObjectsList()->GetNbObjects(), 0);
    }
  } else {
    EXPECT_EQ(container.GetNumericalResult(), static_cast<float>(source.GetResult()));
  }
}

TEST(Container, RefusedFillsKeepTheCodeAndDropTheHeldOperator)
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
}

TEST(Container, FillCarriesOnlyWhatTheClassCopyConstructorCarries)
{
  auto in = Ramp();
  auto roi = LeftHalfRoi();
  auto out = OtherRamp();

  // One-image arithmetic copies only Variable: no images, Tools 0.
  IPG_ARITHMETIC1 arithmetic(in.get(), roi.get());
  arithmetic.SetVariable(3.5f);
  arithmetic.SetImaOut(out.get());
  IPG_CONTAINER container;
  container.SetImageIn(in.get());
  ASSERT_TRUE(container.SetIpgContainer(&arithmetic, kIpgClassArithmetic1));
  auto* held = static_cast<IPG_ARITHMETIC1*>(container.GetIPGClassAddress());
  EXPECT_NE(held, &arithmetic);
  EXPECT_EQ(held->GetVariable(), 3.5f);
  EXPECT_EQ(held->GetTools(), 0.0);
  EXPECT_EQ(held->GetImaIn(), nullptr);
  EXPECT_EQ(held->GetImaOut(), nullptr);
  EXPECT_EQ(held->GetRoi(), nullptr);
  EXPECT_EQ(container.GetInImageAddress(), nullptr); // the copy's input replaces the one set before
  EXPECT_EQ(container.GetBinaryRoi(), nullptr);
  EXPECT_FALSE(container.Apply()); // Tools 0 does nothing until the host sets a code

  // The dynamic change copies its input and output: the container keeps the
  // input pointer and a deep copy of the output as its result.
  IPG_CHANGE_DYNAMIC dynamic(in.get(), out.get());
  dynamic.SetTools(300);
  ASSERT_TRUE(container.SetIpgContainer(&dynamic, kIpgClassChangeDynamic));
  auto* heldDynamic = static_cast<IPG_CHANGE_DYNAMIC*>(container.GetIPGClassAddress());
  EXPECT_EQ(heldDynamic->GetTools(), 300.0);
  EXPECT_EQ(container.GetInImageAddress(), in.get());
  EXPECT_EQ(heldDynamic->GetImaIn(), in.get());
  ASSERT_NE(heldDynamic->GetImaOut(), nullptr);
  EXPECT_NE(heldDynamic->GetImaOut(), out.get());
  const Image result(container.GetResult());
  ExpectSameImage(*result, *out);
}

TEST(Container, ForwardingSettersReportWhetherTheOperatorTakesTheImage)
{
  auto in = Ramp();
  auto second = OtherRamp();
  auto roi = LeftHalfRoi();

  IPG_ARITHMETIC1 one(in.get());
  IPG_CONTAINER container;
  ASSERT_TRUE(container.SetIpgContainer(&one, kIpgClassArithmetic1));
  EXPECT_TRUE(container.SetImageIn(in.get()));
  EXPECT_EQ(static_cast<IPG_ARITHMETIC1*>(container.GetIPGClassAddress())->GetImaIn(), in.get());
  EXPECT_FALSE(container.SetSecondImageIn(second.get()));
  EXPECT_EQ(container.GetSecondImageIn(), second.get());

  IPG_ARITHMETIC2 two(in.get(), in.get());
  IPG_STATISTIC2 similarity(in.get(), in.get());
  IPG_FFT_TWO_INPUTS fourier(in.get(), in.get(), nullptr);
  for (auto [source, type] : {std::pair<void*, int>{&similarity, kIpgClassStatistic2}, {&two, kIpgClassArithmetic2},
                              {&fourier, kIpgClassFftTwoInputs}}) {
    ASSERT_TRUE(container.SetIpgContainer(source, type));
    EXPECT_TRUE(container.SetSecondImageIn(second.get())) << type;
    EXPECT_TRUE(container.SetImageIn(in.get())) << type;
  }
  EXPECT_EQ(static_cast<IPG_FFT_TWO_INPUTS*>(container.GetIPGClassAddress())->GetInSecond(), second.get());

  // The ROI is kept as a deep copy, handed over at Apply().
  EXPECT_TRUE(container.SetImageROI(roi.get()));
  ASSERT_NE(container.GetBinaryRoi(), nullptr);
  EXPECT_NE(container.GetBinaryRoi(), roi.get());
  ExpectSameImage(*container.GetBinaryRoi(), *roi);
  EXPECT_TRUE(container.SetImageROI(nullptr));
  EXPECT_EQ(container.GetBinaryRoi(), nullptr);
}

TEST(Container, EveryHeldClassRunsAsItsOperatorWithMode302)
{
  MessageCapture capture;
  auto in = Ramp();
  auto second = OtherRamp();
  auto roi = LeftHalfRoi();

  IPG_REGION region(in.get());
  region.SetSeed(1, 1); // value 21, inside the range
  region.SetMinGL(10);
  region.SetMaxGL(45);
  ExpectContainerRunsLikeTheOperator(kIpgClassRegion, region, 900, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassRegion, region, 900, in.get(), nullptr, roi.get());

  IPG_GENERIC_PROCESSING generic(in.get());
  generic.SetSeuilMin(20);
  generic.SetSeuilMax(40);
  ExpectContainerRunsLikeTheOperator(kIpgClassGenericProcessing, generic, 401, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassGenericProcessing, generic, 403, in.get(), nullptr, roi.get());

  IPG_STATISTIC1 statistics(in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassStatistic1, statistics, 0, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassStatistic1, statistics, 12, in.get(), nullptr, roi.get());

  IPG_STATISTIC2 similarity(in.get(), second.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassStatistic2, similarity, 100, in.get(), second.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassStatistic2, similarity, 102, in.get(), second.get(), roi.get());

  IPG_ARITHMETIC1 arithmetic(in.get());
  arithmetic.SetVariable(2.5f);
  ExpectContainerRunsLikeTheOperator(kIpgClassArithmetic1, arithmetic, 201, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassArithmetic1, arithmetic, 204, in.get(), nullptr, roi.get());

  IPG_ARITHMETIC2 twoImages(in.get(), second.get());
  twoImages.SetThresholdMin(0);
  twoImages.SetThresholdMax(30);
  ExpectContainerRunsLikeTheOperator(kIpgClassArithmetic2, twoImages, 303, in.get(), second.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassArithmetic2, twoImages, 305, in.get(), second.get(), roi.get());

  IPG_FILTER_PROCESSING filter(in.get());
  filter.SetLaplacianGaussianSize(5);
  filter.SetLaplacianGaussianSigma(0.8);
  filter.setWaitbarVisible(false);
  ExpectContainerRunsLikeTheOperator(kIpgClassFilterProcessing, filter, 507, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassFilterProcessing, filter, 515, in.get(), nullptr, roi.get());

  IPG_TRANSFORMATION transformation(in.get());
  transformation.SetenX(2.0);
  transformation.SetenY(1.0);
  transformation.SetAngle(0.4);
  ExpectContainerRunsLikeTheOperator(kIpgClassTransformation, transformation, 600, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassTransformation, transformation, 601, in.get(), nullptr, roi.get());

  IPG_MORPHO_PROCESSING morphology(in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassMorphoProcessing, morphology, 1100, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassMorphoProcessing, morphology, 1103, in.get(), nullptr, roi.get());

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

  auto dynamicOut = Ramp();
  IPG_CHANGE_DYNAMIC dynamic(in.get(), dynamicOut.get());
  dynamic.SetLimitInf(10.0f);
  dynamic.SetLimitSup(30.0f);
  ExpectContainerRunsLikeTheOperator(kIpgClassChangeDynamic, dynamic, 301, in.get());
  ExpectContainerRunsLikeTheOperator(kIpgClassChangeDynamic, dynamic, 300, in.get(), nullptr, roi.get());
}

TEST(Container, ApplySetsMode302AndArithmeticPrecisionButKeepsTheDynamicChangeMode)
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

  // Other classes keep their own precision.
  IPG_GENERIC_PROCESSING generic(in.get());
  ASSERT_TRUE(container.SetIpgContainer(&generic, kIpgClassGenericProcessing));
  static_cast<IPG_GENERIC_PROCESSING*>(container.GetIPGClassAddress())->SetTools(400);
  container.SetImageIn(in.get());
  ASSERT_TRUE(container.Apply());
  const Image binary(container.GetResult());
  EXPECT_EQ(binary->Data->GetPrecision(), 1);
}

TEST(Container, FirstApplyWritesIntoACopyOfTheRoiElseOfTheInput)
{
  auto in = Ramp();
  auto roi = LeftHalfRoi();

  IPG_CONTAINER fromInput;
  fromInput.SetImageIn(in.get());
  EXPECT_FALSE(fromInput.Apply()); // no operator, but the result image exists now
  Image result(fromInput.GetResult());
  ASSERT_NE(result, nullptr);
  ExpectSameImage(*result, *in);
  result->Data->SetValue(0, 0, 999); // each call hands out a new copy
  result.reset(fromInput.GetResult());
  EXPECT_EQ(result->Data->GetValue(0, 0), in->Data->GetValue(0, 0));

  IPG_CONTAINER fromRoi;
  fromRoi.SetImageIn(in.get());
  fromRoi.SetImageROI(roi.get());
  EXPECT_FALSE(fromRoi.Apply());
  result.reset(fromRoi.GetResult());
  ExpectSameImage(*result, *roi);

  // An existing result image is kept: a later input does not replace it.
  auto other = OtherRamp();
  fromRoi.SetImageIn(other.get());
  fromRoi.Apply();
  result.reset(fromRoi.GetResult());
  ExpectSameImage(*result, *roi);
}

TEST(Container, CopyFromAPointerOwnsItsOwnOperatorRoiAndResult)
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
}

// Run under the sanitizer build: every image and operator the container made
// is freed, and the held operator never points at a freed image.
TEST(Container, FillCopyRefillAndDestroyLeaveNothingBehind)
{
  auto in = Ramp();
  auto roi = LeftHalfRoi();
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

  auto copy = std::make_unique<IPG_CONTAINER>(container.get());
  auto* heldCopy = static_cast<IPG_CHANGE_DYNAMIC*>(copy->GetIPGClassAddress());
  ASSERT_NE(heldCopy->GetImaOut(), nullptr);
  const Image copyResult(copy->GetResult());
  ExpectSameImage(*heldCopy->GetImaOut(), *copyResult); // a live image, not the freed first copy
  container.reset();
  ASSERT_TRUE(copy->Apply());

  ASSERT_TRUE(copy->SetIpgContainer(&morphology, kIpgClassMorphoProcessing));
  copy->SetImageIn(in.get());
  copy->SetImageROI(nullptr);
  EXPECT_EQ(static_cast<IPG_MORPHO_PROCESSING*>(copy->GetIPGClassAddress())->GetRoi(), nullptr);
  static_cast<IPG_MORPHO_PROCESSING*>(copy->GetIPGClassAddress())->SetTools(1101);
  EXPECT_TRUE(copy->Apply());
  copy->DeleteIpgContainer();
  copy->DeleteIpgContainer();
  EXPECT_EQ(copy->GetIPGClassAddress(), nullptr);
  copy.reset();
}

} // namespace
