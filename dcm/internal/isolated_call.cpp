// SPDX-License-Identifier: Apache-2.0
#include "dcm/internal/isolated_call.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// What the child leaves for the parent before the result bytes.
struct ChildReport {
  int Done;
  char Reason[500];
};

std::size_t PageRound(std::size_t n)
{
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return (n + page - 1) / page * page;
}

// Sanitizer runtimes reserve terabytes of address space, so a sanitized child
// gets no ceiling; it keeps its standard error so that its reports are seen.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

std::size_t CurrentAddressSpace()
{
  FILE* statm = std::fopen("/proc/self/statm", "r");
  unsigned long pages = 0;
  if (statm != nullptr) {
    if (std::fscanf(statm, "%lu", &pages) != 1)
      pages = 0;
    std::fclose(statm);
  }
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

[[noreturn]] void RunChild(const IsolatedCall::Job& job, ChildReport* report, void* result, std::size_t ceiling)
{
  const int devnull = open("/dev/null", O_WRONLY); // codec chatter stays off the caller's terminal
  if (devnull >= 0) {
    if (!kSanitized)
      dup2(devnull, STDERR_FILENO);
    dup2(devnull, STDOUT_FILENO);
    close(devnull);
  }
  if (!kSanitized && ceiling > 0) {
    const rlimit limit{ceiling, ceiling};
    setrlimit(RLIMIT_AS, &limit);
  }
  std::string reason;
  bool ok = false;
  try {
    ok = job(result, reason);
  } catch (const std::bad_alloc&) {
    reason = "out of memory while decoding";
  } catch (const std::exception& e) {
    reason = e.what();
  } catch (...) {
    reason = "the decoder failed";
  }
  std::snprintf(report->Reason, sizeof report->Reason, "%s", reason.c_str());
  report->Done = ok ? 1 : 2;
  _exit(0); // no destructors or exit handlers of the caller's state run in the child
}

std::string Ending(int status)
{
  if (WIFSIGNALED(status)) {
    const int sig = WTERMSIG(status);
    const char* name = sigdescr_np(sig);
    return "the decoder crashed (" + std::string(name != nullptr ? name : "signal " + std::to_string(sig)) +
           "); the file is damaged or not supported";
  }
  // A sanitizer or an exit inside a codec ends the child without a report.
  return "the decoder crashed (exit status " + std::to_string(WEXITSTATUS(status)) +
         "); the file is damaged or not supported";
}

// Waits for the child, killing it after maxSeconds. The child holds the write
// end of a pipe that closes when it ends, however it ends. False on timeout.
bool WaitFor(pid_t child, int endOfChild, double maxSeconds, int& status)
{
  timespec start{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  while (true) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const double left = maxSeconds - (double(now.tv_sec - start.tv_sec) + double(now.tv_nsec - start.tv_nsec) * 1e-9);
    pollfd end{endOfChild, POLLIN, 0};
    const int ready = left > 0 ? poll(&end, 1, static_cast<int>(left * 1000) + 1) : 0;
    if (ready < 0 && errno == EINTR)
      continue;
    if (ready == 0) {
      kill(child, SIGKILL);
      while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
      }
      return false;
    }
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return true;
  }
}

} // namespace

bool IsolatedCall::Run(const Job& job, void* result, std::string& error) const
{
  return Run(job, [this, result](const void* area) { std::memcpy(result, area, ResultBytes); }, error);
}

bool IsolatedCall::Run(const Job& job, const Take& take, std::string& error) const
{
  const std::size_t bytes = PageRound(sizeof(ChildReport) + ResultBytes);
  void* shared = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) {
    error = std::string("cannot share memory with the decoder: ") + std::strerror(errno);
    return false;
  }
  auto* report = static_cast<ChildReport*>(shared);
  void* area = static_cast<char*>(shared) + sizeof(ChildReport);
  const std::size_t ceiling = MaxChildBytes == 0 ? 0 : CurrentAddressSpace() + MaxChildBytes;
  int endOfChild[2];
  if (pipe2(endOfChild, O_CLOEXEC) != 0) {
    error = std::string("cannot start the decoder process: ") + std::strerror(errno);
    munmap(shared, bytes);
    return false;
  }
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    close(endOfChild[0]);
    RunChild(job, report, area, ceiling);
  }
  close(endOfChild[1]);
  if (child < 0) {
    error = std::string("cannot start the decoder process: ") + std::strerror(errno);
    close(endOfChild[0]);
    munmap(shared, bytes);
    return false;
  }
  int status = 0;
  bool ok = false;
  const bool ended = WaitFor(child, endOfChild[0], MaxSeconds, status);
  close(endOfChild[0]);
  if (!ended)
    error = "the decoder took longer than " + std::to_string(static_cast<int>(MaxSeconds)) + " s and was stopped";
  else if (report->Done == 1) {
    take(area);
    ok = true;
  } else if (report->Done == 2)
    error = report->Reason;
  else
    error = Ending(status);
  munmap(shared, bytes);
  return ok;
}
