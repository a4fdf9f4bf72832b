// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_two_inputs_no_output.h"

#include <array>
#include <memory>

// Similarity of two images, left in Result: the Euclidean distance of the grey
// levels (102, the default), their mutual information (100) or the correlation
// ratio of the second image on the first (101). The first image is ImaIn, the
// second InSecond. No message is ever shown.
//
// Levels: codes 100 and 101 number the grey levels present in each image 0, 1,
// 2, ... in increasing order (one bin per distinct level, no fixed bin count),
// over the range [GetMin(), GetMax()] stored in the image. A flat range
// (max <= min) gives Result -1.0. A pixel outside its image's stored range
// (stale extremes) is left out of the pairs.
// Pairing: with C and R the smaller column and row counts, element
// col * rows_k + row of each image's row-major array is taken, for col < C and
// row < R: every pixel once when the sizes are equal.
class IPG_STATISTIC2 : public IPG_TWO_INPUTS_NO_OUTPUT {
public:
  // Indices of the mutual-information record (ten entries, five filled).
  enum MutualInformationEntry {
    kMutualInformation = 0,
    kNormalisedMutualInformation = 1,
    kJointEntropy = 2,
    kFirstEntropy = 3,
    kSecondEntropy = 4,
    kMutualInformationRecordSize = 10
  };

  IPG_STATISTIC2(DCM_STRUCT* first, DCM_STRUCT* second);
  IPG_STATISTIC2(DCM_STRUCT* first, DCM_STRUCT* second, DCM_STRUCT* roi);
  // Copies its own level only, the mutual-information record (deep); the base
  // fields take their defaults: Tools 0, no images, as for every operator.
  IPG_STATISTIC2(const IPG_STATISTIC2& source);
  IPG_STATISTIC2& operator=(const IPG_STATISTIC2&) = delete;
  ~IPG_STATISTIC2() = default;

  // Tools 102.
  void SetDefaultParameters();
  // True for codes 100, 101 and 102 whatever the method found; false otherwise.
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_STATISTIC2>& ClassInfo();

  // 100: I = H1 + H2 - H12 in natural logarithms, no ROI, every pixel.
  bool ComputeMutualInformation();
  // 101: 1 - W / V on the level numbers; only pairs whose two values are below
  // 16777216 count, no ROI. Each image's levels are numbered over its own
  // pixels below 16777216. A second image whose paired level numbers have no
  // variance (V = 0) gives -1.0 instead of a division by zero.
  bool ComputeCorrelationRatio();
  // 102: sqrt of the summed squared differences of the pairs whose values are
  // both at most 16777216 (and inside the ROI when one is set). Different
  // sizes leave Result unchanged and return false.
  bool ComputeLeastSquared();

  // The record of the last mutual information (kMutualInformationRecordSize
  // doubles, entries 5 to 9 zero), or null before the first one.
  const double* GetMutualInformationRecord() const { return Record ? Record->data() : nullptr; }

private:
  using MutualInformationRecord = std::array<double, kMutualInformationRecordSize>;
  std::unique_ptr<MutualInformationRecord> Record;
};
