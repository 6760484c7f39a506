#pragma once

#include <cstdint>

#include "IndexTotals.h"
#include "database/Database.h"

namespace quon {

/// Begins a statement over `sub`, the ids of a folder, which is its first parameter, and of all below it.
/// UNION, not UNION ALL: it ends even in a damaged index whose folders go in circles.
inline constexpr const char* kSubtreeSQL =
    "WITH RECURSIVE sub(id) AS (\n"
    "  SELECT ? UNION SELECT d.id FROM dirs d JOIN sub ON d.parent = sub.id\n"
    ") ";

/// Deletes the rows of folders, of all below them, and of their files and links. Threads: that of the
/// connection.
class SubtreeDeletion {
 public:
  explicit SubtreeDeletion(Database& database);
  /// Takes what was deleted out of the totals.
  void run(std::int64_t folder, IndexTotals& totals);

 private:
  Statement links;
  Statement files;
  Statement folders;
};

/// The rows of "dir, name, logical, physical, mtime" and of "id, parent, name, mtime, error" as the totals
/// count them.
[[nodiscard]] IndexTotals::File fileOf(const Statement& row);
[[nodiscard]] IndexTotals::Folder folderOf(const Statement& row);

/// The totals of the index, from its metadata or, of an early version, summed up.
[[nodiscard]] IndexTotals readTotals(Database& database);

}  // namespace quon
