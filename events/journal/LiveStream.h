#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/DeliveryGate.h"
#include "base/Mutex.h"
#include "platform/Events.h"

namespace quon {

/// One stream of a client: where its reader is in the journal, and what is about to be delivered. Shared by
/// the stream, the reader and the work that it posts.
class LiveStream : public std::enable_shared_from_this<LiveStream> {
 public:
  LiveStream(EventRequest asked, BackgroundQueue& target, EventService::Callback function);

  /// One delivery, as soon as the queue comes to it.
  void deliver(std::vector<FolderEvent> events);
  /// Live events, delivered together when the stream's latency is over. Threads: any.
  void gather(const std::vector<FolderEvent>& events);
  /// Nothing is delivered and nothing posted any more: the queue may end.
  void close();

  enum class Phase : std::uint8_t {
    asking,   ///< the recorder has to be asked
    waiting,  ///< for its answer
    live,
    lost,  ///< that was delivered; nothing more comes
  };

  // The reader's.
  const EventRequest request;
  Phase phase = Phase::asking;
  std::int64_t requestKey = 0;
  std::uint64_t cursor;      ///< everything up to this identifier was delivered
  std::uint64_t lostId = 0;  ///< of the root, when the stream became live
  bool historyDelivered = false;

 private:
  void deliverGathered();
  void post(std::chrono::duration<double> delay, std::function<void()> work) QUON_REQUIRES(lock);

  const EventService::Callback callback;
  DeliveryGate gate;
  Mutex lock;
  BackgroundQueue* queue QUON_GUARDED_BY(lock);  // null when closed
  std::unordered_map<std::string, FolderEvent> gathered QUON_GUARDED_BY(lock);
};

}  // namespace quon
