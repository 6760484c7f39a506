#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "floor/OpenDirectory.h"

namespace quon::bench {

/// A folder to open: its parent, of which it has a reference, and its name, which the parent keeps.
struct PendingDirectory {
  OpenDirectory* parent;
  const char* name;
};

/// The folders still to be listed, last in first out, so that few parents stay open at a time.
/// Threads: any. All fields are guarded by `lock`.
class PendingDirectories {
 public:
  /// `callers` is how many threads call pop: the walk is over when all of them wait.
  explicit PendingDirectories(unsigned callers) : threads(callers) {}

  void push(std::span<const PendingDirectory> batch);

  /// Waits for a folder. Nothing once the walk is over or abandoned.
  [[nodiscard]] std::optional<PendingDirectory> pop();

  /// Makes every pop, also those that wait, return nothing.
  void abandon();

 private:
  const unsigned threads;
  std::mutex lock;
  std::condition_variable changed;
  std::vector<PendingDirectory> waiting;
  unsigned idle = 0;
  bool over = false;
};

}  // namespace quon::bench
