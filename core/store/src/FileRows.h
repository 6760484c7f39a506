#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "IndexTotals.h"
#include "database/Database.h"
#include "scan/FileEntry.h"

namespace quon {

/// What a stretch of consecutive rows of the files adds up to.
struct FileRows {
  /// Consecutive rows of one folder. A folder may have several.
  struct Run {
    std::int64_t folder = 0;
    std::uint64_t files = 0;
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::int64_t newest = 0;   ///< mtime, from 0 upwards
    std::uint64_t digest = 0;  ///< sum of fileDigest
    bool cacheTagged = false;  ///< one is called DirNode::kCacheTag
  };
  /// A file that is large enough to be kept.
  struct Kept {
    std::int64_t folder = 0;
    FileEntry file;
  };

  std::vector<Run> runs;
  std::vector<Kept> kept;
  IndexTotals totals;
};

/// Reads all files of an index in one pass, in the order of their row ids, by several connections at once: each
/// takes the next stretch that no other has. Threads: `read` any, each with its own connection, which see the
/// same state of the file; all else confined to one.
class FileRowsReader {
 public:
  FileRowsReader(Database& database, std::uint64_t minKeep);

  /// Reads until nothing is left. StoreError: incompatible for what no scan writes.
  void read(Database& database);
  /// Once every `read` has returned: the stretches in the order of their rows.
  [[nodiscard]] const std::vector<FileRows>& stretches() const { return all; }

 private:
  void readStretch(Statement& rows, FileRows& into) const;

  const std::uint64_t minKeep;
  std::int64_t first = 0;
  std::int64_t last = -1;
  std::vector<FileRows> all;
  std::atomic<std::size_t> next{0};
};

}  // namespace quon
