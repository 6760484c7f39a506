#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>

namespace quon {

class BackgroundQueue;

/// The bits of an event's flags.
namespace EventFlag {
constexpr std::uint32_t mustScanSubdirs = 0x01;  ///< everything below the folder may have changed: "deep"
constexpr std::uint32_t userDropped = 0x02;
constexpr std::uint32_t kernelDropped = 0x04;
constexpr std::uint32_t idsWrapped = 0x08;
constexpr std::uint32_t historyDone = 0x10;  ///< all changes since the requested identifier are delivered
constexpr std::uint32_t rootChanged = 0x20;  ///< the watched root was moved, removed, or mounted over
constexpr std::uint32_t mount = 0x40;
constexpr std::uint32_t unmount = 0x80;
/// Any of these means that changes may have been lost: the tree must be scanned again.
constexpr std::uint32_t lostTrack = 0xEE;

}  // namespace EventFlag

/// Something changed directly in a folder, or, with mustScanSubdirs, anywhere below it.
struct FolderEvent {
  std::string path;  ///< bytes, absolute
  std::uint32_t flags = 0;
  std::uint64_t id = 0;  ///< microseconds since 1970 made strictly increasing, so that ids only grow
  std::string reason = {};  ///< of lostTrack: what happened, and what to do about it; "" when unknown
};

/// Events of one folder tree from an identifier on: first, as history, the folders that changed since then,
/// each once with its newest identifier, then one event with historyDone, then live ones as they happen.
class EventStream {
 public:
  virtual ~EventStream() = default;  ///< stops

  /// False when the tree cannot be watched; the service's log contains the reason. Called once.
  [[nodiscard]] virtual bool start() = 0;
  /// No delivery begins or runs after it has returned, except one that calls it. May be called twice,
  /// from any thread.
  virtual void stop() = 0;
};

/// Where a stream begins and what it follows.
struct EventRequest {
  std::string root;                            ///< absolute, canonical, "/" for "/"
  std::uint64_t since = 0;                     ///< identifier to resume from
  std::chrono::duration<double> latency{0.0};  ///< how long to gather live events before a delivery
  bool watchRoot = true;  ///< report with rootChanged that the root itself was moved or removed
};

/// Whether changes below a root are recorded.
struct Coverage {
  std::uint64_t since = 0;  ///< from this identifier on no change is missed; 0 when changes are missed
  std::string reason = {};  ///< why they are, and what to do about it; "" when nobody records, or not yet
};

/// The desktop's journal of file-system events, with identifiers that can be resumed. Threads: any.
class EventService {
 public:
  using Callback = std::function<void(std::span<const FolderEvent>)>;

  virtual ~EventService() = default;

  /// A stream that is not started yet; it delivers on the queue, which outlives it. nullptr when there is no
  /// journal; the service's log contains the reason.
  [[nodiscard]] virtual std::unique_ptr<EventStream> create(const EventRequest& request,
                                                            BackgroundQueue& queue, Callback callback) = 0;
  /// The identifier of this moment: no event that happened before has a larger one.
  [[nodiscard]] virtual std::uint64_t currentEventId() = 0;

  enum class CoverMode : std::uint8_t {
    ask,   ///< whoever records begins with the root soon; returns at once
    wait,  ///< returns when the root is covered, cannot be, or the wait was stopped
  };
  /// Has the root recorded from now on. What is read from the disk after it has returned, together with the
  /// changes since the identifier that it returns, is the whole truth.
  [[nodiscard]] virtual Coverage cover(const std::string& root, CoverMode mode, std::stop_token stopped) = 0;
};

}  // namespace quon
