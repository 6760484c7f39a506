#include "floor/PendingDirectories.h"

namespace quon::bench {

void PendingDirectories::push(std::span<const PendingDirectory> batch) {
  unsigned toWake = 0;
  {
    const std::lock_guard held(lock);
    waiting.insert(waiting.end(), batch.begin(), batch.end());
    toWake = idle;
  }
  if (toWake == 0) return;
  if (batch.size() == 1) {
    changed.notify_one();
  } else {
    changed.notify_all();
  }
}

std::optional<PendingDirectory> PendingDirectories::pop() {
  std::unique_lock held(lock);
  if (waiting.empty() && !over) {
    if (++idle == threads) {
      over = true;
      changed.notify_all();
      return std::nullopt;
    }
    changed.wait(held, [&] { return over || !waiting.empty(); });
    --idle;
  }
  if (over) return std::nullopt;
  const PendingDirectory next = waiting.back();
  waiting.pop_back();
  return next;
}

void PendingDirectories::abandon() {
  {
    const std::lock_guard held(lock);
    over = true;
  }
  changed.notify_all();
}

}  // namespace quon::bench
