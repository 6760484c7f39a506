#pragma once

#include <cstdint>
#include <span>

#include "scan/FileBatch.h"

namespace quon {

class Database;

/// The files of several folders as a table that SQL can read, so that one statement inserts them all. Binding
/// and stepping a statement for each of 1,000,000 files took 2.3 times as long as the insertion itself.
/// Threads: that of the connection. Outlives the statements that read it.
class BatchTable {
 public:
  struct Folder {
    std::int64_t id;  ///< of its row
    const FileBatch* files;
  };

  /// The columns are those of `files`, in their order.
  static constexpr const char* kInsertFiles =
      "INSERT INTO files (dir, name, logical, physical, mtime) SELECT dir, name, logical, physical, mtime "
      "FROM batch";

  /// Makes the table known to the connection as "batch".
  void attach(Database& database);
  /// What the table contains from now on; the folders outlive the statement's run.
  void fill(std::span<const Folder> given) { folders = given; }

  std::span<const Folder> folders;
};

}  // namespace quon
