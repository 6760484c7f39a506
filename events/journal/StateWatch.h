#pragma once

#include <string>

#include "linux_fs/Descriptor.h"

namespace quon {

/// Wakes whoever waits for the other side of the journal.
///
/// The write-ahead log itself cannot be the bell: its last frame is written before the commit shows, so that
/// whoever reads when the log changes may read too early, and is not woken again. Each side therefore rings a
/// bell after its commit: it writes a byte to a file that the other side watches. Clients do not wake each
/// other.
///
/// Threads: one at a time; ring() any.
class StateWatch {
 public:
  enum class Bell { clients, recorder };  ///< whom it wakes

  /// Throws std::system_error. The folder exists.
  StateWatch(std::string folder, Bell listenTo);

  /// Readable when there is news.
  [[nodiscard]] int descriptor() const { return notifier.get(); }

  struct News {
    bool rung = false;
    bool journalReplaced = false;  ///< the file was made, moved or removed; see EventJournal::isCurrent
    bool lockReplaced = false;     ///< the same of the recorder's lock
    bool folderGone = false;       ///< this watch has come to its end
  };
  /// What has happened since the last call; does not wait.
  [[nodiscard]] News read();

  /// Throws std::system_error.
  static void ring(const std::string& folder, Bell bell);

 private:
  void watchBell();

  std::string folder;
  std::string bellName;
  Descriptor notifier;
  int folderWatch = -1;
  int bellWatch = -1;
};

}  // namespace quon
