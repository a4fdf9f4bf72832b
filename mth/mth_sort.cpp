// SPDX-License-Identifier: Apache-2.0
#include "mth/mth_sort.h"

#include "mth/mth_matrix.h"

#include <algorithm>
#include <numeric>
#include <vector>

void Mth_Sort(int* values, int n)
{
  if (values != nullptr && n > 1)
    std::sort(values, values + n);
}

void Mth_Sort(double* values, int n)
{
  if (values != nullptr && n > 1)
    std::sort(values, values + n);
}

void Mth_SortVector(double* values, int* index, int n)
{
  if (values == nullptr || n < 2)
    return;
  std::vector<int> order(static_cast<std::size_t>(n));
  std::iota(order.begin(), order.end(), 0);
  std::stable_sort(order.begin(), order.end(), [values](int a, int b) { return values[a] < values[b]; });
  std::vector<double> sortedValues(order.size());
  std::vector<int> sortedIndex(order.size());
  for (std::size_t k = 0; k < order.size(); ++k) {
    sortedValues[k] = values[order[k]];
    if (index != nullptr)
      sortedIndex[k] = index[order[k]];
  }
  std::copy(sortedValues.begin(), sortedValues.end(), values);
  if (index != nullptr)
    std::copy(sortedIndex.begin(), sortedIndex.end(), index);
}

double Mth_Median(const MTH_MATRIX* m)
{
  if (m == nullptr || m->IsEmpty())
    return 0.0;
  const double* data = m->GetData();
  std::vector<double> v(data, data + static_cast<std::size_t>(m->GetNbRows()) * m->GetNbCols());
  const std::size_t mid = v.size() / 2;
  std::nth_element(v.begin(), v.begin() + mid, v.end());
  if (v.size() % 2 == 1)
    return v[mid];
  const double upper = v[mid];
  const double lower = *std::max_element(v.begin(), v.begin() + mid);
  return (lower + upper) / 2.0;
}
