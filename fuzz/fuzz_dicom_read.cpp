// SPDX-License-Identifier: Apache-2.0
// The whole DICOM read, decoders included, with decoding isolated in a child
// process: a codec fault must come back as an error, never end this process,
// and what the reader does around the codec must stay in bounds.
#include "dcm/dcm_io.h"
#include "fuzz/fuzz_dicom.h"

#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
  Dcm_SetIsolatedDecoding(true);
  // Well inside libFuzzer's own timeout: a codec grinding on a broken stream
  // (JPEG-LS can spend seconds on a few kilobytes) must be stopped by the wall,
  // which is what this target checks.
  DCM_READ_LIMITS limits = Dcm_GetReadLimits();
  limits.MaxSeconds = 2.0;
  Dcm_SetReadLimits(limits);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  std::string error;
  auto image = Dcm_ReadBuffer(data, size, &error, Fuzz_DicomFrame(data, size));
  if (image != nullptr && image->GetNbOfCols() * image->GetNbOfRows() != image->Data->GetSize())
    __builtin_trap(); // the pixel store must match the size it reports
  return 0;
}
