#pragma once

#include <cstdint>
#include <string>

#include "linux_fs/Descriptor.h"

namespace quon {

// The recorder's socket in the state folder, "recorder.socket": a Unix stream socket, for the user alone.
// However long the folder's path is.

/// The name of the socket's file, without folder.
[[nodiscard]] const char* recorderSocketName();

/// Connects; not open, with errno, when nobody listens. Threads: any.
[[nodiscard]] Descriptor connectToRecorder(const std::string& stateFolder);

/// True when the process at the other end of a socket is the same user's. Threads: any.
[[nodiscard]] bool isOfThisUser(const Descriptor& socket);

/// The listening end. Only the owner of the recorder's lock makes one: it takes the place of what an earlier
/// one has left. Threads: one at a time.
class RecorderSocket {
 public:
  /// Clients can connect as soon as it is made. Throws std::system_error.
  explicit RecorderSocket(const std::string& stateFolder);

  /// Does not block.
  [[nodiscard]] int descriptor() const { return socket.get(); }
  /// False when its file was removed or replaced, so that no client finds it.
  [[nodiscard]] bool isInPlace() const;

 private:
  std::string path;
  Descriptor socket;
  std::uint64_t inode = 0;
};

}  // namespace quon
