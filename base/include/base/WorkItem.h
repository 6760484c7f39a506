#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "base/Fatal.h"

namespace quon {

/// Work that waits in a queue and can be cancelled. Copies are handles on the same work; dropping a handle
/// does not cancel it. What the work captured is freed as soon as it has run or was cancelled, on that
/// thread.
///
/// Threads: any. Of cancel() and the queue, the first takes the work: cancelled on the thread that runs the
/// queue, work never runs after cancel() has returned; from another thread, false says that it ran or is
/// running. Our own, as the timers of Boost.Asio run although cancelled once they are due.
class WorkItem {
 public:
  /// No work: neither cancel() nor run() does anything.
  WorkItem() = default;
  explicit WorkItem(std::function<void()> work) : shared(std::make_shared<Shared>(std::move(work))) {
    QUON_CHECK(shared->work != nullptr, "a queue was given an empty function");
  }

  /// True when this call kept the work from ever running, false when there was none, or it had been taken
  /// before. Does not wait for work that runs.
  bool cancel() const { return take() != nullptr; }

  /// True until the work begins or is cancelled.
  [[nodiscard]] bool isPending() const {
    return shared != nullptr && !shared->taken.load(std::memory_order_acquire);
  }

  /// For queues: runs the work on this thread, unless it was cancelled or has begun. Passes on what it
  /// throws.
  void run() const {
    if (const auto work = take()) work();
  }

 private:
  struct Shared {
    explicit Shared(std::function<void()> given) : work(std::move(given)) {}
    std::atomic<bool> taken{false};
    std::function<void()> work;  // belongs to whoever sets `taken`
  };

  /// Empty for all callers but the first.
  std::function<void()> take() const {
    if (shared == nullptr || shared->taken.exchange(true, std::memory_order_acq_rel)) return nullptr;
    return std::exchange(shared->work, nullptr);
  }

  std::shared_ptr<Shared> shared;
};

}  // namespace quon
