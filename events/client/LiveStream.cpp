#include "client/LiveStream.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "base/BackgroundQueue.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 262144;
constexpr const char* kRecorderEnded = "the program that recorded changes has ended";

}  // namespace

LiveStream::LiveStream(EventRequest asked, BackgroundQueue& target, EventService::Callback function)
    : request(std::move(asked)), callback(std::move(function)), queue(&target) {}

void LiveStream::begin(const ThreadService& threads, RecorderConnection opened) {
  const MutexLock held(lock);
  if (queue == nullptr) return;
  connection.emplace(std::move(opened));
  thread = threads.start("quon-events", kStackBytes, [this] { receive(); });
}

void LiveStream::lose(const std::string& reason) {
  takeLoss({.path = request.root, .flags = EventFlag::userDropped, .id = request.since, .reason = reason});
}

void LiveStream::receive() {
  connection->send(FollowRequest{.root = request.root, .since = request.since});
  while (auto reply = connection->receive()) {
    if (auto* const refusal = std::get_if<Refusal>(&*reply)) return lose(refusal->reason);
    auto* const event = std::get_if<FolderEvent>(&*reply);
    if (event == nullptr) break;
    if (!take(std::move(*event))) return;
  }
  lose(kRecorderEnded);
}

bool LiveStream::take(FolderEvent event) {
  if ((event.flags & EventFlag::lostTrack) != 0) {
    takeLoss(std::move(event));
    return false;
  }
  const bool isDone = (event.flags & EventFlag::historyDone) != 0;
  arrived.push_back(std::move(event));
  if (isDone) {
    historyDelivered = true;
    deliver(std::exchange(arrived, {}));
  } else if (historyDelivered && !connection->hasMore()) {
    gather();
  }
  return true;
}

void LiveStream::takeLoss(FolderEvent event) {
  if (historyDelivered) {
    // That what was gathered before comes after it does no harm: nothing is made of it any more.
    if (event.flags == EventFlag::rootChanged && !request.watchRoot) return;
    deliver({std::move(event)});
    return;
  }
  FolderEvent done{.path = request.root, .flags = EventFlag::historyDone, .id = event.id};
  std::vector<FolderEvent> events{std::move(event), std::move(done)};
  deliver(std::move(events));
}

/// The thread may be about to post when the stream is stopped, and the queue ends after that. So it posts
/// under the lock; a queue runs nothing inside.
void LiveStream::post(std::chrono::duration<double> delay, std::function<void()> work) {
  if (queue != nullptr) queue->postAfter(delay, std::move(work));
}

void LiveStream::close() {
  std::unique_ptr<RunningThread> ending;
  {
    const MutexLock held(lock);
    queue = nullptr;
    ending = std::move(thread);
  }
  if (ending) {
    connection->shutDown();
    ending->join();
  }
  gate.close();
}

void LiveStream::deliver(std::vector<FolderEvent> events) {
  const MutexLock held(lock);
  post({}, [self = shared_from_this(), events = std::move(events)] {
    self->gate.pass([&] { self->callback(events); });
  });
}

void LiveStream::gather() {
  const MutexLock held(lock);
  const bool isFirst = gathered.empty();
  for (FolderEvent& event : arrived) {
    FolderEvent& kept = gathered[event.path];
    const std::uint32_t flags = kept.flags | event.flags;
    kept = std::move(event);
    kept.flags = flags;
  }
  arrived.clear();
  if (isFirst) post(request.latency, [self = shared_from_this()] { self->deliverGathered(); });
}

void LiveStream::deliverGathered() {
  std::vector<FolderEvent> events;
  {
    const MutexLock held(lock);
    for (auto& [path, event] : gathered) events.push_back(std::move(event));
    gathered.clear();
  }
  std::ranges::sort(events, {}, &FolderEvent::id);
  gate.pass([&] { callback(events); });
}

}  // namespace quon
