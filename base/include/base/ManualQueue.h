#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <thread>

#include "base/BackgroundQueue.h"
#include "base/DueWork.h"
#include "base/MainQueue.h"
#include "base/Mutex.h"

namespace quon {

/// A queue for tests whose clock moves only on request, so that every delay is tested without waiting.
///
/// Work runs inside advance(), runPosted() and runUntil(), outside the lock; what it throws comes out of
/// them, and the rest stays queued. Work may post, and advance the clock itself. The destructor cancels what
/// is queued.
///
/// Threads: post and postAfter from any thread; all else on the thread of the test.
template <typename Queue>
class ManualQueueOf : public Queue {
 public:
  void post(std::function<void()> work) override;
  WorkItem postAfter(std::chrono::duration<double> delay, std::function<void()> work) override;

  /// Moves the clock on, running in time order what falls due on the way, each at its own time, including
  /// what that work posts. Rounded to nanoseconds, so that 0.08 s and 0.04 s reach work that is due after
  /// 0.12 s.
  void advance(std::chrono::duration<double> duration);

  /// Runs what is due at the present time, including what that work posts.
  void runPosted();

  /// Runs what is due at the present time as other threads post it, waiting for them, until the predicate
  /// is true. It is checked before the first and after every piece of work: what makes it true posts work.
  void runUntil(const std::function<bool()>& predicate);

  /// The time since construction.
  [[nodiscard]] std::chrono::nanoseconds now() const;

  /// The number of pieces of work that have not run, due or not; cancelled ones do not count.
  [[nodiscard]] std::size_t pendingCount() const;

 private:
  [[nodiscard]] std::optional<WorkItem> takeUntil(std::chrono::nanoseconds end);
  [[nodiscard]] WorkItem waitForDue();
  static void run(const WorkItem& work);

  mutable Mutex lock;
  Condition changed;
  std::chrono::nanoseconds clock QUON_GUARDED_BY(lock){0};
  DueWork pending QUON_GUARDED_BY(lock);
};

extern template class ManualQueueOf<MainQueue>;
extern template class ManualQueueOf<BackgroundQueue>;

/// The main queue of a test: the constructing thread is the main thread.
class ManualQueue final : public ManualQueueOf<MainQueue> {
 public:
  [[nodiscard]] bool isCurrent() const override { return std::this_thread::get_id() == mainThread; }

 private:
  const std::thread::id mainThread = std::this_thread::get_id();
};

/// A background queue of a test: its work runs on the thread of the test.
class ManualBackgroundQueue final : public ManualQueueOf<BackgroundQueue> {};

}  // namespace quon
