#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "base/FunctionRef.h"
#include "base/RefPtr.h"
#include "rows/Entry.h"
#include "scan/DirNode.h"
#include "search/TokenQuery.h"

namespace quon {

// Searches the scan tree for folders and kept files. A folder matches by its totals and its own time, and
// only when the query names no kind.
//
// The search covers what lies below `root`, not `root` itself, which may be any folder of the tree;
// `rootPath` is the path of the tree's root as paths are built from it: "" for the file system's root. Terms
// are found anywhere in a full path, `rootPath` included, and compared as FoldedText.h describes.
//
// `cancelled` is called once at the start and then about every 1,024 rows; once it returns true the result is
// nullopt.
//
// Threads: any that may read the tree, which must not change meanwhile.

/// Returns the id of a kept file's kind. Called at most once for a file, when it matches in all else.
using KindOf = FunctionRef<std::string_view(const DirNode& folder, std::string_view fileName)>;

/// What a search found.
struct SearchHits {
  std::vector<Entry> rows;  ///< the largest in the metric, largest first; equal ones in the order of the tree
  std::size_t found = 0;    ///< how many match in all
};

/// The order of the tree: a folder, its kept files, then the folders in it. At most `cap` rows. Each carries
/// its full path.
[[nodiscard]] std::optional<SearchHits> search(const TokenQuery& query, const RefPtr<DirNode>& root,
                                               std::string_view rootPath, Metric metric, KindOf kindOf,
                                               FunctionRef<bool()> cancelled, std::size_t cap);

}  // namespace quon
