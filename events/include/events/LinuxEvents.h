#pragma once

#include <memory>

#include "events/EventOptions.h"
#include "platform/Events.h"
#include "platform/Folders.h"

namespace quon {

class Log;
class ThreadService;

/// The event journal of this user. What it delivers comes from the user's recorder; if no other process
/// records and this one may, it does, on a thread of its own, until the service is destroyed. A service that
/// may not record asks nobody to record a root for the sake of a stream; one that may has the roots of its
/// streams covered.
///
/// Threads: any. The thread service, the log and the streams' queues outlive the service; streams may outlive
/// it, but deliver nothing more.
class LinuxEvents final : public EventService {
 public:
  LinuxEvents(const ThreadService& threads, Folders folders, Log& log, EventOptions options = {});
  /// Stops every stream and the recording.
  ~LinuxEvents() override;

  [[nodiscard]] std::unique_ptr<EventStream> create(const EventRequest& request, BackgroundQueue& queue,
                                                    Callback callback) override;
  [[nodiscard]] std::uint64_t currentEventId() override;
  [[nodiscard]] Coverage cover(const std::string& root, CoverMode mode, std::stop_token stopped) override;

 private:
  struct Service;
  std::unique_ptr<Service> service;
};

}  // namespace quon
