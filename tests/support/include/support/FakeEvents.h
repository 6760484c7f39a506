#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "platform/Events.h"

namespace quon::test {

/// A journal of events that a test scripts. Every delivery is posted on the stream's queue, so that with a
/// manual queue the test decides when it happens.
///
/// Threads: push and the counts from any; the public fields are set before streams start.
class FakeEvents final : public EventService {
 public:
  FakeEvents();
  ~FakeEvents() override;

  /// Delivered word for word, in one go, when a stream starts; then historyDone, unless it is withheld.
  std::vector<FolderEvent> history;
  bool withholdHistoryDone = false;
  bool failCreate = false;  ///< create() yields nullptr
  bool failStart = false;   ///< start() yields false
  std::atomic<std::uint64_t> current{1};
  Coverage coverage{.since = 1};  ///< the answer of cover()

  /// One delivery to every stream that is started and not stopped.
  void push(const std::vector<FolderEvent>& events);

  /// What was asked of create(), in order.
  [[nodiscard]] std::vector<EventRequest> requests() const;

  [[nodiscard]] std::unique_ptr<EventStream> create(const EventRequest& request, BackgroundQueue& queue,
                                                    Callback callback) override;
  [[nodiscard]] std::uint64_t currentEventId() override { return current; }
  [[nodiscard]] Coverage cover(const std::string& /*root*/, CoverMode /*mode*/,
                               std::stop_token /*stopped*/) override {
    return coverage;
  }

 private:
  class Stream;
  struct Shared;
  std::shared_ptr<Shared> shared;
};

}  // namespace quon::test
