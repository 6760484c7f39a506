#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "database/Database.h"

namespace quon {

class Log;

/// A folder tree that some client has asked for.
struct RootRecord {
  std::string path;
  std::uint64_t asked = 0;  ///< when last; wall clock, microseconds

  friend bool operator==(const RootRecord&, const RootRecord&) = default;
};

/// What outlives a recorder.
struct JournalContent {
  std::vector<RootRecord> roots;
  std::uint64_t newestId =
      0;  ///< no identifier above it has been handed out, unless the wall clock was past it

  friend bool operator==(const JournalContent&, const JournalContent&) = default;
};

/// The file journal.sqlite in the state folder: the roots to record, for the next recorder. What changed
/// below them is not in it: a recorder knows nothing of the time before it began.
///
/// Only the owner of the recorder's lock opens it. Threads: one at a time. Failures are DatabaseError and
/// std::system_error.
class JournalFile {
 public:
  [[nodiscard]] static std::string pathIn(const std::string& stateFolder);
  /// The newest identifier in the file, without making one or waiting for it; 0 when it cannot be had at
  /// once. Threads: any, whoever has the lock.
  [[nodiscard]] static std::uint64_t newestIdIn(const std::string& stateFolder);

  /// Makes the file when it is missing, for the user alone. A file that is no journal is set aside; one of
  /// another format is begun anew.
  [[nodiscard]] static JournalFile open(const std::string& stateFolder, Log& log);

  /// Renames the file, which is damaged; the next open() begins a new one.
  static void setAside(const std::string& stateFolder, Log& log);

  [[nodiscard]] JournalContent read();
  void write(const JournalContent& content);
  /// False when the file at the path is another one by now, or none.
  [[nodiscard]] bool isInPlace() const;

 private:
  JournalFile(Database opened, std::string file, std::uint64_t fileInode);

  Database database;
  std::string path;
  std::uint64_t inode;
};

}  // namespace quon
