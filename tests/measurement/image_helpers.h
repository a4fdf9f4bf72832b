#pragma once

#include "dcm/dcm_struct.h"

#include <memory>
#include <vector>

// A cols x rows image holding `values` row-major, extremes recomputed.
inline std::unique_ptr<DCM_STRUCT> MakeImage(unsigned cols, unsigned rows, const std::vector<int>& values)
{
  auto image = std::make_unique<DCM_STRUCT>(cols, rows);
  int* pixels = image->Data->GetIDataAddress();
  for (std::size_t k = 0; k < values.size() && k < image->Data->GetSize(); ++k)
    pixels[k] = values[k];
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}
