#include "ipg/ui/ipg_message.h"
#include "ipg/ui/ipg_progress.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(MessageSeam, DefaultHandlerWritesInformationOnStandardError)
{
  testing::internal::CaptureStderr();
  ShowInformationMessage("Division par Z\xC3\xA9ro", kIpgOkButton, "Information");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Information: Division par Z\xC3\xA9ro\n");
}

TEST(MessageSeam, InstalledHandlerReceivesTextAndCaptionAndCanBeRestored)
{
  std::vector<std::string> seen;
  Ipg_MessageHandler previous =
      Ipg_SetMessageHandler([&seen](const std::string& text, const std::string& caption) { seen.push_back(caption + "|" + text); });
  Ipg_Inform("image de sortie non allou\xC3\xA9" "e");
  Ipg_MessageHandler mine = Ipg_SetMessageHandler(previous);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0], "Information|image de sortie non allou\xC3\xA9" "e");
  EXPECT_TRUE(static_cast<bool>(mine));

  Ipg_SetMessageHandler(nullptr); // empty restores the default
  testing::internal::CaptureStderr();
  Ipg_Inform("x");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Information: x\n");
}

namespace {
struct RecordingSink : Ipg_ProgressSink {
  std::vector<std::string> Events;
  void Open(const std::string& label, int maximum) override { Events.push_back("open " + label + " " + std::to_string(maximum)); }
  void Step(const std::string& status) override { Events.push_back("step " + status); }
  void Close() override { Events.push_back("close"); }
};
} // namespace

TEST(ProgressSeam, ProgressOpensStepsAndClosesThroughTheSink)
{
  RecordingSink sink;
  Ipg_ProgressSink* previous = Ipg_SetProgressSink(&sink);
  {
    Ipg_Progress progress("filtrage", 2);
    progress.Step("1");
    progress.Step("2");
  }
  Ipg_SetProgressSink(previous);
  EXPECT_EQ(sink.Events, (std::vector<std::string>{"open filtrage 2", "step 1", "step 2", "close"}));

  Ipg_Progress silent("nothing", 1); // no sink: nothing happens
  silent.Step();
}
