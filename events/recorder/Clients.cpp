#include "recorder/Clients.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

#include "base/Log.h"
#include "wire/RecorderSocket.h"

namespace quon {
namespace {

constexpr std::size_t kMostClients = 512;

Descriptor openSpare() {
  return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

Descriptor acceptFrom(const RecorderSocket& listener) {
  return Descriptor(::accept4(listener.descriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

}  // namespace

Clients::Clients(Log& lines) : log(lines), spare(openSpare()) {}

void Clients::addWaits(const RecorderSocket& listener, std::vector<pollfd>& to) {
  to.push_back({std::exchange(stalled, false) ? -1 : listener.descriptor(), POLLIN, 0});
  for (const auto& client : clients)
    to.push_back({client->connection.descriptor(), client->connection.events(), 0});
  polled = clients.size();
}

void Clients::take(const RecorderSocket& listener, const pollfd* found, std::uint64_t turn) {
  for (std::size_t index = 0; index < polled; ++index) {
    const short events = found[1 + index].revents;
    Client& client = *clients[index];
    if ((events & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
    client.waiting = client.connection.read();
    client.turn = turn;
  }
  if ((found[0].revents & POLLIN) != 0) accept(listener);
}

void Clients::accept(const RecorderSocket& listener) {
  for (;;) {
    if (clients.size() >= kMostClients) return refuseOne(listener);
    Descriptor socket = acceptFrom(listener);
    if (socket.isOpen()) {
      wasFull = false;
      if (isOfThisUser(socket)) {
        clients.push_back(
            std::make_unique<Client>(Client{.connection = ClientConnection(std::move(socket))}));
      }
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
      return refuseOne(listener);
    } else if (errno != EINTR && errno != ECONNABORTED) {
      return;
    }
  }
}

void Clients::refuseOne(const RecorderSocket& listener) {
  const std::string reason = clients.size() >= kMostClients
                                 ? "too many programs are connected"
                                 : std::error_code(errno, std::generic_category()).message();
  spare = Descriptor();
  {
    Descriptor socket = acceptFrom(listener);
    if (socket.isOpen()) {
      ClientConnection refused(std::move(socket));
      refused.send(Refusal{"the recorder of changes cannot serve another program: " + reason});
      refused.flush();
    } else {
      stalled = true;
    }
  }
  spare = openSpare();
  if (!std::exchange(wasFull, true)) log.line("cannot serve another program: " + reason);
}

void Clients::answer(const std::function<bool(const Waiting&)>& attempt) {
  for (const auto& client : clients) {
    if (!client->waiting || client->connection.isOver()) continue;
    if (!attempt({*client->waiting, client->turn, client->connection})) continue;
    if (auto* const follow = std::get_if<FollowRequest>(&*client->waiting)) {
      client->followed = std::move(follow->root);
    } else {
      client->connection.finish();
    }
    client->waiting.reset();
  }
}

void Clients::publish(const std::string& root, const std::vector<FolderEvent>& events, bool isLast) {
  for (const auto& client : clients) {
    if (client->followed != root || client->connection.isOver()) continue;
    client->connection.send(root, events);
    if (isLast) client->connection.finish();
  }
}

bool Clients::anyWaits() const {
  return std::ranges::any_of(clients, [](const auto& client) { return client->waiting.has_value(); });
}

bool Clients::anyFollows(const std::string& root) const {
  return std::ranges::any_of(
      clients, [&](const auto& client) { return client->followed == root && !client->connection.isOver(); });
}

void Clients::flush() {
  for (const auto& client : clients) client->connection.flush();
  std::erase_if(clients, [](const auto& client) { return client->connection.isOver(); });
}

}  // namespace quon
