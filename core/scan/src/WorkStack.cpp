#include "WorkStack.h"

#include <iterator>
#include <utility>

namespace quon {

void WorkStack::push(std::vector<Work>& work) {
  if (work.empty()) return;
  const MutexLock held(lock);
  pending += static_cast<std::int64_t>(work.size());
  stack.insert(stack.end(), std::make_move_iterator(work.begin()), std::make_move_iterator(work.end()));
  if (idle > 0) cond.broadcast();
  work.clear();
}

std::optional<Work> WorkStack::pop() {
  const MutexLock held(lock);
  while (true) {
    if (pending == 0 || cancel.isCancelled()) return std::nullopt;
    if (!stack.empty()) {
      std::optional<Work> work(std::move(stack.back()));
      stack.pop_back();
      return work;
    }
    ++idle;
    cond.wait(lock);
    --idle;
  }
}

void WorkStack::finished() {
  const MutexLock held(lock);
  if (--pending == 0) cond.broadcast();
}

void WorkStack::waitUntilDone() {
  const MutexLock held(lock);
  while (pending >= 1 && !cancel.isCancelled()) cond.wait(lock);
}

bool WorkStack::hasMore() {
  const MutexLock held(lock);
  return !stack.empty();
}

void WorkStack::closeParents() {
  std::vector<OpenDirectoryRef> parents;  // closed when the lock is not held any more
  const MutexLock held(lock);
  for (Work& work : stack) {
    if (work.parent) parents.push_back(std::exchange(work.parent, nullptr));
  }
}

void WorkStack::wakeAll() {
  const MutexLock held(lock);
  cond.broadcast();
}

}  // namespace quon
