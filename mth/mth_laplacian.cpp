// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_laplacian.h"

#include "mth/mth_matrix.h"

#include <algorithm>

bool Mth_ComputeLaplacien(const MTH_MATRIX* in, MTH_MATRIX* out, int neighbourhood)
{
  if (in == nullptr || out == nullptr || in->IsEmpty())
    return false;
  const int rows = in->GetNbRows();
  const int cols = in->GetNbCols();
  auto at = [&](int i, int j) {
    return in->Get(std::clamp(i, 0, rows - 1), std::clamp(j, 0, cols - 1));
  };
  MTH_MATRIX result(rows, cols, in->GetKind());
  for (int i = 0; i < rows; ++i)
    for (int j = 0; j < cols; ++j) {
      double sum = at(i - 1, j) + at(i + 1, j) + at(i, j - 1) + at(i, j + 1);
      int count = 4;
      if (neighbourhood == 8) {
        sum += at(i - 1, j - 1) + at(i - 1, j + 1) + at(i + 1, j - 1) + at(i + 1, j + 1);
        count = 8;
      }
      result.Set(i, j, sum - count * at(i, j));
    }
  *out = result;
  return true;
}
