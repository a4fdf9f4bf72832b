// SPDX-License-Identifier: Apache-2.0
#include "ipg/internal/ipg_representative_sets.h"

#include <utility>

Ipg_RepresentativeSets::Ipg_RepresentativeSets(int n) : Parent(n), Size(n, 1), Rep(n)
{
  for (int l = 0; l < n; ++l)
    Parent[l] = Rep[l] = l;
}

int Ipg_RepresentativeSets::Find(int l)
{
  while (Parent[l] != l) {
    Parent[l] = Parent[Parent[l]];
    l = Parent[l];
  }
  return l;
}

void Ipg_RepresentativeSets::Join(int i, int j)
{
  int ri = Find(i), rj = Find(j);
  if (ri == rj)
    return;
  const int rep = Rep[rj];
  if (Size[ri] > Size[rj])
    std::swap(ri, rj);
  Parent[ri] = rj;
  Size[rj] += Size[ri];
  Rep[rj] = rep;
}
