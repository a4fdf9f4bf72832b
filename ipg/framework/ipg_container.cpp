// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/ipg_container.h"

#include "dcm/dcm_struct.h"
#include "ipg/arithmetic/ipg_arithmetic1.h"
#include "ipg/arithmetic/ipg_arithmetic2.h"
#include "ipg/arithmetic/ipg_change_dynamic.h"
#include "ipg/filtering/ipg_filter_processing.h"
#include "ipg/filtering/ipg_generic_processing.h"
#include "ipg/filtering/ipg_morpho_processing.h"
#include "ipg/frequency/ipg_fft_one_input.h"
#include "ipg/frequency/ipg_fft_two_inputs.h"
#include "ipg/frequency/ipg_transformation.h"
#include "ipg/internal/ipg_guard.h"
#include "ipg/measurement/ipg_statistic1.h"
#include "ipg/measurement/ipg_statistic2.h"
#include "ipg/segmentation/ipg_convert_binary_to_object.h"
#include "ipg/segmentation/ipg_region.h"

#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

namespace {

constexpr short kContainerMode = 302;          // re-measure only: outputs are never clamped or re-scaled
constexpr short kArithmeticPrecision = 10000;  // real-valued arithmetic results keep four decimals

// What the container does with the operator of one class-type code.
template <int Code, class Op>
struct Held {
  using Class = Op;
  static constexpr bool HasOutput = Code != kIpgClassStatistic1 && Code != kIpgClassStatistic2;
  static constexpr bool KeepsNumericalResult = !HasOutput;
  static constexpr bool TakesSecondInput = Code == kIpgClassStatistic2 || Code == kIpgClassArithmetic2 ||
                                           Code == kIpgClassFftTwoInputs || Code == kIpgClassConvertBinaryToObject;
  static constexpr bool KeepsOwnMode = Code == kIpgClassConvertBinaryToObject || Code == kIpgClassChangeDynamic;
  static constexpr bool UsesArithmeticPrecision = Code == kIpgClassArithmetic1 || Code == kIpgClassArithmetic2;
  static constexpr bool OutputIsSecondInput = Code == kIpgClassConvertBinaryToObject;
};

// Calls action(Held<code, class>{}) for the class of `type` and returns its
// result; false for a code without a class (20000, 20012, outside 20000-20014).
template <typename Action>
bool ForHeldClass(int type, Action&& action)
{
  switch (type) {
  case kIpgClassRegion: return action(Held<kIpgClassRegion, IPG_REGION>{});
  case kIpgClassGenericProcessing: return action(Held<kIpgClassGenericProcessing, IPG_GENERIC_PROCESSING>{});
  case kIpgClassStatistic1: return action(Held<kIpgClassStatistic1, IPG_STATISTIC1>{});
  case kIpgClassStatistic2: return action(Held<kIpgClassStatistic2, IPG_STATISTIC2>{});
  case kIpgClassArithmetic1: return action(Held<kIpgClassArithmetic1, IPG_ARITHMETIC1>{});
  case kIpgClassArithmetic2: return action(Held<kIpgClassArithmetic2, IPG_ARITHMETIC2>{});
  case kIpgClassFilterProcessing: return action(Held<kIpgClassFilterProcessing, IPG_FILTER_PROCESSING>{});
  case kIpgClassTransformation: return action(Held<kIpgClassTransformation, IPG_TRANSFORMATION>{});
  case kIpgClassMorphoProcessing: return action(Held<kIpgClassMorphoProcessing, IPG_MORPHO_PROCESSING>{});
  case kIpgClassFftOneInput: return action(Held<kIpgClassFftOneInput, IPG_FFT_ONE_INPUT>{});
  case kIpgClassFftTwoInputs: return action(Held<kIpgClassFftTwoInputs, IPG_FFT_TWO_INPUTS>{});
  case kIpgClassConvertBinaryToObject:
    return action(Held<kIpgClassConvertBinaryToObject, IPG_CONVERT_BINARY_TO_OBJECT>{});
  case kIpgClassChangeDynamic: return action(Held<kIpgClassChangeDynamic, IPG_CHANGE_DYNAMIC>{});
  default: return false;
  }
}

std::unique_ptr<DCM_STRUCT> DeepCopy(DCM_STRUCT* image)
{
  return image != nullptr ? std::make_unique<DCM_STRUCT>(*image, true) : nullptr;
}

// The double result as a float; beyond the float range it becomes an infinity
// of its sign, as the hardware conversion gives, instead of an undefined cast.
float NarrowToFloat(double value)
{
  if (std::isfinite(value) && std::fabs(value) > FLT_MAX)
    return value > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

} // namespace

std::span<const IPG_HELD_CLASS> Ipg_HeldClasses()
{
  static const std::vector<IPG_HELD_CLASS> classes = [] {
    std::vector<IPG_HELD_CLASS> list;
    for (int type = kIpgClassEmpty; type <= kIpgClassChangeDynamic; ++type)
      ForHeldClass(type, [&](auto held) {
        list.push_back({type, decltype(held)::Class::ClassInfo().Name});
        return true;
      });
    return list;
  }();
  return classes;
}

IPG_ONE_INPUT_NO_OUTPUT* Ipg_HeldOperator(void* op, int type)
{
  IPG_ONE_INPUT_NO_OUTPUT* base = nullptr;
  ForHeldClass(type, [&](auto held) {
    base = static_cast<typename decltype(held)::Class*>(op);
    return true;
  });
  return op != nullptr ? base : nullptr;
}

IPG_CONTAINER::IPG_CONTAINER() = default;

IPG_CONTAINER::IPG_CONTAINER(IPG_CONTAINER* source)
{
  if (source == nullptr)
    return;
  SetIpgContainer(source->Operator, source->ClassType);
  ReplaceOwnedImage(RoiImage, source->RoiImage.get());
  ReplaceOwnedImage(ResultImage, source->ResultImage.get());
  ImageIn = source->ImageIn;
  SecondImageIn = source->SecondImageIn;
}

IPG_CONTAINER::~IPG_CONTAINER()
{
  DeleteIpgContainer();
}

bool IPG_CONTAINER::SetIpgContainer(void* op, int type)
{
  if (op == nullptr)
    return false;
  // The temporary is copied before the held operator is destroyed, so that a
  // host may refill the container from the operator it holds.
  void* temporary = nullptr;
  ForHeldClass(type, [&](auto held) {
    using Op = typename decltype(held)::Class;
    temporary = new Op(*static_cast<Op*>(op));
    return true;
  });
  DeleteIpgContainer();
  Operator = nullptr;
  ClassType = type;
  if (temporary == nullptr)
    return false;

  return ForHeldClass(type, [&](auto held) {
    using Op = typename decltype(held)::Class;
    const std::unique_ptr<Op> temp(static_cast<Op*>(temporary));
    auto own = std::make_unique<Op>(*temp);
    // The images are those that the class's copy constructor carried over.
    if constexpr (decltype(held)::HasOutput) {
      if (temp->GetImaOut() != nullptr)
        ReplaceOwnedImage(ResultImage, temp->GetImaOut());
    }
    if (temp->GetRoi() != nullptr)
      ReplaceOwnedImage(RoiImage, temp->GetRoi());
    own->SetRoi(RoiImage.get());
    if constexpr (decltype(held)::HasOutput)
      own->SetImaOut(ResultImage.get());
    ImageIn = temp->GetImaIn();
    own->SetImaIn(ImageIn);
    Operator = own.release();
    return true;
  });
}

bool IPG_CONTAINER::SetImageIn(DCM_STRUCT* image)
{
  ImageIn = image;
  if (Operator == nullptr)
    return false;
  return ForHeldClass(ClassType, [&](auto held) {
    using Op = typename decltype(held)::Class;
    static_cast<Op*>(Operator)->SetImaIn(image);
    return true;
  });
}

bool IPG_CONTAINER::SetSecondImageIn(DCM_STRUCT* image)
{
  SecondImageIn = image;
  if (Operator == nullptr)
    return false;
  return ForHeldClass(ClassType, [&](auto held) {
    using Op = typename decltype(held)::Class;
    if constexpr (decltype(held)::TakesSecondInput) {
      static_cast<Op*>(Operator)->SetInSecond(image);
      return true;
    }
    return false;
  });
}

bool IPG_CONTAINER::SetImageROI(DCM_STRUCT* image)
{
  ReplaceOwnedImage(RoiImage, image);
  return true;
}

bool IPG_CONTAINER::Apply()
{
  // The copies of the input and the ROI fail as the held operator's own
  // allocations do.
  return Ipg_FailOnAllocation([this]() -> bool {
    // Checked before the result image is made from the ROI: the held operator
    // would otherwise receive an output of the ROI's size.
    if (!Ipg_RoiFitsImage(ImageIn, RoiImage.get(), "IPG_CONTAINER"))
      return false;
    if (ResultImage == nullptr)
      ResultImage = DeepCopy(RoiImage != nullptr ? RoiImage.get() : ImageIn);
    if (Operator == nullptr)
      return false;

    return ForHeldClass(ClassType, [&](auto held) {
      using Traits = decltype(held);
      auto& op = *static_cast<typename Traits::Class*>(Operator);
      if constexpr (Traits::OutputIsSecondInput)
        ReplaceOwnedImage(ResultImage, SecondImageIn);
      if constexpr (!Traits::KeepsOwnMode)
        op.SetMode(kContainerMode);
      op.SetImaIn(ImageIn);
      if constexpr (Traits::TakesSecondInput)
        op.SetInSecond(SecondImageIn);
      op.SetRoi(RoiImage.get());
      if constexpr (Traits::HasOutput) {
        if (Traits::UsesArithmeticPrecision && ResultImage != nullptr)
          ResultImage->Data->SetPrecision(kArithmeticPrecision);
        op.SetImaOut(ResultImage.get());
      }
      const bool applied = static_cast<bool>(op.Apply());
      if constexpr (Traits::KeepsNumericalResult)
        NumericalResult = NarrowToFloat(op.GetResult());
      return applied;
    });
  }) != 0;
}

DCM_STRUCT* IPG_CONTAINER::GetResult()
{
  return DeepCopy(ResultImage.get()).release();
}

void IPG_CONTAINER::DeleteIpgContainer()
{
  if (Operator == nullptr || ClassType < kIpgClassEmpty || ClassType > kIpgClassChangeDynamic)
    return;
  ForHeldClass(ClassType, [&](auto held) {
    delete static_cast<typename decltype(held)::Class*>(Operator);
    return true;
  });
  // Cleared here so that a second call cannot free the operator twice.
  Operator = nullptr;
}

// Replaces an owned image by a deep copy of source (null for null).
void IPG_CONTAINER::ReplaceOwnedImage(std::unique_ptr<DCM_STRUCT>& owned, DCM_STRUCT* source)
{
  std::unique_ptr<DCM_STRUCT> copy = DeepCopy(source);
  RepointOperator(owned.get(), copy.get());
  owned = std::move(copy);
}

// The held operator never keeps a pointer to an image the container has freed:
// it follows the replacement, which it would receive at the next Apply() anyway.
void IPG_CONTAINER::RepointOperator(DCM_STRUCT* old, DCM_STRUCT* now)
{
  if (Operator == nullptr || old == nullptr)
    return;
  ForHeldClass(ClassType, [&](auto held) {
    using Traits = decltype(held);
    auto& op = *static_cast<typename Traits::Class*>(Operator);
    if (op.GetRoi() == old)
      op.SetRoi(now);
    if constexpr (Traits::HasOutput) {
      if (op.GetImaOut() == old)
        op.SetImaOut(now);
    }
    return true;
  });
}
