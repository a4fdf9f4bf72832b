// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

// Real third-party DICOM files fetched by scripts/fetch-test-data. A test that
// needs them calls IPG_REQUIRE_TEST_DATA() first: without them it is skipped,
// saying why.
inline std::string TestDataPath(const std::string& name)
{
  return std::string(IPG_TEST_DATA_DIR) + "/" + name;
}

inline bool TestDataPresent()
{
  return std::filesystem::exists(TestDataPath("MR_small.dcm"));
}

#define IPG_REQUIRE_TEST_DATA()                                                                          \
  do {                                                                                                   \
    if (!TestDataPresent())                                                                              \
      GTEST_SKIP() << "real DICOM test files not found in " IPG_TEST_DATA_DIR                            \
                      " (run scripts/fetch-test-data with the build directory; it needs network access)"; \
  } while (0)
