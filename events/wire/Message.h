#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "platform/Events.h"

namespace quon {

// What a client and the recorder send to each other. A message is a frame: its length in four bytes, then so
// many bytes, of which the first is its type. Numbers are in the machine's byte order: both ends are one
// machine. A connection carries one request and what answers it.
//
// Threads: any.

/// No path in a message is longer.
constexpr std::size_t kLongestPath = 1U << 20U;

/// The changes below a root from an identifier on. Answered by events: history, historyDone, live ones; a
/// lost one is the last.
struct FollowRequest {
  std::string root;
  std::uint64_t since = 0;
};
/// Answered by Coverage.
struct CoverRequest {
  std::string root;
  bool wait = false;  ///< until the root is covered, or cannot be
};
/// Answered by IssuedId.
struct IdRequest {};
using Request = std::variant<FollowRequest, CoverRequest, IdRequest>;

struct IssuedId {
  std::uint64_t id = 0;
};
/// The recorder cannot serve the client, whatever it asked for.
struct Refusal {
  std::string reason;
};
using Reply = std::variant<FolderEvent, Coverage, IssuedId, Refusal>;

/// The other end does not keep to the above.
class MalformedMessage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Appends a frame.
void appendFrame(std::string& to, const Request& request);
void appendFrame(std::string& to, const Reply& reply);

/// Takes the first frame off the front of `bytes` and returns what follows its length; none when it is not
/// whole yet. Throws MalformedMessage for one that is too long.
[[nodiscard]] std::optional<std::string_view> takeFrame(std::string_view& bytes);

/// Throw MalformedMessage.
[[nodiscard]] Request parseRequest(std::string_view frame);
[[nodiscard]] Reply parseReply(std::string_view frame);

}  // namespace quon
