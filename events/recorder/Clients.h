#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <poll.h>
#include <string>
#include <vector>

#include "recorder/ClientConnection.h"

namespace quon {

class Log;
class RecorderSocket;

/// The programs that are connected to the recorder: what each has asked for, and who follows which root.
/// Threads: the recorder's.
class Clients {
 public:
  explicit Clients(Log& log);

  /// Appends what to poll for: `listener` first, then the connections.
  void addWaits(const RecorderSocket& listener, std::vector<pollfd>& to);
  /// Takes what poll() has found for these: accepts, reads requests, which count as made in the round `turn`,
  /// and writes.
  void take(const RecorderSocket& listener, const pollfd* found, std::uint64_t turn);

  /// A request that waits for its answer.
  struct Waiting {
    const Request& request;
    std::uint64_t turn;
    ClientConnection& connection;
  };
  /// Calls back for each; true when it was answered.
  void answer(const std::function<bool(const Waiting&)>& attempt);
  /// Events of a root, to all that follow it. One that is the last ends their streams.
  void publish(const std::string& root, const std::vector<FolderEvent>& events, bool isLast);
  [[nodiscard]] bool anyWaits() const;
  [[nodiscard]] bool anyFollows(const std::string& root) const;
  /// Writes what is queued, and drops the connections that are over.
  void flush();
  /// Not even a refusal is possible: the listener is left out of the next wait, which should be short.
  [[nodiscard]] bool isStalled() const { return stalled; }

 private:
  struct Client {
    ClientConnection connection;
    std::optional<Request> waiting = {};
    std::uint64_t turn = 0;
    std::string followed = {};  // root
  };
  void accept(const RecorderSocket& listener);
  void refuseOne(const RecorderSocket& listener);

  Log& log;
  std::vector<std::unique_ptr<Client>> clients;
  std::size_t polled = 0;  // of the clients
  Descriptor spare;        // closed to accept, and turn away, a client when there are no descriptors left
  bool wasFull = false;
  bool stalled = false;
};

}  // namespace quon
