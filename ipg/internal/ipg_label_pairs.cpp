// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_label_pairs.h"

#include <algorithm>

void Ipg_LabelPairs::Add(unsigned a, unsigned b)
{
  const std::uint32_t key = (a << 16) | b;
  if (key == Last)
    return; // neighbouring pixels repeat the same pair along a seam
  Last = key;
  Keys.push_back(key);
  if (Keys.size() >= CompactAt) {
    Compact();
    CompactAt = std::max<std::size_t>(2 * Keys.size(), kMinCompact);
  }
}

const std::vector<std::uint32_t>& Ipg_LabelPairs::Sorted()
{
  Compact();
  return Keys;
}

void Ipg_LabelPairs::Compact()
{
  std::sort(Keys.begin(), Keys.end());
  Keys.erase(std::unique(Keys.begin(), Keys.end()), Keys.end());
}
