#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "journal/JournalFile.h"

namespace quon {

/// Keeps in the journal's file what the next recorder needs, as far as the file can be written: a failure is
/// logged once and tried again later, less and less often. Threads: one at a time.
class JournalKeeper {
 public:
  using Clock = std::chrono::steady_clock;

  JournalKeeper(std::string stateFolder, Log& log);

  /// What an earlier recorder has left; nothing when it cannot be read.
  [[nodiscard]] JournalContent load();
  /// This has to be in the file. Writes what differs from it, unless the last attempt has failed just now.
  void keep(JournalContent content);
  /// The file, or its folder, may have been replaced.
  void check();
  /// When to call retry(); none when nothing is due.
  [[nodiscard]] std::optional<Clock::time_point> due() const { return nextAttempt; }
  void retry();

 private:
  void write();
  void addUnread();
  void takeFailure(const DatabaseError& failure);
  void failed(const std::string& reason);

  const std::string stateFolder;
  Log& log;
  std::optional<JournalFile> file;
  bool wasRead = false;   ///< what the file contained, by load() or before the first write
  JournalContent unread;  ///< of that, what load() could not return: it stays in the file
  JournalContent wanted;
  std::optional<JournalContent> written;  ///< by this keeper, to the file that is there
  std::optional<Clock::time_point> nextAttempt;
  Clock::duration pause;
  bool wasLogged = false;
};

}  // namespace quon
