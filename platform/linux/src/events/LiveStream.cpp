#include "LiveStream.h"

#include <algorithm>
#include <utility>

#include "base/BackgroundQueue.h"

namespace quon {

LiveStream::LiveStream(EventRequest wish, BackgroundQueue& target, EventService::Callback function)
    : request(std::move(wish)), cursor(request.since), queue(target), callback(std::move(function)) {}

void LiveStream::deliver(std::vector<FolderEvent> events) {
  queue.post([self = shared_from_this(), events = std::move(events)] {
    self->gate.pass([&] { self->callback(events); });
  });
}

void LiveStream::gather(const std::vector<FolderEvent>& events) {
  if (events.empty()) return;
  {
    MutexLock held(lock);
    const bool isFirst = gathered.empty();
    for (const FolderEvent& event : events) {
      FolderEvent& kept = gathered[event.path];
      const std::uint32_t flags = kept.flags | event.flags;
      kept = event;
      kept.flags = flags;
    }
    if (!isFirst) return;
  }
  queue.postAfter(request.latency, [self = shared_from_this()] { self->deliverGathered(); });
}

void LiveStream::deliverGathered() {
  std::vector<FolderEvent> events;
  {
    MutexLock held(lock);
    for (auto& [path, event] : gathered) events.push_back(std::move(event));
    gathered.clear();
  }
  std::ranges::sort(events, {}, &FolderEvent::id);
  gate.pass([&] { callback(events); });
}

}  // namespace quon
