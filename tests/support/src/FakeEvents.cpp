#include "support/FakeEvents.h"

#include <utility>

#include "base/BackgroundQueue.h"
#include "base/DeliveryGate.h"

namespace quon::test {
namespace {

/// What a stream and the work it posted share, so that work may outlive the stream.
struct Listener {
  Listener(BackgroundQueue& target, EventService::Callback function)
      : queue(target), callback(std::move(function)) {}

  BackgroundQueue& queue;
  const EventService::Callback callback;
  DeliveryGate gate;
};

void deliver(const std::shared_ptr<Listener>& to, std::vector<FolderEvent> events) {
  to->queue.post([to, events = std::move(events)] { to->gate.pass([&] { to->callback(events); }); });
}

}  // namespace

struct FakeEvents::Shared {
  mutable Mutex lock;
  std::vector<std::shared_ptr<Listener>> listeners QUON_GUARDED_BY(lock);
  std::vector<EventRequest> requests QUON_GUARDED_BY(lock);
};

class FakeEvents::Stream final : public EventStream {
 public:
  Stream(FakeEvents& events, std::shared_ptr<Listener> target)
      : owner(events), shared(events.shared), listener(std::move(target)) {}
  ~Stream() override { Stream::stop(); }

  bool start() override {
    if (owner.failStart) return false;
    {
      MutexLock held(shared->lock);
      shared->listeners.push_back(listener);
    }
    if (!owner.history.empty()) deliver(listener, owner.history);
    if (!owner.withholdHistoryDone) {
      deliver(listener, {{.path = "", .flags = EventFlag::historyDone, .id = owner.current}});
    }
    return true;
  }

  void stop() override {
    {
      MutexLock held(shared->lock);
      std::erase(shared->listeners, listener);
    }
    listener->gate.close();
  }

 private:
  FakeEvents& owner;  // only start() uses it
  std::shared_ptr<Shared> shared;
  std::shared_ptr<Listener> listener;
};

FakeEvents::FakeEvents() : shared(std::make_shared<Shared>()) {}
FakeEvents::~FakeEvents() = default;

void FakeEvents::push(const std::vector<FolderEvent>& events) {
  // Under the lock, so that no stream is stopped, and its queue ended, between the two; queues run nothing
  // inside.
  MutexLock held(shared->lock);
  for (const auto& listener : shared->listeners) deliver(listener, events);
}

std::vector<EventRequest> FakeEvents::requests() const {
  MutexLock held(shared->lock);
  return shared->requests;
}

std::unique_ptr<EventStream> FakeEvents::create(const EventRequest& request, BackgroundQueue& queue,
                                                Callback callback) {
  if (failCreate) return nullptr;
  {
    MutexLock held(shared->lock);
    shared->requests.push_back(request);
  }
  return std::make_unique<Stream>(*this, std::make_shared<Listener>(queue, std::move(callback)));
}

}  // namespace quon::test
