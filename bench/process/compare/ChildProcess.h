#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quon::bench {

/// What one run of a whole command took, as wait4 reports it.
struct ChildOutcome {
  double wallSeconds = 0;    ///< from before the start to after the end, on the monotonic clock
  double userSeconds = 0;    ///< the command's and that of its own ended children
  double systemSeconds = 0;  ///< likewise
  /// The largest resident set. Never less than this program's own at the start of the command: the kernel
  /// carries the mark of the address space that a new program replaces, and posix_spawn's child borrows its
  /// parent's until then.
  std::uint64_t peakBytes = 0;
  int exitStatus = 0;  ///< of a command that ended by itself
  int signal = 0;      ///< that killed it; 0 when it ended by itself

  [[nodiscard]] bool succeeded() const { return exitStatus == 0 && signal == 0; }
};

/// `exit status 1`, `killed by signal 9`.
[[nodiscard]] std::string describeEnd(const ChildOutcome& outcome);

/// Runs `arguments` (the first is the program's path) with exactly `environment` ("NAME=value") and waits for
/// its end. Standard input and error are /dev/null, standard output is `outputPath`. Throws SystemFailure
/// when the program cannot be started, Interrupted when the user stopped it. Threads: main only.
[[nodiscard]] ChildOutcome runChild(const std::vector<std::string>& arguments,
                                    const std::vector<std::string>& environment,
                                    const std::string& outputPath = "/dev/null");

/// The greatest resident set of this program so far: no smaller peak can be measured.
[[nodiscard]] std::uint64_t ownPeakBytes();

}  // namespace quon::bench
