#pragma once

#include <optional>
#include <string>

#include "recorder/RecorderLock.h"
#include "wire/RecorderSocket.h"

namespace quon {

/// What makes this process the user's recorder: the lock, and with it the socket at which clients find it.
/// Whoever has the lock is listening.
///
/// Threads: interrupt() any; all else one.
class RecorderRole {
 public:
  explicit RecorderRole(std::string stateFolder);

  /// False when another process has it. Throws std::system_error.
  [[nodiscard]] bool tryTake();
  /// Waits for it; false when the wait was interrupted. Throws std::system_error.
  [[nodiscard]] bool wait();
  void interrupt() { lock.interrupt(); }
  /// The state folder was changed: takes again what was removed of it. False when another process has the
  /// role by now. Throws std::system_error.
  [[nodiscard]] bool keep();
  void release();

  /// While this process has the role.
  [[nodiscard]] const RecorderSocket& socket() const { return *listener; }

 private:
  [[nodiscard]] bool listen(bool taken);

  const std::string stateFolder;
  RecorderLock lock;
  std::optional<RecorderSocket> listener;
};

}  // namespace quon
