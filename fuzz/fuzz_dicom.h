// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// The frame a DICOM target asks for. The 128-byte preamble is never parsed, so
// its first byte picks the frame of a well-formed file (0 for most files, whose
// preamble is zero) without disturbing what the reader sees.
inline unsigned Fuzz_DicomFrame(const std::uint8_t* data, std::size_t size)
{
  if (size < 132 || std::memcmp(data + 128, "DICM", 4) != 0)
    return 0;
  return data[0] % 4;
}
