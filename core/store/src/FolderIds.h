#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "database/Database.h"

namespace quon {

/// Begins a statement over `sub`, the ids of a folder, which is its first parameter, and of all below it;
/// UNION, not UNION ALL, so that a damaged index that goes in circles comes to an end.
inline constexpr const char* kSubtreeSQL =
    "WITH RECURSIVE sub(id) AS (\n"
    "  SELECT ? UNION SELECT d.id FROM dirs d JOIN sub ON d.parent = sub.id\n"
    ") ";

/// The row of the folder at `below`, a path relative to the root; "" is the root itself. StoreError (missing)
/// that names `path` when the index does not hold it.
[[nodiscard]] std::int64_t folderId(Database& database, std::string_view below, const std::string& path);

}  // namespace quon
