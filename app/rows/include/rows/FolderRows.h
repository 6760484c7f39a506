#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/FunctionRef.h"
#include "base/RefPtr.h"
#include "rows/Entry.h"

namespace quon {

// Rows of a folder of the scan tree. `rootPath` is the path of the tree's root as paths are built from it: ""
// for the file system's root. Threads: any that may read the tree.

/// The child folders and kept files, largest first in the metric, at most `cap`; then, when it is not empty,
/// the row for all that is not listed. Equal sizes keep folders before files and the tree's order. Of these
/// rows, those smaller than `least` are left out, though the one for the rest does not contain them.
[[nodiscard]] std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::string_view rootPath,
                                              Metric metric, std::size_t cap, std::uint64_t least = 0);

struct LargestFiles {
  std::vector<Entry> rows;  ///< largest first in the metric
  std::size_t found = 0;    ///< how many kept files there are
};

/// The largest kept files of the folder's whole subtree, at most `cap`. Nullopt when `cancelled` said so, as in
/// rows/Cancellation.h.
[[nodiscard]] std::optional<LargestFiles> largestFiles(const RefPtr<DirNode>& node, std::string_view rootPath,
                                                       Metric metric, std::size_t cap,
                                                       FunctionRef<bool()> cancelled);

}  // namespace quon
