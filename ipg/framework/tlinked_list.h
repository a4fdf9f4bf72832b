// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

// A small typed list: add, indexed get, count, sort. T is usually a pointer,
// which the list does not own.
template <typename T>
class TLinkedList {
public:
  int Add(const T& item)
  {
    Items.push_back(item);
    return Count() - 1;
  }
  // The item at index, or a value-initialised T (null for pointers) outside the list.
  T Get(int index) const
  {
    return index >= 0 && index < Count() ? Items[static_cast<std::size_t>(index)] : T{};
  }
  int Count() const { return static_cast<int>(Items.size()); }
  void Delete(int index)
  {
    if (index >= 0 && index < Count())
      Items.erase(Items.begin() + index);
  }
  void Clear() { Items.clear(); }
  // Ascending order by less.
  void Sort(const std::function<bool(const T&, const T&)>& less)
  {
    if (less)
      std::sort(Items.begin(), Items.end(), less);
  }

private:
  std::vector<T> Items;
};
