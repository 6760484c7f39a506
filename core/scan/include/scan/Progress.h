#pragma once

#include <cstdint>
#include <string>

#include "base/Mutex.h"

namespace quon {

class DirNode;

/// The counters of a running scan. Threads: any.
class Progress {
 public:
  struct Snapshot {
    std::uint64_t dirs = 0;     ///< folders finished
    std::uint64_t files = 0;    ///< files counted
    std::uint64_t logical = 0;  ///< bytes of those
    std::uint64_t errors = 0;   ///< folders that failed
    std::string currentPath;    ///< the folder finished last; "" before the first
  };
  [[nodiscard]] Snapshot snapshot() const QUON_EXCLUDES(lock);

  /// The scan's root path: set before the first folder is finished.
  void begin(std::string root) QUON_EXCLUDES(lock);
  void folderFinished(const DirNode& node) QUON_EXCLUDES(lock);
  void folderFailed() QUON_EXCLUDES(lock);
  /// Drops the reference to the tree, whose owner may free it from now on.
  void end() QUON_EXCLUDES(lock);

 private:
  [[nodiscard]] std::string pathOfCurrent() const QUON_REQUIRES(lock);

  mutable Mutex lock;
  std::uint64_t dirs QUON_GUARDED_BY(lock) = 0;
  std::uint64_t files QUON_GUARDED_BY(lock) = 0;
  std::uint64_t logical QUON_GUARDED_BY(lock) = 0;
  std::uint64_t errors QUON_GUARDED_BY(lock) = 0;
  std::string rootPath QUON_GUARDED_BY(lock);
  // While the scan runs, the path is built only in snapshot(): building it for each of 100,000 nested
  // folders would take longer than listing them. Names and parents of finished folders do not change.
  const DirNode* current QUON_GUARDED_BY(lock) = nullptr;
  std::string currentPath QUON_GUARDED_BY(lock);
};

}  // namespace quon
