// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"
#include "ipg/framework/ipg_one_input_no_output.h"

#include <cstddef>
#include <memory>
#include <vector>

// Histogram of integer grey levels, over every pixel of the input image (no ROI)
// or over a list of integers given at construction. One bin per level from the
// minimum to the maximum value; bin i counts the values equal to minimum + i.
// The mark value 16777217 is never counted. 1400 is the only operation code;
// no message is ever shown.
class IPG_HISTO : public IPG_ONE_INPUT_NO_OUTPUT {
public:
  IPG_HISTO();
  explicit IPG_HISTO(DCM_STRUCT* in);
  // Range rule of list-built histograms: both ends start at 0, so the range always
  // contains 0 ({5, 7, 9} gives 0..9). Hosts size their tables on it.
  explicit IPG_HISTO(std::vector<int> values);
  // Copies the bins, their count, the fullest index and the range; not the values.
  IPG_HISTO(const IPG_HISTO& source);
  IPG_HISTO& operator=(const IPG_HISTO&) = delete;
  ~IPG_HISTO();

  // ComputeHisto() when Tools is 1400, else false.
  bool Apply();
  // Its operation codes and settable parameters, read by Apply() and by hosts.
  static const IPG_CLASS_INFO<IPG_HISTO>& ClassInfo();
  // Counts the values. An image-built histogram takes the image's recomputed
  // extremes at its first computation and keeps that range afterwards.
  bool ComputeHisto();

  // Count of bin i; -1 when i < 0 or i > number of bins. i equal to the number of
  // bins is admitted (callers loop with <=) and reads as an empty bin: 0.
  int GetHistoValue(int i);
  // Count of grey level g; -1 outside [minimum, maximum].
  int GetHistoValueFromGreyLevel(int g) const;
  // Count of the fullest bin (0 before any computation).
  int GetMax() const;

  int* GetHistoAddress() const { return Histo.get(); }
  int GetNbOfValues() const { return NbOfValues; }
  // An index into the bins, not a grey level. Ties keep the bin that reached the
  // top count first in value order.
  int GetCurrentMaxIndice() const { return CurrentMaxIndice; }
  int GetMinHisto() const { return MinHisto; }
  int GetMaxHisto() const { return MaxHisto; }

  // Writes "min = %d \n", "max = %d \n", then one count per line, bin 0 first.
  // A path that cannot be opened is silently skipped.
  void Save(const char* path) const;

private:
  const int* Values = nullptr;          // the counted values: the image's pixels or OwnValues
  std::size_t NbValues = 0;
  std::unique_ptr<int[]> OwnValues;     // list-built values; an image's pixels are never ours
  std::unique_ptr<int[]> Histo;
  int NbOfValues = 0;
  int CurrentMaxIndice = 0;
  int MinHisto = -1;
  int MaxHisto = -1;
};
