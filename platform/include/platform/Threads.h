#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace quon {

/// A thread that was started. Joined by its destructor.
class RunningThread {
 public:
  virtual ~RunningThread() = default;
  virtual void join() = 0;
};

/// What a thread has used since it began.
struct ThreadUse {
  std::chrono::nanoseconds processor{0};
  std::uint64_t waits =
      0;  ///< how often it gave up its processor to wait: for a disk, a lock, another thread
};

/// Starts threads under a name and with a stack size of the caller's choice. Threads: any.
class ThreadService {
 public:
  virtual ~ThreadService() = default;
  /// The name is cut to what the system keeps (15 bytes on Linux). An exception that leaves the body is
  /// fatal. Throws std::system_error when the system cannot start one.
  [[nodiscard]] virtual std::unique_ptr<RunningThread> start(const std::string& name, std::size_t stackBytes,
                                                             std::function<void()> body) const = 0;
  /// Gives the calling thread, which others started, its name.
  virtual void nameThisThread(const std::string& /*name*/) const {}
  /// Of the calling thread; all zero where the system does not report it.
  [[nodiscard]] virtual ThreadUse used() const { return {}; }
  /// Processors that this process may run on, at least 1.
  [[nodiscard]] virtual unsigned activeProcessors() const = 0;
};

}  // namespace quon
