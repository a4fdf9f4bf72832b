// SPDX-License-Identifier: Apache-2.0
#include "ipg/framework/tlinked_list.h"
#include "ipg/framework/tlist.h"

#include <gtest/gtest.h>

namespace {
int CompareInts(void* a, void* b)
{
  return *static_cast<int*>(a) - *static_cast<int*>(b);
}
} // namespace

TEST(PointerLists, AddGetCountSort)
{
  int values[] = {30, 10, 20};
  TList list;
  for (int& v : values)
    list.Add(&v);
  EXPECT_EQ(list.Count(), 3);
  EXPECT_EQ(list.Get(3), nullptr);
  list.Sort(CompareInts);
  EXPECT_EQ(*static_cast<int*>(list.Get(0)), 10);
  EXPECT_EQ(*static_cast<int*>(list.Get(2)), 30);
  list.Delete(0);
  EXPECT_EQ(*static_cast<int*>(list.Get(0)), 20);

  TLinkedList<int*> typed;
  for (int& v : values)
    typed.Add(&v);
  typed.Sort([](int* const& a, int* const& b) { return *a > *b; });
  EXPECT_EQ(*typed.Get(0), 30);
  EXPECT_EQ(typed.Get(-1), nullptr);
}
