// SPDX-License-Identifier: Apache-2.0
#include "cli/cli_batch_pool.h"

#include "cli/cli_interrupt.h"
#include "cli/cli_io.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

struct Running {
  std::size_t task;
  pid_t pid;
  int fd; // read end of the child's pipe
  std::string output;
};

[[noreturn]] void RunChild(const CliPoolTasks& tasks, std::size_t task, int fd, pid_t parent)
{
  // A batch killed outright takes its workers with it.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent)
    _exit(1);
  int status = 0;
  try {
    status = Cli_WriteAll(fd, tasks.work(task)) ? 0 : 1;
  } catch (const CliInterruptedError&) {
    status = kCliChildInterrupted;
  } catch (...) {
    status = 1;
  }
  // No exit handlers: they belong to the parent.
  _exit(status);
}

Running Start(const CliPoolTasks& tasks, std::size_t task, pid_t self)
{
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe");
  const pid_t pid = fork();
  if (pid < 0) {
    const int error = errno;
    ::close(ends[0]);
    ::close(ends[1]);
    throw std::system_error(error, std::generic_category(), "fork");
  }
  if (pid == 0) {
    ::close(ends[0]);
    RunChild(tasks, task, ends[1], self);
  }
  ::close(ends[1]);
  return {task, pid, ends[0], {}};
}

int Reap(pid_t pid)
{
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

// Reads what child has to give; true once it has closed its end.
bool Drain(Running& child)
{
  char buffer[1 << 16];
  const ssize_t n = ::read(child.fd, buffer, sizeof buffer);
  if (n > 0) {
    child.output.append(buffer, static_cast<std::size_t>(n));
    return false;
  }
  return n == 0 || errno != EINTR;
}

} // namespace

bool CliChildEnd::Finished() const
{
  return WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 0;
}

std::string CliChildEnd::Describe() const
{
  if (WIFSIGNALED(waitStatus))
    return "killed by signal " + std::to_string(WTERMSIG(waitStatus)) + " (" + strsignal(WTERMSIG(waitStatus)) + ")";
  return "exit status " + std::to_string(WEXITSTATUS(waitStatus));
}

void Cli_RunInChildren(const CliPoolTasks& tasks, int jobs)
{
  const pid_t self = getpid();
  std::vector<Running> running;
  std::size_t next = 0;
  for (;;) {
    while (static_cast<int>(running.size()) < jobs && next < tasks.count && !(tasks.stop && tasks.stop()))
      running.push_back(Start(tasks, next++, self));
    if (running.empty())
      return;
    std::vector<pollfd> watched;
    for (const Running& child : running)
      watched.push_back({child.fd, POLLIN, 0});
    if (poll(watched.data(), watched.size(), -1) < 0) {
      if (errno == EINTR)
        continue; // Ctrl-C: stop() says so at the top
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    for (std::size_t i = running.size(); i-- > 0;) {
      if (watched[i].revents == 0 || !Drain(running[i]))
        continue;
      Running ended = std::move(running[i]);
      running.erase(running.begin() + static_cast<std::ptrdiff_t>(i));
      ::close(ended.fd);
      tasks.done(ended.task, {std::move(ended.output), Reap(ended.pid)});
    }
  }
}
