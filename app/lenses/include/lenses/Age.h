#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "rows/Entry.h"

namespace quon {

// How long ago things changed. Times are whole seconds since 1970. Threads: any; `ageScan` reads the tree,
// which must not change meanwhile.

/// "12d" below 60 days, "4 mo" (of 30 days) below 365, then "2.3 yr" (of 365). "0d" for a time to come.
[[nodiscard]] std::string humanAge(std::int64_t mtime, std::int64_t now);

/// The folders below `scope` in which nothing is as new as `cutoff`, each without what it contains, and the
/// kept files older than it in all other folders; largest first in the metric, equal ones in the tree's
/// order. A time of 0 or less is unknown, hence not old. `rootPath` as in rows/FolderRows.h. `cancelled` is
/// called at every 1,024th folder or file; nullopt when it returned true.
[[nodiscard]] std::optional<std::vector<Entry>> ageScan(const RefPtr<DirNode>& scope,
                                                        std::string_view rootPath, std::int64_t cutoff,
                                                        Metric metric,
                                                        const std::function<bool()>& cancelled);

}  // namespace quon
