#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "floor/OpenFolder.h"

namespace quon::bench {

/// A folder to open: its parent, which it holds, and its name, which the parent keeps.
struct UnopenedFolder {
  OpenFolder* parent;
  const char* name;
};

/// The folders that wait, last in first out, so that few parents stay open at a time.
/// Threads: any. All fields are guarded by `lock`.
class FolderStack {
 public:
  /// `poppers` is how many threads call pop: the walk is over when all of them wait.
  explicit FolderStack(unsigned poppers) : threads(poppers) {}

  void push(std::span<const UnopenedFolder> batch);

  /// Waits for a folder. Nothing once the walk is over or abandoned.
  [[nodiscard]] std::optional<UnopenedFolder> pop();

  /// Makes every pop, also those that wait, return nothing.
  void abandon();

 private:
  const unsigned threads;
  std::mutex lock;
  std::condition_variable changed;
  std::vector<UnopenedFolder> waiting;
  unsigned idle = 0;
  bool over = false;
};

}  // namespace quon::bench
