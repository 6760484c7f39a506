#include "recorder/ClientConnection.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <utility>

namespace quon {
namespace {

constexpr std::size_t kReadBytes = 65536;
constexpr const char* kTooSlow = "more has changed than the program has read so far";

}  // namespace

ClientConnection::ClientConnection(Descriptor accepted) : socket(std::move(accepted)) {}

short ClientConnection::events() const {
  return static_cast<short>(sent < queued.size() ? POLLIN | POLLOUT : POLLIN);
}

std::optional<Request> ClientConnection::read() {
  std::array<char, kReadBytes> buffer;
  const ssize_t bytes = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
  if (bytes < 0 && (errno == EAGAIN || errno == EINTR)) return std::nullopt;
  if (bytes <= 0 || asked) {
    over = true;  // one request a connection
    return std::nullopt;
  }
  received.append(buffer.data(), static_cast<std::size_t>(bytes));
  try {
    std::string_view left = received;
    const auto frame = takeFrame(left);
    if (!frame) return std::nullopt;
    if (!left.empty()) throw MalformedMessage("more than one request");
    Request request = parseRequest(*frame);
    asked = true;
    received = {};
    return request;
  } catch (const MalformedMessage&) {
    over = true;
    return std::nullopt;
  }
}

void ClientConnection::send(const Reply& reply) {
  if (!finished) appendFrame(queued, reply);
}

void ClientConnection::send(const std::string& root, const std::vector<FolderEvent>& events) {
  for (const FolderEvent& event : events) {
    if (finished) return;
    if (queued.size() - sent > kMostQueued) {
      send(FolderEvent{.path = root, .flags = EventFlag::userDropped, .id = event.id, .reason = kTooSlow});
      return finish();
    }
    send(event);
  }
}

void ClientConnection::finish() {
  finished = true;
  if (queued.empty()) over = true;
}

void ClientConnection::flush() {
  while (sent < queued.size()) {
    const ssize_t bytes =
        ::send(socket.get(), &queued[sent], queued.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (bytes < 0 && errno == EINTR) continue;
    if (bytes < 0 && (errno == EAGAIN || errno == ENOBUFS)) break;
    if (bytes < 0) {
      over = true;
      return;
    }
    sent += static_cast<std::size_t>(bytes);
  }
  if (sent < queued.size()) {
    // Moved down now and then: what was sent must not pile up.
    if (sent > queued.size() / 2) queued.erase(0, std::exchange(sent, 0));
    return;
  }
  queued = {};
  sent = 0;
  if (finished) over = true;
}

}  // namespace quon
