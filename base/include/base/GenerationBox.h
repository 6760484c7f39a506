#pragma once

#include <cstdint>
#include <limits>

#include "base/Fatal.h"
#include "base/Mutex.h"

namespace quon {

/// Tells a background job whether its result is still wanted: who starts a job advances the box and hands the
/// new value to it, and the result counts only while that value is current. Starts at 0. Threads: any.
class GenerationBox {
 public:
  /// Makes every value captured before stale; returns the new one.
  std::int64_t advance() {
    MutexLock held(lock);
    QUON_CHECK(generation < std::numeric_limits<std::int64_t>::max(), "a generation counter overflows");
    return ++generation;
  }

  [[nodiscard]] std::int64_t current() const {
    MutexLock held(lock);
    return generation;
  }

  [[nodiscard]] bool isCurrent(std::int64_t captured) const { return current() == captured; }

 private:
  mutable Mutex lock;
  std::int64_t generation QUON_GUARDED_BY(lock) = 0;
};

}  // namespace quon
