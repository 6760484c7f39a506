#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/DeliveryGate.h"
#include "base/Mutex.h"
#include "client/RecorderConnection.h"
#include "platform/Events.h"
#include "platform/Threads.h"

namespace quon {

/// One stream of a client: receives what the recorder sends, on a thread of its own, and delivers it on the
/// client's queue. Shared by the stream and the work that it posts.
///
/// Threads: run() and lose() one; close() any.
class LiveStream : public std::enable_shared_from_this<LiveStream> {
 public:
  LiveStream(EventRequest asked, BackgroundQueue& target, EventService::Callback function);

  /// Asks the recorder and begins to receive. Throws std::system_error.
  void begin(const ThreadService& threads, RecorderConnection opened);
  /// There is nothing to receive: history that says so.
  void lose(const std::string& reason);
  /// Nothing is delivered and nothing posted any more: the queue may end. Waits for the thread.
  void close();

  const EventRequest request;

 private:
  void receive();
  /// False for the last.
  [[nodiscard]] bool take(FolderEvent event);
  void takeLoss(FolderEvent event);
  void deliver(std::vector<FolderEvent> events);
  void gather();
  void deliverGathered();
  void post(std::chrono::duration<double> delay, std::function<void()> work) QUON_REQUIRES(lock);

  const EventService::Callback callback;
  DeliveryGate gate;

  // The receiving thread's.
  std::optional<RecorderConnection> connection;
  std::vector<FolderEvent> arrived;  ///< history until it is done, then what was received at once
  bool historyDelivered = false;

  Mutex lock;
  std::unique_ptr<RunningThread> thread QUON_GUARDED_BY(lock);
  BackgroundQueue* queue QUON_GUARDED_BY(lock);  // null when closed
  std::unordered_map<std::string, FolderEvent> gathered QUON_GUARDED_BY(lock);
};

}  // namespace quon
