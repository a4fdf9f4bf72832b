// SPDX-License-Identifier: Apache-2.0
#include "ipg/ui/ipg_progress.h"
#include "support/progress_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

TEST(ProgressSeam, ProgressOpensStepsAndClosesThroughTheSink)
{
  {
    ProgressCapture sink;
    {
      Ipg_Progress progress("filtrage", 2);
      progress.Step("1");
      progress.Step("2");
    }
    EXPECT_EQ(sink.Events, (std::vector<std::string>{"open filtrage 2", "step 1", "step 2", "close"}));
  }
  Ipg_Progress silent("nothing", 1); // no sink: nothing happens
  silent.Step();
}
