// SPDX-License-Identifier: Apache-2.0
// The isolation wall: whatever a job does to its own process, the caller lives
// on and gets a reason.
#include "dcm/internal/isolated_call.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <signal.h>

TEST(IsolatedCall, ResultsComeBackAndFailuresBecomeReasons)
{
  int result[3] = {};
  std::string error;
  const IsolatedCall call(sizeof result, 10.0, 0);
  ASSERT_TRUE(call.Run(
      [](void* out, std::string&) {
        const int values[3] = {7, -8, 16777217};
        std::memcpy(out, values, sizeof values);
        return true;
      },
      result, error))
      << error;
  EXPECT_EQ(result[0], 7);
  EXPECT_EQ(result[1], -8);
  EXPECT_EQ(result[2], 16777217);

  // A job's own failure or exception comes back as the reason.
  EXPECT_FALSE(call.Run(
      [](void*, std::string& why) {
        why = "damaged stream";
        return false;
      },
      result, error));
  EXPECT_EQ(error, "damaged stream");
  EXPECT_FALSE(call.Run([](void*, std::string&) -> bool { throw std::bad_alloc(); }, result, error));
  EXPECT_NE(error.find("out of memory"), std::string::npos) << error;
}

TEST(IsolatedCall, HostSurvivesAnAbortAFaultAndARunawayJob)
{
  int result = 0;
  std::string error;
  // Crash reports (a sanitizer's included) may take a while on a loaded machine.
  const IsolatedCall call(sizeof result, 30.0, 0);
  EXPECT_FALSE(call.Run([](void*, std::string&) -> bool { std::abort(); }, &result, error));
  EXPECT_NE(error.find("crashed"), std::string::npos) << error;
  EXPECT_FALSE(call.Run([](void*, std::string&) -> bool { raise(SIGSEGV); return true; }, &result, error));
  EXPECT_NE(error.find("crashed"), std::string::npos) << error;
  const IsolatedCall quick(sizeof result, 0.5, 0);
  EXPECT_FALSE(quick.Run(
      [](void*, std::string&) {
        for (volatile bool forever = true; forever;) {
        }
        return true;
      },
      &result, error));
  EXPECT_NE(error.find("longer than"), std::string::npos) << error;
  EXPECT_EQ(result, 0);
}

