#pragma once

#include <atomic>
#include <pthread.h>
#include <string>

#include "base/Mutex.h"
#include "linux_fs/Descriptor.h"

namespace quon {

/// The lock that makes one process a user the recorder of events: an exclusive flock on a file of the state
/// folder, which the kernel gives to a waiting process the moment its owner ends, however it ends.
///
/// Threads: tryTake, wait, release and isCurrent from one; interrupt from any.
class RecorderLock {
 public:
  explicit RecorderLock(const std::string& stateFolder);

  /// False when another process has it. Throws std::system_error.
  [[nodiscard]] bool tryTake();
  /// Waits until this process has the lock; false when it was interrupted. Throws std::system_error.
  [[nodiscard]] bool wait();
  /// Makes a wait end, now or when it begins. Not undone.
  void interrupt();

  void release();
  /// False when the file was removed or replaced, so that another could have a lock as well.
  [[nodiscard]] bool isCurrent() const;
  /// Of the process that took the lock last; 0 when unknown.
  [[nodiscard]] static int lastOwner(const std::string& stateFolder);

 private:
  [[nodiscard]] bool take(int operation);

  const std::string path;
  Descriptor file;
  std::atomic<bool> interrupted{false};
  Mutex lock;
  Condition ended;
  bool waiting QUON_GUARDED_BY(lock) = false;
  pthread_t waiter QUON_GUARDED_BY(lock){};
};

}  // namespace quon
