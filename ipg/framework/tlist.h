// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

// A small list of untyped pointers: add, indexed get, count, sort. It does not
// own what it points to.
class TList {
public:
  using CompareFunction = int (*)(void* a, void* b);

  int Add(void* item)
  {
    Items.push_back(item);
    return Count() - 1;
  }
  // The item at index, or null outside the list.
  void* Get(int index) const
  {
    return index >= 0 && index < Count() ? Items[static_cast<std::size_t>(index)] : nullptr;
  }
  void Set(int index, void* item)
  {
    if (index >= 0 && index < Count())
      Items[static_cast<std::size_t>(index)] = item;
  }
  int Count() const { return static_cast<int>(Items.size()); }
  void Delete(int index)
  {
    if (index >= 0 && index < Count())
      Items.erase(Items.begin() + index);
  }
  void Clear() { Items.clear(); }
  // Ascending order by compare (negative: a before b). Equal items may move.
  void Sort(CompareFunction compare)
  {
    if (compare != nullptr)
      std::sort(Items.begin(), Items.end(), [compare](void* a, void* b) { return compare(a, b) < 0; });
  }

private:
  std::vector<void*> Items;
};
