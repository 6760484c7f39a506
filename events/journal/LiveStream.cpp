#include "journal/LiveStream.h"

#include <algorithm>
#include <utility>

#include "base/BackgroundQueue.h"

namespace quon {

LiveStream::LiveStream(EventRequest asked, BackgroundQueue& target, EventService::Callback function)
    : request(std::move(asked)), cursor(request.since), callback(std::move(function)), queue(&target) {}

/// The reader may be about to post when the stream is stopped, and the queue ends after that. So it posts
/// under the lock; a queue runs nothing inside.
void LiveStream::post(std::chrono::duration<double> delay, std::function<void()> work) {
  if (queue != nullptr) queue->postAfter(delay, std::move(work));
}

void LiveStream::close() {
  {
    MutexLock held(lock);
    queue = nullptr;
  }
  gate.close();
}

void LiveStream::deliver(std::vector<FolderEvent> events) {
  MutexLock held(lock);
  post({}, [self = shared_from_this(), events = std::move(events)] {
    self->gate.pass([&] { self->callback(events); });
  });
}

void LiveStream::gather(const std::vector<FolderEvent>& events) {
  if (events.empty()) return;
  MutexLock held(lock);
  const bool isFirst = gathered.empty();
  for (const FolderEvent& event : events) {
    FolderEvent& kept = gathered[event.path];
    const std::uint32_t flags = kept.flags | event.flags;
    kept = event;
    kept.flags = flags;
  }
  if (isFirst) post(request.latency, [self = shared_from_this()] { self->deliverGathered(); });
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
