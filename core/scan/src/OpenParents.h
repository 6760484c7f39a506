#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Directories.h"

namespace quon {

/// The folders that a walk keeps open for their children, which are opened relative to them. Bounded, since
/// descriptors are; children of others are opened by their path. Outlives all that it keeps. Threads: any.
class OpenParents {
 public:
  /// A share of what the process may have open, so that everything else in it has its own.
  explicit OpenParents(std::size_t openFileLimit);

  /// The reference that the folder's waiting children share and whose last copy closes it; none at the bound.
  [[nodiscard]] OpenDirectoryRef keep(const OpenDirectoryRef& directory);
  /// From now on at most half as many: descriptors are short. None in the end.
  void keepFewer();

 private:
  std::atomic<std::int64_t> most;
  std::atomic<std::int64_t> open{0};
};

}  // namespace quon
