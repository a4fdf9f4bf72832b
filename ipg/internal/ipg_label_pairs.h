// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The equivalence pairs a labelling scan records, packed as (a << 16) | b with
// a < b 16-bit labels, kept sorted and unique on demand (compacted as they
// grow, so that a scan repeating pairs along seams stays small).
class Ipg_LabelPairs {
public:
  void Add(unsigned a, unsigned b);
  // The pairs recorded so far, sorted, each once.
  const std::vector<std::uint32_t>& Sorted();

private:
  static constexpr std::size_t kMinCompact = 1 << 20;
  void Compact();
  std::vector<std::uint32_t> Keys;
  std::uint32_t Last = UINT32_MAX;
  std::size_t CompactAt = kMinCompact;
};
