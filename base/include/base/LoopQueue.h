#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "base/MainQueue.h"
#include "base/WorkLoop.h"

namespace quon {

/// The main queue of a terminal command: a loop that its main() runs.
///
/// What work throws comes out of run() or runUntil(), which GLib does not promise for its loop; the work after
/// it stays queued and the loop can be run again. The destructor cancels what is still queued.
///
/// Threads: constructed, run and destroyed on one thread, which is the main thread to isCurrent(); post,
/// postAfter and quit from any thread.
class LoopQueue final : public MainQueue {
 public:
  void post(std::function<void()> work) override;
  WorkItem postAfter(std::chrono::duration<double> delay, std::function<void()> work) override;
  [[nodiscard]] bool isCurrent() const override;

  /// Runs work, and waits for it, until quit().
  void run();

  /// Runs work, and waits for it, until the predicate is true; false when quit() came first. The predicate is
  /// checked on this thread, before the first and after every piece of work: what makes it true posts work.
  [[nodiscard]] bool runUntil(const std::function<bool()>& predicate);

  /// Ends the present run after its current piece of work, and the runs that it is nested in; without a
  /// present run, the next one ends before it runs anything. Takes a lock: not for signal handlers.
  void quit();

 private:
  const std::thread::id mainThread = std::this_thread::get_id();
  int depth = 0;  // of nested runs, each called from work of the one before; main thread only
  WorkLoop loop;
};

}  // namespace quon
