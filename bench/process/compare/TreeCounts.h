#pragma once

#include <cstdint>

#include "compare/Contestant.h"
#include "compare/PrivateFolder.h"

namespace quon::bench {

/// What the tree contains, as the floor counts it: every name, also further names of the same file.
struct TreeCounts {
  std::uint64_t files = 0;
  std::uint64_t folders = 0;   ///< below the tree's own folder
  std::uint64_t logical = 0;   ///< bytes
  std::uint64_t physical = 0;  ///< bytes
};

/// Runs the floor once, uncounted, and reads the line that it prints. Unreadable entries are not in the
/// counts.
[[nodiscard]] TreeCounts countTree(const ContestantPaths& paths, const PrivateFolder& folder);

}  // namespace quon::bench
