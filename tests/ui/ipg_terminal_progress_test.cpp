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
  char buffer[256];
  std::size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
    text.append(buffer, n);
  return text;
}

std::size_t Count(const std::string& text, const std::string& what)
{
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    ++n;
  return n;
}

} // namespace

TEST(IpgTerminalProgress, DrawsTheBarAndErasesItOnClose)
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
  std::fclose(f);
}

TEST(IpgTerminalProgress, RedrawsOnlyWhenThePercentageMoves)
{
  std::FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  Ipg_TerminalProgress bar(f, 10);
  bar.Open("Long", 1000);
  for (int i = 0; i < 1000; ++i)
    bar.Step("");
  EXPECT_EQ(bar.GetPosition(), 1000);
  bar.Step(""); // beyond the maximum: stays full
  EXPECT_EQ(bar.GetPosition(), 1000);
  const std::string text = Contents(f);
  EXPECT_EQ(Count(text, "Long ["), 101u); // 0% and each of 1..100%
  EXPECT_NE(text.find("[##########] 100%"), std::string::npos);
  std::fclose(f);
}
