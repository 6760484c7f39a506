#include "events/EventRecorder.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "recorder/RecorderLoop.h"
#include "recorder/RecorderRole.h"
#include "watch/Privilege.h"

namespace quon {

struct EventRecorder::State {
  State(const ThreadService& service, Folders given, Log& lines, const EventOptions& how)
      : threads(service),
        folders(std::move(given)),
        log(lines),
        options(how),
        role(folders.state),
        wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake.isOpen()) throw std::system_error(errno, std::generic_category(), "cannot start recording");
  }

  [[nodiscard]] const EventClock& clock() const {
    return options.clock == nullptr ? systemClock : *options.clock;
  }

  /// Records until stopped; false when another process does by now.
  [[nodiscard]] bool record() {
    RecorderLoop loop(threads, folders, log, options, clock(), role, wake.get());
    while (!stopped) {
      if (!loop.turn()) return false;
    }
    loop.finish();
    return true;
  }

  const ThreadService& threads;
  const Folders folders;
  Log& log;
  const EventOptions options;
  const SystemEventClock systemClock;
  RecorderRole role;
  Descriptor wake;
  std::atomic<bool> stopped{false};
};

EventRecorder::EventRecorder(const ThreadService& threads, Folders folders, Log& log, EventOptions options)
    : state(std::make_unique<State>(threads, std::move(folders), log, options)) {}

EventRecorder::~EventRecorder() = default;

bool EventRecorder::tryBegin() {
  return state->role.tryTake();
}

bool EventRecorder::waitToBegin() {
  return state->role.wait();
}

int EventRecorder::otherRecorder() const {
  return RecorderLock::lastOwner(state->folders.state);
}

void EventRecorder::run() {
  Privilege::lower();
  try {
    while (!state->record()) {
      if (!state->role.wait()) return;
    }
  } catch (...) {
    state->role.release();
    throw;
  }
  state->role.release();
}

void EventRecorder::stop() {
  state->stopped = true;
  const std::uint64_t one = 1;
  // An eventfd below its limit takes the write.
  (void)!::write(state->wake.get(), &one, sizeof one);
  state->role.interrupt();
}

}  // namespace quon
