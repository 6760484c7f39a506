#include "events/EventRecorder.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"
#include "recorder/RecorderLock.h"
#include "recorder/RecorderLoop.h"
#include "watch/Privilege.h"

namespace quon {
namespace {

constexpr int kRetryMs = 1000;

}  // namespace

struct EventRecorder::State {
  State(const ThreadService& service, Folders given, Log& lines, const EventOptions& how)
      : threads(service),
        folders(std::move(given)),
        log(lines),
        options(how),
        lock(folders.state),
        wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake.isOpen()) throw std::system_error(errno, std::generic_category(), "cannot start recording");
  }

  [[nodiscard]] const EventClock& clock() const {
    return options.clock == nullptr ? systemClock : *options.clock;
  }

  /// Waits for a program that has locked the journal to be done with it.
  void waitForJournal(const DatabaseError& failure) {
    if (failure.kind != DatabaseError::Kind::busy) throw failure;
    log.line("another program has locked the event journal in " + displayText(folders.state) +
             "; waiting for it to finish");
    pollfd wait{wake.get(), POLLIN, 0};
    ::poll(&wait, 1, kRetryMs);
  }

  /// Records until stopped; false when the lock no longer keeps others out.
  [[nodiscard]] bool record() {
    RecorderLoop loop(threads, folders, log, options, clock(), wake.get());
    while (!stopped) {
      if (!loop.turn() || !lock.isCurrent()) return false;
    }
    loop.finish();
    return true;
  }

  const ThreadService& threads;
  const Folders folders;
  Log& log;
  const EventOptions options;
  const SystemEventClock systemClock;
  RecorderLock lock;
  Descriptor wake;
  std::atomic<bool> stopped{false};
};

EventRecorder::EventRecorder(const ThreadService& threads, Folders folders, Log& log, EventOptions options)
    : state(std::make_unique<State>(threads, std::move(folders), log, options)) {}

EventRecorder::~EventRecorder() = default;

bool EventRecorder::tryBegin() {
  return state->lock.tryTake();
}

bool EventRecorder::waitToBegin() {
  return state->lock.wait();
}

int EventRecorder::otherRecorder() const {
  return RecorderLock::lastOwner(state->folders.state);
}

void EventRecorder::run() {
  Privilege::lower();
  while (!state->stopped) {
    try {
      if (state->record()) break;
      // The state folder was removed, and the lock with it: begin again with those that are there now.
      if (!state->lock.wait()) return;
    } catch (const DatabaseError& failure) {
      state->waitForJournal(failure);
    }
  }
  state->lock.release();
}

void EventRecorder::stop() {
  state->stopped = true;
  const std::uint64_t one = 1;
  // An eventfd below its limit takes the write.
  (void)!::write(state->wake.get(), &one, sizeof one);
  state->lock.interrupt();
}

}  // namespace quon
