#pragma once

#include <chrono>
#include <functional>

#include "base/WorkItem.h"

namespace quon {

/// A serial queue off the main thread: work runs one after the other, in the order of its due times; posted
/// work is due at once, and equal times keep the order of posting. Nothing runs inside post() or postAfter().
///
/// Threads: post and postAfter from any thread, the queue's own work included.
class BackgroundQueue {
 public:
  BackgroundQueue() = default;
  BackgroundQueue(const BackgroundQueue&) = delete;
  BackgroundQueue& operator=(const BackgroundQueue&) = delete;
  virtual ~BackgroundQueue() = default;

  virtual void post(std::function<void()> work) = 0;

  /// Runs the work `delay` seconds from now, at once for a delay of 0 or less. Dropping the returned item
  /// does not cancel the work; cancel() does not wait for work that has begun.
  virtual WorkItem postAfter(std::chrono::duration<double> delay, std::function<void()> work) = 0;
};

}  // namespace quon
