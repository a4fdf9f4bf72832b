// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_summed_area.h"

#include <algorithm>

Ipg_Rect Ipg_ClippedWindow(int col, int row, int half, int cols, int rows)
{
  return {std::max(0, col - half), std::max(0, row - half), std::min(cols, col + half + 1),
          std::min(rows, row + half + 1)};
}
