// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_glcm_parameters.h"

#include "ipg/internal/ipg_glcm.h"

bool Ipg_GlcmLevelsValid(int levels)
{
  return levels >= 2 && levels <= 256;
}

const char* Ipg_GlcmDisplacementFault(int distance, int angle, int longestDistance, int& dcol, int& drow)
{
  if (distance < 1 || distance > longestDistance)
    return "Distance";
  return Ipg_GlcmOffset(angle, distance, dcol, drow) ? nullptr : "Angle";
}
