// SPDX-License-Identifier: Apache-2.0
// A program outside the tree that uses the installed library: it makes a small
// image, adds a constant with IPG_ARITHMETIC1 and prints what it did.
#include <ipg/ipg.h>

#include <cstdio>

int main()
{
  DCM_STRUCT in(4, 3, nullptr);
  for (unsigned r = 0; r < 3; ++r)
    for (unsigned c = 0; c < 4; ++c)
      in.Data->SetValue(c, r, static_cast<int>(10 * r + c));
  DCM_STRUCT out(in, false);

  IPG_ARITHMETIC1 op(&in);
  op.SetVariable(5.0f);
  op.SetMode(302); // keep the values; only re-measure the extremes
  op.SetImaOut(&out);
  const bool ok = op.Apply();

  std::printf("IPG_ARITHMETIC1 code %g (AddConstant) with Variable %g: %s\n", op.GetTools(), op.GetVariable(),
              ok ? "applied" : "failed");
  for (unsigned r = 0; r < 3; ++r) {
    for (unsigned c = 0; c < 4; ++c)
      std::printf(" %3d -> %3d", in.Data->GetValue(c, r), out.Data->GetValue(c, r));
    std::printf("\n");
  }
  std::printf("output extremes: %d .. %d\n", out.Data->GetMin(), out.Data->GetMax());
  return ok ? 0 : 1;
}
