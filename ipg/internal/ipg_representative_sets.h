// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

// Union-find over labels 0 .. n-1 whose every set carries a representative
// label. Joining the sets of i and j makes the representative of j's set the
// representative of the union, which is what merging map[i] into map[j] does
// in an equivalence-table resolution: replaying the table's pairs in its order
// gives the same classes and the same surviving labels.
class Ipg_RepresentativeSets {
public:
  explicit Ipg_RepresentativeSets(int n);
  void Join(int i, int j);
  int RepresentativeOf(int l) { return Rep[Find(l)]; }

private:
  int Find(int l);
  std::vector<int> Parent;
  std::vector<int> Size;
  std::vector<int> Rep;
};
