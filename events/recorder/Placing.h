#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Threads.h"
#include "watch/FolderWalk.h"

namespace quon {

/// A walk of a whole root by several threads, which places watches. Threads: the recorder's.
class Placing {
 public:
  struct Settings {
    const ThreadService& threads;
    std::string root;
    const OwnFolders& own;
    std::uint32_t device = 0;
    FolderVisitor* visitor = nullptr;  ///< outlives it
  };

  /// Begins at once. `onEnd` is called once, on a thread of its own, when no thread works any more. Throws
  /// std::system_error.
  Placing(const Settings& settings, std::function<void()> onEnd);
  /// Cancels, and waits for the threads.
  ~Placing();
  Placing(const Placing&) = delete;
  Placing& operator=(const Placing&) = delete;

  [[nodiscard]] bool isOver() const { return working == 0; }

 private:
  FolderWalk walk;
  const std::function<void()> onEnd;
  std::atomic<unsigned> working;
  std::vector<std::unique_ptr<RunningThread>> threads;
};

}  // namespace quon
