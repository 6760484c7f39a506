#include "wire/Message.h"

#include <cstring>
#include <type_traits>

namespace quon {
namespace {

enum class Type : std::uint8_t { follow = 1, cover, id, event, coverage, issuedId, refusal };

/// A path, a reason, and the numbers beside them.
constexpr std::size_t kLongestFrame = kLongestPath + 4096;
constexpr std::size_t kLongestReason = 2048;

/// Writes a frame; its destructor sets the length.
class Writer {
 public:
  Writer(std::string& to, Type type) : bytes(to), begin(to.size()) {
    number(std::uint32_t{0});
    number(type);
  }
  ~Writer() {
    const auto length = static_cast<std::uint32_t>(bytes.size() - begin - sizeof(std::uint32_t));
    std::memcpy(&bytes[begin], &length, sizeof length);
  }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  template <typename Number>
  void number(Number value) {
    static_assert(std::is_integral_v<Number> || std::is_enum_v<Number>);
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void text(std::string_view value) {
    number(static_cast<std::uint32_t>(value.size()));
    bytes.append(value);
  }

 private:
  std::string& bytes;
  const std::size_t begin;
};

class Reader {
 public:
  explicit Reader(std::string_view frame) : left(frame) {}

  template <typename Number>
  [[nodiscard]] Number number() {
    const std::string_view raw = take(sizeof(Number));
    Number value{};
    std::memcpy(&value, raw.data(), sizeof value);
    return value;
  }
  [[nodiscard]] std::string text(std::size_t longest) {
    const auto length = number<std::uint32_t>();
    if (length > longest) throw MalformedMessage("a text is too long");
    return std::string(take(length));
  }
  /// As a root of the file system's tree is written.
  [[nodiscard]] std::string path() {
    std::string value = text(kLongestPath);
    if (!value.starts_with('/') || value.find('\0') != std::string::npos)
      throw MalformedMessage("not an absolute path");
    return value;
  }
  void end() const {
    if (!left.empty()) throw MalformedMessage("a message is longer than it should be");
  }

 private:
  std::string_view take(std::size_t count) {
    if (left.size() < count) throw MalformedMessage("a message is shorter than it should be");
    const std::string_view taken = left.substr(0, count);
    left.remove_prefix(count);
    return taken;
  }

  std::string_view left;
};

void append(std::string& to, const FollowRequest& request) {
  Writer frame(to, Type::follow);
  frame.number(request.since);
  frame.text(request.root);
}
void append(std::string& to, const CoverRequest& request) {
  Writer frame(to, Type::cover);
  frame.number(static_cast<std::uint8_t>(request.wait ? 1 : 0));
  frame.text(request.root);
}
void append(std::string& to, const IdRequest&) {
  const Writer frame(to, Type::id);
}
void append(std::string& to, const FolderEvent& event) {
  Writer frame(to, Type::event);
  frame.number(event.flags);
  frame.number(event.id);
  frame.text(event.path);
  frame.text(std::string_view(event.reason).substr(0, kLongestReason));
}
void append(std::string& to, const Coverage& coverage) {
  Writer frame(to, Type::coverage);
  frame.number(coverage.since);
  frame.text(std::string_view(coverage.reason).substr(0, kLongestReason));
}
void append(std::string& to, const IssuedId& issued) {
  Writer frame(to, Type::issuedId);
  frame.number(issued.id);
}
void append(std::string& to, const Refusal& refusal) {
  Writer frame(to, Type::refusal);
  frame.text(std::string_view(refusal.reason).substr(0, kLongestReason));
}

FolderEvent readEvent(Reader& from) {
  FolderEvent event;
  event.flags = from.number<std::uint32_t>();
  event.id = from.number<std::uint64_t>();
  event.path = from.path();
  event.reason = from.text(kLongestReason);
  return event;
}

}  // namespace

void appendFrame(std::string& to, const Request& request) {
  std::visit([&](const auto& each) { append(to, each); }, request);
}
void appendFrame(std::string& to, const Reply& reply) {
  std::visit([&](const auto& each) { append(to, each); }, reply);
}

std::optional<std::string_view> takeFrame(std::string_view& bytes) {
  std::uint32_t length = 0;
  if (bytes.size() < sizeof length) return std::nullopt;
  std::memcpy(&length, bytes.data(), sizeof length);
  if (length > kLongestFrame) throw MalformedMessage("a message is too long");
  if (bytes.size() - sizeof length < length) return std::nullopt;
  const std::string_view frame = bytes.substr(sizeof length, length);
  bytes.remove_prefix(sizeof length + length);
  return frame;
}

Request parseRequest(std::string_view frame) {
  Reader from(frame);
  Request request;
  switch (from.number<Type>()) {
    case Type::follow: {
      const auto since = from.number<std::uint64_t>();
      request = FollowRequest{.root = from.path(), .since = since};
      break;
    }
    case Type::cover: {
      const auto wait = from.number<std::uint8_t>();
      if (wait > 1) throw MalformedMessage("not a mode");
      request = CoverRequest{.root = from.path(), .wait = wait == 1};
      break;
    }
    case Type::id:
      request = IdRequest{};
      break;
    default:
      throw MalformedMessage("not a request");
  }
  from.end();
  return request;
}

Reply parseReply(std::string_view frame) {
  Reader from(frame);
  Reply reply;
  switch (from.number<Type>()) {
    case Type::event:
      reply = readEvent(from);
      break;
    case Type::coverage: {
      const auto since = from.number<std::uint64_t>();
      reply = Coverage{.since = since, .reason = from.text(kLongestReason)};
      break;
    }
    case Type::issuedId:
      reply = IssuedId{.id = from.number<std::uint64_t>()};
      break;
    case Type::refusal:
      reply = Refusal{.reason = from.text(kLongestReason)};
      break;
    default:
      throw MalformedMessage("not a reply");
  }
  from.end();
  return reply;
}

}  // namespace quon
