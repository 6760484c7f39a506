#include "client/RecorderConnection.h"

#include <array>
#include <cerrno>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <utility>

#include "wire/RecorderSocket.h"

namespace quon {
namespace {

constexpr std::size_t kReadBytes = 65536;

}  // namespace

std::optional<RecorderConnection> RecorderConnection::open(const std::string& stateFolder) {
  Descriptor socket = connectToRecorder(stateFolder);
  if (!socket.isOpen()) {
    if (errno == ENOENT || errno == ENOTDIR || errno == ECONNREFUSED) return std::nullopt;
    throw std::system_error(errno, std::generic_category(), "cannot connect to the recorder of changes");
  }
  return RecorderConnection(std::move(socket));
}

void RecorderConnection::send(const Request& request) {
  std::string frame;
  appendFrame(frame, request);
  for (std::size_t sent = 0; sent < frame.size();) {
    const ssize_t bytes = ::send(socket.get(), &frame[sent], frame.size() - sent, MSG_NOSIGNAL);
    if (bytes < 0 && errno == EINTR) continue;
    // The recorder has closed the connection; its last reply may say why.
    if (bytes < 0) return;
    sent += static_cast<std::size_t>(bytes);
  }
}

std::optional<Reply> RecorderConnection::receive() {
  std::array<char, kReadBytes> buffer;
  try {
    for (;;) {
      std::string_view left = std::string_view(received).substr(parsed);
      if (const auto frame = takeFrame(left)) {
        Reply reply = parseReply(*frame);
        parsed = received.size() - left.size();
        return reply;
      }
      received.erase(0, std::exchange(parsed, 0));
      const ssize_t bytes = ::recv(socket.get(), buffer.data(), buffer.size(), 0);
      if (bytes < 0 && errno == EINTR) continue;
      if (bytes <= 0) return std::nullopt;
      received.append(buffer.data(), static_cast<std::size_t>(bytes));
    }
  } catch (const MalformedMessage&) {
    return std::nullopt;
  }
}

bool RecorderConnection::hasMore() const {
  std::string_view left = std::string_view(received).substr(parsed);
  try {
    return takeFrame(left).has_value();
  } catch (const MalformedMessage&) {
    return true;
  }
}

void RecorderConnection::shutDown() const {
  ::shutdown(socket.get(), SHUT_RDWR);
}

}  // namespace quon
