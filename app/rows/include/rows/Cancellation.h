#pragma once

#include <cstdint>

#include "base/FunctionRef.h"

namespace quon {

/// Asks whether to give up, once in a while: walks of the tree call it for each folder and file that they come
/// to. Threads: confined to the walk's.
class Cancellation {
 public:
  static constexpr std::uint64_t kRowsBetweenQuestions = 1024;

  explicit Cancellation(FunctionRef<bool()> cancelled) : isCancelled(cancelled) {}

  /// True when the walk is to be given up.
  [[nodiscard]] bool afterRows(std::uint64_t count = 1) {
    rows += count;
    if (rows < kRowsBetweenQuestions) return false;
    rows = 0;
    return isCancelled();
  }

 private:
  FunctionRef<bool()> isCancelled;
  std::uint64_t rows = 0;
};

}  // namespace quon
