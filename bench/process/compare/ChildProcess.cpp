#include "compare/ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "compare/Interrupt.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

void check(int error, const char* operation, const std::string& subject) {
  if (error != 0) throw SystemFailure(operation, subject, error);
}

/// Where the child's three standard streams go.
class StreamActions {
 public:
  explicit StreamActions(const std::string& outputPath) {
    check(::posix_spawn_file_actions_init(&actions), "preparing", outputPath);
    open(STDIN_FILENO, "/dev/null", O_RDONLY);
    open(STDOUT_FILENO, outputPath, O_WRONLY | O_CREAT | O_TRUNC);
    open(STDERR_FILENO, "/dev/null", O_WRONLY);
  }
  StreamActions(const StreamActions&) = delete;
  StreamActions& operator=(const StreamActions&) = delete;
  ~StreamActions() { ::posix_spawn_file_actions_destroy(&actions); }

  [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions; }

 private:
  void open(int stream, const std::string& path, int flags) {
    check(::posix_spawn_file_actions_addopen(&actions, stream, path.c_str(), flags, 0600), "preparing", path);
  }

  posix_spawn_file_actions_t actions{};
};

[[nodiscard]] std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> result;
  result.reserve(texts.size() + 1);
  for (const std::string& text : texts)
    result.push_back(const_cast<char*>(text.c_str()));  // exec writes to none
  result.push_back(nullptr);
  return result;
}

[[nodiscard]] double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

[[nodiscard]] std::uint64_t peakBytesOf(const rusage& usage) {
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;  // Linux counts it in KiB
}

}  // namespace

std::string describeEnd(const ChildOutcome& outcome) {
  if (outcome.signal != 0) return fmt::format("killed by signal {}", outcome.signal);
  return fmt::format("exit status {}", outcome.exitStatus);
}

ChildOutcome runChild(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
                      const std::string& outputPath) {
  if (wasInterrupted()) throw Interrupted();
  const StreamActions streams(outputPath);
  const std::vector<char*> argv = pointers(arguments);
  const std::vector<char*> envp = pointers(environment);

  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  check(::posix_spawn(&child, argv[0], streams.get(), nullptr, argv.data(), envp.data()), "starting",
        arguments[0]);
  rusage usage{};
  int status = 0;
  while (::wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) throw SystemFailure("waiting for the end of", arguments[0], errno);
    // A terminal's interrupt reached the child as well; one sent to this program alone did not.
    if (wasInterrupted()) ::kill(child, SIGTERM);
  }
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  if (wasInterrupted()) throw Interrupted();

  return {.wallSeconds = wall.count(),
          .userSeconds = seconds(usage.ru_utime),
          .systemSeconds = seconds(usage.ru_stime),
          .peakBytes = peakBytesOf(usage),
          .exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 0,
          .signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0};
}

std::uint64_t ownPeakBytes() {
  rusage usage{};
  if (::getrusage(RUSAGE_SELF, &usage) != 0)
    throw SystemFailure("reading the memory of", "this program", errno);
  return peakBytesOf(usage);
}

}  // namespace quon::bench
