#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FolderWalk.h"
#include "platform/Threads.h"

namespace quon {

/// A walk of a whole tree by several threads. Threads: those of the recorder; the end is told from a thread
/// of the sweep.
class Sweep {
 public:
  /// Begins at once. `onEnd` is called once, when no thread works any more.
  Sweep(const std::string& root, const FolderWalk::Settings& settings, int rootToken, unsigned threadCount,
        std::function<void()> onEnd);
  /// Cancels, and waits for the threads.
  ~Sweep();
  Sweep(const Sweep&) = delete;
  Sweep& operator=(const Sweep&) = delete;

  [[nodiscard]] bool isOver() const { return working == 0; }
  /// Once it is over: the changed folders.
  [[nodiscard]] std::vector<SweptFolder> take();

 private:
  FolderWalk walk;
  const std::function<void()> onEnd;
  std::vector<std::unique_ptr<FolderWalk::Worker>> workers;
  std::atomic<int> working{0};
  std::vector<std::unique_ptr<RunningThread>> threads;
};

}  // namespace quon
