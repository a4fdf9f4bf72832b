// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ipg/framework/ipg_operation_info.h"

#include <array>

// The co-occurrence parameters of IPG_TEXTURE and IPG_TEXTURE_LOCAL, handled
// once for both: Distance and Angle give the displacement of a pixel pair,
// GreyLevels the quantisation classes, Symmetric whether each pair also counts
// transposed. C is either class, with a setter and a getter of each.

// A new operator's values: Distance 1, Angle 0, GreyLevels 16, Symmetric.
template <class C>
void Ipg_SetGlcmDefaults(C& op)
{
  op.SetDistance(1);
  op.SetAngle(0);
  op.SetGreyLevels(16);
  op.SetSymmetric(true);
}

template <class C>
void Ipg_CopyGlcmParameters(C& op, const C& source)
{
  op.SetDistance(source.GetDistance());
  op.SetAngle(source.GetAngle());
  op.SetGreyLevels(source.GetGreyLevels());
  op.SetSymmetric(source.GetSymmetric());
}

// Their class-table entries, in the order above; the two classes bound the
// distance differently, so each describes it.
template <class C>
constexpr std::array<IPG_PARAMETER_INFO<C>, 4> Ipg_GlcmParameterEntries(const char* distanceDescription)
{
  return {Ipg_Parameter<C, &C::SetDistance>("Distance", "1", distanceDescription),
          Ipg_Parameter<C, &C::SetAngle>("Angle", "0", "direction 0, 45, 90 or 135 degrees (default 0)"),
          Ipg_Parameter<C, &C::SetGreyLevels>("GreyLevels", "16", "quantisation classes 2-256 (default 16)"),
          Ipg_Parameter<C, &C::SetSymmetric>("Symmetric", "true", "count each pair both ways (default true)")};
}

// GreyLevels from 2 to 256.
bool Ipg_GlcmLevelsValid(int levels);

// The displacement (dcol, drow) of Distance and Angle, checked in that order:
// null when valid, else the name of the first out of range. Distance lies in
// [1, longestDistance]; Angle is one of the four.
const char* Ipg_GlcmDisplacementFault(int distance, int angle, int longestDistance, int& dcol, int& drow);
