#include "base/ManualQueue.h"

#include <algorithm>
#include <optional>
#include <type_traits>
#include <utility>

#include "base/MainThread.h"

namespace quon {

template <typename Queue>
void ManualQueueOf<Queue>::post(std::function<void()> work) {
  postAfter(std::chrono::duration<double>::zero(), std::move(work));
}

template <typename Queue>
WorkItem ManualQueueOf<Queue>::postAfter(std::chrono::duration<double> delay, std::function<void()> work) {
  WorkItem item(std::move(work));
  MutexLock held(lock);
  pending.add(DueWork::dueAfter(clock, delay), item);
  changed.broadcast();
  return item;
}

template <typename Queue>
void ManualQueueOf<Queue>::advance(std::chrono::duration<double> duration) {
  const std::chrono::nanoseconds end = DueWork::dueAfter(now(), duration);
  while (const auto work = takeUntil(end)) run(*work);
  MutexLock held(lock);
  clock = std::max(clock, end);  // work may have advanced further
}

template <typename Queue>
void ManualQueueOf<Queue>::runPosted() {
  while (const auto work = takeUntil(now())) run(*work);
}

template <typename Queue>
void ManualQueueOf<Queue>::runUntil(const std::function<bool()>& predicate) {
  while (!predicate()) run(waitForDue());
}

template <typename Queue>
void ManualQueueOf<Queue>::run(const WorkItem& work) {
  if constexpr (std::is_same_v<Queue, MainQueue>) {
    const MainThreadWork mainThreadWork;
    work.run();
  } else {
    work.run();
  }
}

template <typename Queue>
std::optional<WorkItem> ManualQueueOf<Queue>::takeUntil(std::chrono::nanoseconds end) {
  MutexLock held(lock);
  const auto due = pending.nextDue();
  auto work = pending.takeDue(end);
  if (work) clock = std::max(clock, *due);
  return work;
}

template <typename Queue>
WorkItem ManualQueueOf<Queue>::waitForDue() {
  MutexLock held(lock);
  for (;;) {
    if (auto work = pending.takeDue(clock)) return std::move(*work);
    changed.wait(lock);
  }
}

template <typename Queue>
std::chrono::nanoseconds ManualQueueOf<Queue>::now() const {
  MutexLock held(lock);
  return clock;
}

template <typename Queue>
std::size_t ManualQueueOf<Queue>::pendingCount() const {
  MutexLock held(lock);
  return pending.pendingCount();
}

template class ManualQueueOf<MainQueue>;
template class ManualQueueOf<BackgroundQueue>;

}  // namespace quon
