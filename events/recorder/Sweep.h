#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Threads.h"
#include "watch/FolderWalk.h"

namespace quon {

/// A walk of a whole root by several threads, which places watches, finds what changed, or both.
/// Threads: the recorder's.
class Sweep {
 public:
  struct Settings {
    const ThreadService& threads;
    unsigned threadCount = 1;
    std::string root;
    int rootToken = 0;  ///< for the visitor
    const OwnFolders& own;
    std::uint32_t device = 0;
    FolderVisitor* visitor = nullptr;  ///< outlives the sweep; may be none
  };

  /// Begins at once. Without `changeTimes` nothing is found. `onEnd` is called once, on a thread of the
  /// sweep, when no thread works any more. Throws std::system_error.
  Sweep(const Settings& settings, std::unique_ptr<ChangeTimes> changeTimes, std::function<void()> onEnd);
  /// Cancels, and waits for the threads.
  ~Sweep();
  Sweep(const Sweep&) = delete;
  Sweep& operator=(const Sweep&) = delete;

  [[nodiscard]] bool isOver() const { return working == 0; }
  /// Once it is over: the changed folders.
  [[nodiscard]] std::vector<SweptFolder> take();

 private:
  const std::unique_ptr<ChangeTimes> times;
  FolderWalk walk;
  const std::function<void()> onEnd;
  std::atomic<unsigned> working;
  std::vector<std::unique_ptr<RunningThread>> threads;
};

}  // namespace quon
