#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "database/Database.h"
#include "events/EventClock.h"
#include "linux_fs/InodeFacts.h"

namespace quon {

class Log;

/// One changed folder, as the journal contains it.
struct FolderMark {
  std::string path;
  std::uint64_t id = 0;      ///< of the newest change
  std::uint64_t deepId = 0;  ///< of the newest change that concerned everything below; 0 for none
};

/// A folder tree that some client has asked for.
struct WatchedRoot {
  std::string path;
  std::uint64_t asked = 0;  ///< wall clock, microseconds
  /// Every change from this identifier on is in the journal; none while there is a gap.
  std::optional<std::uint64_t> coveredSince;
  std::uint64_t goodUntil = 0;  ///< wall clock: every change before it is in the journal
  InodeIdentity identity;
  std::uint64_t lostId = 0;  ///< when track was lost last
  std::uint32_t lostFlags = 0;
};

/// A client's request to follow a root from an identifier on.
struct JournalRequest {
  std::int64_t key = 0;
  std::string root;
  std::uint64_t since = 0;
  bool answered = false;
  std::uint32_t flags = 0;  ///< of the answer: 0, or why the changes since then are not known
};

/// The event journal's file, journal.sqlite in the state folder. The one recorder writes marks, roots and
/// answers; clients write requests.
///
/// Threads: one at a time. Failures are DatabaseError, of which `damaged` calls for setAside(); the folder's
/// and the file's are std::system_error.
class EventJournal {
 public:
  [[nodiscard]] static std::string fileName();  ///< without folder

  /// Makes the folder and the file where they are missing, for the user alone. What is there and is not a
  /// journal of this format is set aside.
  [[nodiscard]] static EventJournal open(const std::string& stateFolder, Log& log);
  /// Renames the file; the next open() begins a new one.
  static void setAside(const std::string& stateFolder, Log& log);
  /// The newest identifier in the journal without making one; 0 when there is none to read.
  [[nodiscard]] static std::uint64_t newestIdIn(const std::string& stateFolder);

  /// False when the file at the path is another one by now, or none, or was cut to nothing.
  [[nodiscard]] bool isCurrent() const;
  [[nodiscard]] Transaction begin() { return Transaction(database); }

  // Identifiers.
  [[nodiscard]] std::uint64_t newestId();
  void setNewestId(std::uint64_t id);
  void addStep(const ClockStep& step);
  /// True when the wall clock was set back past that time after it.
  [[nodiscard]] bool isAmbiguous(std::uint64_t time);

  // Changed folders.
  /// A change with a new identifier, larger than all before.
  void mark(std::string_view path, std::uint64_t id, bool deep);
  /// A change that a client with an identifier older than `id` has to see, and no other.
  void markOld(std::string_view path, std::uint64_t id, bool deep);
  /// The folders with an identifier larger than `id`, in the order of their identifiers.
  void changedSince(std::uint64_t id, const std::function<void(const FolderMark&)>& each);

  // Roots.
  [[nodiscard]] std::vector<WatchedRoot> roots();
  [[nodiscard]] std::optional<WatchedRoot> root(const std::string& path);
  void putRoot(const WatchedRoot& root);
  /// Drops the roots last asked for before that time, and the marks that no root has use for.
  void prune(std::uint64_t askedBefore);

  // Requests.
  [[nodiscard]] std::int64_t ask(const std::string& root, std::uint64_t since);
  [[nodiscard]] std::vector<JournalRequest> unanswered();
  [[nodiscard]] std::optional<JournalRequest> request(std::int64_t key);
  void answer(std::int64_t key, std::uint32_t flags);
  void withdraw(std::int64_t key);

 private:
  EventJournal(Database opened, std::string file, std::uint64_t fileInode);
  void prepareStatements();

  Database database;
  std::string path;
  std::uint64_t inode;
  Statement markStatement;
  Statement markOldStatement;
  Statement sinceStatement;
};

}  // namespace quon
