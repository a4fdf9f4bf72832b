// SPDX-License-Identifier: Apache-2.0
// Work in child processes: a child that dies ends only its own task.
#include "cli/cli_batch_pool.h"

#include <gtest/gtest.h>

#include <csignal>
#include <map>

TEST(CliBatchPool, AChildKilledMidTaskEndsOnlyThatTask)
{
  std::map<std::size_t, CliChildEnd> ends;
  CliPoolTasks tasks;
  tasks.count = 6;
  tasks.work = [](std::size_t task) {
    if (task == 2)
      raise(SIGKILL);
    return std::string(100000, static_cast<char>('a' + task)); // more than a pipe holds
  };
  tasks.done = [&](std::size_t task, const CliChildEnd& end) { ends[task] = end; };
  Cli_RunInChildren(tasks, 2);
  ASSERT_EQ(ends.size(), 6u);
  for (const auto& [task, end] : ends) {
    SCOPED_TRACE(task);
    EXPECT_EQ(end.Finished(), task != 2);
    EXPECT_EQ(end.output, task == 2 ? "" : std::string(100000, static_cast<char>('a' + task)));
  }
  EXPECT_EQ(ends[2].Describe().rfind("killed by signal 9", 0), 0u) << ends[2].Describe();

  // Once stop() says so, no new child starts.
  ends.clear();
  tasks.stop = [&] { return !ends.empty(); };
  Cli_RunInChildren(tasks, 1);
  EXPECT_EQ(ends.size(), 1u);
}
