// SPDX-License-Identifier: Apache-2.0
#include "ipg/ui/ipg_message.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(MessageSeam, InstalledHandlerGetsTextAndCaptionTheDefaultWritesOnStandardError)
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

  testing::internal::CaptureStderr();
  ShowInformationMessage("Division par Z\xC3\xA9ro", kIpgOkButton, "Information");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Information: Division par Z\xC3\xA9ro\n");
}
