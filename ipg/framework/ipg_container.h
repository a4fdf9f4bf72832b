// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include <span>

class DCM_STRUCT;
class IPG_ONE_INPUT_NO_OUTPUT;

// Class-type codes of the operator that an IPG_CONTAINER holds.
constexpr int kIpgClassEmpty = 20000;
constexpr int kIpgClassRegion = 20001;                // IPG_REGION
constexpr int kIpgClassGenericProcessing = 20002;     // IPG_GENERIC_PROCESSING
constexpr int kIpgClassStatistic1 = 20003;            // IPG_STATISTIC1
constexpr int kIpgClassStatistic2 = 20004;            // IPG_STATISTIC2
constexpr int kIpgClassArithmetic1 = 20005;           // IPG_ARITHMETIC1
constexpr int kIpgClassArithmetic2 = 20006;           // IPG_ARITHMETIC2
constexpr int kIpgClassFilterProcessing = 20007;      // IPG_FILTER_PROCESSING
constexpr int kIpgClassTransformation = 20008;        // IPG_TRANSFORMATION
constexpr int kIpgClassMorphoProcessing = 20009;      // IPG_MORPHO_PROCESSING
constexpr int kIpgClassFftOneInput = 20010;           // IPG_FFT_ONE_INPUT
constexpr int kIpgClassFftTwoInputs = 20011;          // IPG_FFT_TWO_INPUTS
constexpr int kIpgClassUnused = 20012;                // no class
constexpr int kIpgClassConvertBinaryToObject = 20013; // IPG_CONVERT_BINARY_TO_OBJECT
constexpr int kIpgClassChangeDynamic = 20014;         // IPG_CHANGE_DYNAMIC

// One class that IPG_CONTAINER holds: its class-type code and its name.
struct IPG_HELD_CLASS {
  int ClassType;
  const char* Name;
};

// Every class that IPG_CONTAINER holds, by increasing class-type code.
std::span<const IPG_HELD_CLASS> Ipg_HeldClasses();
// The operator at op, of the class of `type`, seen through the root base class
// that carries the code, the mode and the result; null for a code without a class.
IPG_ONE_INPUT_NO_OUTPUT* Ipg_HeldOperator(void* op, int type);

// Holds any one operator behind a single interface, so that a host can keep,
// copy, re-run and delete operators without knowing their classes. The
// operators have no virtual operations: every forwarding is a switch over the
// class-type code.
//
// The container owns its operator (a copy of the one it was filled from), a
// deep copy of the ROI image and the result image; it never owns the input
// images. Apply() runs the operator with Mode 302 (extremes only, no clamping or
// re-scaling) except for IPG_CONVERT_BINARY_TO_OBJECT and IPG_CHANGE_DYNAMIC,
// which keep their own. The container shows no message of its own.
class IPG_CONTAINER {
public:
  IPG_CONTAINER();
  // Takes the source's operator through SetIpgContainer, deep copies of its ROI
  // and result images and its input pointers as they are. A null source gives an
  // empty container.
  IPG_CONTAINER(IPG_CONTAINER* source);
  IPG_CONTAINER(const IPG_CONTAINER&) = delete;
  IPG_CONTAINER& operator=(const IPG_CONTAINER&) = delete;
  ~IPG_CONTAINER();

  // Drops the held operator and holds a copy of *op, an operator of the class of
  // `type`. The copy goes through a temporary made with the class's copy
  // constructor, so it carries only what that constructor carries (for most
  // classes no image and Tools 0: the host sets them again through the
  // container). False for a null op (nothing changes) and for a code without a
  // class (the code stays stored, no operator is held).
  bool SetIpgContainer(void* op, int type);

  int GetIpgClassType() const { return ClassType; }
  void* GetIPGClassAddress() const { return Operator; }
  DCM_STRUCT* GetBinaryRoi() const { return RoiImage.get(); }
  DCM_STRUCT* GetInImageAddress() const { return ImageIn; }
  DCM_STRUCT* GetSecondImageIn() const { return SecondImageIn; }

  // Store the pointer (not owned); true when an operator is held that takes it.
  bool SetImageIn(DCM_STRUCT* image);
  bool SetSecondImageIn(DCM_STRUCT* image);
  // Keeps a deep copy (null for null); the operator receives it at Apply().
  bool SetImageROI(DCM_STRUCT* image);

  bool Apply();
  // A new deep copy of the result image, owned by the caller; null when none.
  DCM_STRUCT* GetResult();
  // Result of the last Apply() of IPG_STATISTIC1 or IPG_STATISTIC2, as a float.
  float GetNumericalResult() const { return NumericalResult; }

  // Destroys the held operator, if any.
  void DeleteIpgContainer();

private:
  void ReplaceOwnedImage(std::unique_ptr<DCM_STRUCT>& owned, DCM_STRUCT* source);
  void RepointOperator(DCM_STRUCT* old, DCM_STRUCT* now);

  int ClassType = kIpgClassEmpty;
  void* Operator = nullptr;
  std::unique_ptr<DCM_STRUCT> RoiImage;
  std::unique_ptr<DCM_STRUCT> ResultImage;
  DCM_STRUCT* ImageIn = nullptr;
  DCM_STRUCT* SecondImageIn = nullptr;
  float NumericalResult = 0.0f;
};
