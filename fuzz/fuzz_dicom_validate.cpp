// SPDX-License-Identifier: Apache-2.0
// The DICOM reader's validation: every check made before a codec runs, on a
// whole file held in memory. Nothing is decoded, so runs are fast.
#include "dcm/dcm_io.h"
#include "fuzz/fuzz_dicom.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
  std::string error;
  Dcm_ValidateBuffer(data, size, &error, Fuzz_DicomFrame(data, size));
  return 0;
}
