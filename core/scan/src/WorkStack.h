#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "base/Mutex.h"
#include "base/RefPtr.h"
#include "platform/Directories.h"
#include "scan/DirNode.h"
#include "scan/ScanCancel.h"

namespace quon {

/// A folder waiting to be listed.
struct Work {
  DirNode* node = nullptr;
  OpenDirectoryRef parent;  ///< kept open until its children are open; none when too many are kept already
};

/// The walk's shared stack, last in, first out, so that the walk goes deep and few parents are kept open.
/// `pending` counts folders queued or being listed: at 0 the walk is complete. Threads: any.
class WorkStack {
 public:
  explicit WorkStack(const ScanCancel& cancellation) : cancel(cancellation) {}

  /// Takes the work over and leaves the vector empty.
  void push(std::vector<Work>& work) QUON_EXCLUDES(lock);
  /// The next folder; none when the walk is complete or cancelled.
  [[nodiscard]] std::optional<Work> pop() QUON_EXCLUDES(lock);
  /// Called when a popped folder has been listed.
  void finished() QUON_EXCLUDES(lock);
  void waitUntilDone() QUON_EXCLUDES(lock);
  /// True when folders wait that nobody has taken yet.
  [[nodiscard]] bool hasMore() QUON_EXCLUDES(lock);
  /// Lets go of the parents that are kept open: the folders that wait will be opened by their path.
  void closeParents() QUON_EXCLUDES(lock);
  /// Wakes all waiting threads, so that they check the cancellation.
  void wakeAll() QUON_EXCLUDES(lock);

 private:
  const ScanCancel& cancel;
  Mutex lock;
  Condition cond;
  std::vector<Work> stack QUON_GUARDED_BY(lock);
  std::int64_t pending QUON_GUARDED_BY(lock) = 0;
  std::int64_t idle QUON_GUARDED_BY(lock) = 0;  ///< workers waiting for work
};

}  // namespace quon
