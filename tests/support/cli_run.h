// SPDX-License-Identifier: Apache-2.0
#pragma once

// Runs the `ipg` program as a user would, and the files its tests share.

#include "dcm/dcm_io.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

struct Outcome {
  int status = -1;
  std::string out, err;
};

inline std::string Slurp(const std::string& path)
{
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Files of the running test only: CTest runs the tests of a program in parallel,
// and several build trees may run the same test at once.
inline std::string Temp(const std::string& name)
{
  return testing::TempDir() + "/ipg_cli_" + std::to_string(getpid()) + "_" +
         testing::UnitTest::GetInstance()->current_test_info()->name() + "_" + name;
}

inline std::string Q(const std::string& path) { return "'" + path + "'"; }

inline bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Runs `ipg ARGS` through the shell; ARGS are already quoted where needed.
inline Outcome Ipg(const std::string& args)
{
  const std::string out = Temp("stdout.txt"), err = Temp("stderr.txt");
  const int raw = std::system((Q(IPG_CLI_PATH) + " " + args + " >" + Q(out) + " 2>" + Q(err)).c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(out), Slurp(err)};
}

// A 4 x 3 image of pixels 10 * row + column + first, written by the library
// itself so that these tests need no download.
inline std::string SmallImage(int first = 0)
{
  const std::string path = Temp("small.dcm");
  DCM_STRUCT image(4, 3, nullptr);
  for (unsigned r = 0; r < 3; ++r)
    for (unsigned c = 0; c < 4; ++c)
      image.Data->SetValue(c, r, static_cast<int>(10 * r + c) + first);
  std::string error;
  EXPECT_TRUE(Dcm_WriteFile(image, path, &error)) << error;
  return path;
}

inline std::unique_ptr<DCM_STRUCT> ReadImage(const std::string& path)
{
  std::string error;
  auto image = Dcm_ReadFile(path, &error);
  EXPECT_NE(image, nullptr) << path << ": " << error;
  return image;
}
