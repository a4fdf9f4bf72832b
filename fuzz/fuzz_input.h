// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/ui/ipg_message.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// Reads the fuzzer's bytes as a stream of small decisions. Past the end every
// read gives 0, so that a short input still describes a complete run.
class FuzzInput {
public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : Data(data), Size(size) {}

  std::uint8_t Byte() { return Pos < Size ? Data[Pos++] : 0; }

  std::uint32_t U32()
  {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
      v = (v << 8) | Byte();
    return v;
  }
  std::int32_t I32() { return static_cast<std::int32_t>(U32()); }

  double Double()
  {
    std::uint64_t bits = (std::uint64_t{U32()} << 32) | U32();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }

  // An integer in [lo, hi] (hi - lo below 256).
  int Range(int lo, int hi) { return lo + Byte() % (hi - lo + 1); }
  bool Chance(int outOf) { return Byte() % outOf == 0; }

  template <typename T, std::size_t N>
  const T& Pick(const T (&values)[N])
  {
    return values[Byte() % N];
  }

  bool Empty() const { return Pos >= Size; }

private:
  const std::uint8_t* Data;
  std::size_t Size;
  std::size_t Pos = 0;
};

// Operator messages are expected on bad input; a fuzzer that printed each one
// would spend its time writing to the terminal.
inline void Fuzz_SilenceMessages()
{
  Ipg_SetMessageHandler([](const std::string&, const std::string&) {});
}
