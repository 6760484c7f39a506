#pragma once

#include <optional>
#include <string>
#include <utility>

#include "linux_fs/Descriptor.h"
#include "wire/Message.h"

namespace quon {

/// A client's end of a connection to the recorder, for one request. Threads: shutDown() any; all else one.
class RecorderConnection {
 public:
  /// None when nobody records. Throws std::system_error.
  [[nodiscard]] static std::optional<RecorderConnection> open(const std::string& stateFolder);

  void send(const Request& request);
  /// The next reply, waited for; none when the recorder has ended the connection, breaks the rules, or the
  /// connection was shut down.
  [[nodiscard]] std::optional<Reply> receive();
  /// A reply is here, or it costs no more than reading it.
  [[nodiscard]] bool hasMore() const;
  /// Ends the wait of receive(), now or when it begins. Not undone.
  void shutDown() const;

 private:
  explicit RecorderConnection(Descriptor connected) : socket(std::move(connected)) {}

  Descriptor socket;
  std::string received;
  std::size_t parsed = 0;  // of `received`
};

}  // namespace quon
