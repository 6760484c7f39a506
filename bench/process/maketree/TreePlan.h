#pragma once

#include <cstdint>
#include <vector>

#include "maketree/Random.h"

namespace quon::bench {

/// A folder that will be made. Folders are known by their place in TreePlan::folders.
struct PlannedFolder {
  std::uint32_t firstChild = 0;   ///< 0: no folder inside (0 is the root, which is no child)
  std::uint32_t nextSibling = 0;  ///< 0: the last one
  std::uint32_t files = 0;        ///< names of files directly inside, second names of hard links included
};

/// Which folders lie in which and how many files each contains. No names yet.
/// Threads: immutable once planned.
struct TreePlan {
  /// The greatest number of files, and of folders, in a plan: sums of weights times files stay in
  /// 64 bits.
  static constexpr std::uint32_t greatestCount = 10'000'000;
  /// Folders lie at most this deep below the root.
  static constexpr std::size_t greatestDepth = 16;

  std::vector<PlannedFolder> folders;  ///< the first is the root; parents come before their children
};

/// `folderCount` folders below the root, `fileCount` files in all of them and the root. Depths have their
/// mean near 7, most folders are small, a few contain thousands.
[[nodiscard]] TreePlan planTree(std::uint32_t fileCount, std::uint32_t folderCount, Random& random);

}  // namespace quon::bench
