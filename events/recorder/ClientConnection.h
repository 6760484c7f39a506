#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "linux_fs/Descriptor.h"
#include "wire/Message.h"

namespace quon {

/// The recorder's end of a connection: reads the client's one request and queues what answers it. Never waits
/// for the client: one that does not read is sent, once too much is queued for it, that its events are lost.
///
/// Threads: the recorder's.
class ClientConnection {
 public:
  /// The queue's bound, in bytes.
  static constexpr std::size_t kMostQueued = 8U << 20U;

  /// A socket that does not block.
  explicit ClientConnection(Descriptor accepted);

  [[nodiscard]] int descriptor() const { return socket.get(); }
  /// What to poll for.
  [[nodiscard]] short events() const;
  /// Nothing is sent any more: the client has ended, broken the rules, or has got all that it asked for.
  [[nodiscard]] bool isOver() const { return over; }

  /// Reads what has arrived; the request, once it is whole.
  [[nodiscard]] std::optional<Request> read();
  void send(const Reply& reply);
  /// Events of a root that the client follows.
  void send(const std::string& root, const std::vector<FolderEvent>& events);
  /// What is queued is the last.
  void finish();
  /// Writes as much of the queue as the client takes.
  void flush();

 private:
  Descriptor socket;
  std::string received;
  std::string queued;
  std::size_t sent = 0;  // of the queue
  bool asked = false;
  bool finished = false;
  bool over = false;
};

}  // namespace quon
