#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "rows/Entry.h"

namespace quon {

// Rows of a folder of the scan tree. `rootPath` is the path of the tree's root as paths are built from it: ""
// for the file system's root. Threads: any that may read the tree.

/// The child folders and kept files, largest first in the metric, at most `cap`; then, when it is not empty,
/// the row for all that is not listed. Equal sizes keep folders before files and the tree's order.
[[nodiscard]] std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::string_view rootPath,
                                              Metric metric, std::size_t cap);

/// The largest kept files of the folder's whole subtree, largest first in the metric, at most `cap`.
[[nodiscard]] std::vector<Entry> largestFiles(const RefPtr<DirNode>& node, std::string_view rootPath,
                                              Metric metric, std::size_t cap);

}  // namespace quon
