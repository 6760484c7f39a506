#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include "base/BackgroundQueue.h"
#include "base/WorkLoop.h"

namespace quon {

/// A serial queue on a thread of its own. An exception from work stops the program. The destructor lets the
/// running work finish, joins the thread and cancels what has not begun; it must not run on the
/// queue's own thread.
///
/// Threads: post and postAfter from any thread.
class ThreadQueue final : public BackgroundQueue {
 public:
  /// `onThreadStart` runs first on the new thread: the platform names the thread there.
  explicit ThreadQueue(std::function<void()> onThreadStart = nullptr);
  ~ThreadQueue() override;

  void post(std::function<void()> work) override;
  WorkItem postAfter(std::chrono::duration<double> delay, std::function<void()> work) override;

 private:
  WorkLoop loop;
  std::thread thread;  // last: it uses the loop
};

}  // namespace quon
