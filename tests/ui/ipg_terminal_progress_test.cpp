// SPDX-License-Identifier: Apache-2.0
// The terminal progress bar: drawing, throttling and erasing.
#include "ipg/ui/ipg_terminal_progress.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

std::string Contents(std::FILE* f)
{
  std::fflush(f);
  std::rewind(f);
  std::string text;
  for (int c; (c = std::fgetc(f)) != EOF;)
    text.push_back(static_cast<char>(c));
  return text;
}

} // namespace

TEST(IpgTerminalProgress, DrawsTheBarRedrawsOnlyWhenThePercentageMovesErasesOnClose)
{
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  Ipg_TerminalProgress bar(f, 10);
  Ipg_SetProgressSink(&bar);
  {
    Ipg_Progress progress("Filtre", 4);
    progress.Step("ligne 1");
    progress.Step("ligne 2");
  } // closes
  Ipg_SetProgressSink(nullptr);
  const std::string text = Contents(f);
  EXPECT_NE(text.find("Filtre [..........]   0%"), std::string::npos) << text;
  EXPECT_NE(text.find("Filtre [#####.....]  50% ligne 2"), std::string::npos) << text;
  EXPECT_EQ(text.substr(text.size() - 4), "\r\033[K"); // erased at the end

  // It redraws only when the percentage moves.
  bar.Open("Long", 1000);
  for (int i = 0; i < 1000; ++i)
    bar.Step("");
  EXPECT_EQ(bar.GetPosition(), 1000);
  bar.Step(""); // beyond the maximum: stays full
  EXPECT_EQ(bar.GetPosition(), 1000);
  const std::string more = Contents(f);
  std::size_t draws = 0;
  for (auto at = more.find("Long ["); at != std::string::npos; at = more.find("Long [", at + 1))
    ++draws;
  EXPECT_EQ(draws, 101u); // 0% and each of 1..100%
  EXPECT_NE(more.find("[##########] 100%"), std::string::npos);
  std::fclose(f);
}
