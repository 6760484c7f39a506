#pragma once

#include <cstdint>

namespace quon {

class Database;

/// Begins a statement over `sub`, the ids of a folder, which is its first parameter, and of all below it.
/// UNION, not UNION ALL: it ends even in a damaged index whose folders go in circles.
inline constexpr const char* kSubtreeSQL =
    "WITH RECURSIVE sub(id) AS (\n"
    "  SELECT ? UNION SELECT d.id FROM dirs d JOIN sub ON d.parent = sub.id\n"
    ") ";

/// Deletes the rows of a folder, of all below it, and of their files and links.
void deleteSubtree(Database& database, std::int64_t folder);

}  // namespace quon
