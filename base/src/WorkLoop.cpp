#include "base/WorkLoop.h"

#include <utility>

namespace quon {

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::nanoseconds now() {
  return Clock::now().time_since_epoch();
}

}  // namespace

void WorkLoop::post(std::function<void()> work) {
  postAfter(std::chrono::duration<double>::zero(), std::move(work));
}

WorkItem WorkLoop::postAfter(std::chrono::duration<double> delay, std::function<void()> work) {
  WorkItem item(std::move(work));
  MutexLock held(lock);
  // The clock is read under the lock, so that arrival and time agree on the order.
  pending.add(DueWork::dueAfter(now(), delay), item);
  changed.broadcast();
  return item;
}

bool WorkLoop::takeNext(WorkItem& work) {
  MutexLock held(lock);
  while (!stopped) {
    if (auto due = pending.takeDue(now())) {
      work = std::move(*due);
      return true;
    }
    if (const auto next = pending.nextDue()) {
      changed.waitUntil(lock, Clock::time_point(*next));
    } else {
      changed.wait(lock);
    }
  }
  return false;
}

bool WorkLoop::runNext() {
  WorkItem work;
  if (!takeNext(work)) return false;
  work.run();
  return true;
}

void WorkLoop::stop() {
  MutexLock held(lock);
  stopped = true;
  changed.broadcast();
}

void WorkLoop::resume() {
  MutexLock held(lock);
  stopped = false;
}

bool WorkLoop::isStopped() const {
  MutexLock held(lock);
  return stopped;
}

}  // namespace quon
