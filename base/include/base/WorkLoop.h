#pragma once

#include <chrono>
#include <functional>

#include "base/DueWork.h"
#include "base/Mutex.h"

namespace quon {

/// Work that waits for its time on the steady clock, and the one step of a loop that runs it: what the queues
/// with a real thread behind them have in common. Work runs, and is destroyed, outside the lock. Our own, so
/// that these queues and the manual one of the tests run the same work in the same order (see DueWork).
///
/// Threads: any; runNext from the thread of the loop.
class WorkLoop {
 public:
  void post(std::function<void()> work);
  WorkItem postAfter(std::chrono::duration<double> delay, std::function<void()> work);

  /// Waits for the next work and runs it; false, without running any, while the loop is stopped. Passes on
  /// what the work throws.
  [[nodiscard]] bool runNext();

  /// In force until resume(); wakes a waiting runNext.
  void stop();
  void resume();
  [[nodiscard]] bool isStopped() const;

 private:
  [[nodiscard]] bool takeNext(WorkItem& work);

  mutable Mutex lock;
  Condition changed;
  DueWork pending QUON_GUARDED_BY(lock);
  bool stopped QUON_GUARDED_BY(lock) = false;
};

}  // namespace quon
