#pragma once

#include "dcm/dcm_struct.h"

#include <memory>
#include <string>
#include <vector>

// Test images drawn as text: one string per row, 'X' (or '#') a set pixel.
inline std::unique_ptr<DCM_STRUCT> MaskFromText(const std::vector<std::string>& rows, int set = 16777217,
                                                int clear = 0)
{
  auto image = std::make_unique<DCM_STRUCT>(static_cast<unsigned>(rows.empty() ? 0 : rows[0].size()),
                                            static_cast<unsigned>(rows.size()));
  for (unsigned r = 0; r < rows.size(); ++r)
    for (unsigned c = 0; c < rows[r].size(); ++c)
      image->Data->SetValue(c, r, rows[r][c] == 'X' || rows[r][c] == '#' ? set : clear);
  image->Data->SetMin();
  image->Data->SetMax();
  return image;
}

// The image back as text ('X' where the pixel equals set).
inline std::vector<std::string> TextFromMask(const DCM_STRUCT& image, int set = 16777217)
{
  std::vector<std::string> rows;
  for (unsigned r = 0; r < image.GetNbOfRows(); ++r) {
    std::string row;
    for (unsigned c = 0; c < image.GetNbOfCols(); ++c)
      row += image.Data->GetValue(c, r) == set ? 'X' : '.';
    rows.push_back(row);
  }
  return rows;
}
