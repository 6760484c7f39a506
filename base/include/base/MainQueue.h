#pragma once

#include <chrono>
#include <functional>

#include "base/WorkItem.h"

namespace quon {

/// The queue of the main thread, on which all state that views observe changes. A loop of our own in the
/// terminal command, the toolkit's event loop in the window, a manual clock in tests.
///
/// Work runs on the main thread, one after the other, in the order of its due times; posted work is due at
/// once, and equal times keep the order of posting. Nothing runs inside post() or postAfter().
///
/// Threads: post and postAfter from any thread.
class MainQueue {
 public:
  MainQueue() = default;
  MainQueue(const MainQueue&) = delete;
  MainQueue& operator=(const MainQueue&) = delete;
  virtual ~MainQueue() = default;

  virtual void post(std::function<void()> work) = 0;

  /// Runs the work `delay` seconds from now, at once for a delay of 0 or less. Dropping the returned item
  /// does not cancel the work. Cancelled on the main thread, work never runs after cancel() has returned.
  virtual WorkItem postAfter(std::chrono::duration<double> delay, std::function<void()> work) = 0;

  /// True on the main thread.
  [[nodiscard]] virtual bool isCurrent() const = 0;
};

}  // namespace quon
