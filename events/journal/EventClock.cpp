#include "events/EventClock.h"

#include <algorithm>
#include <time.h>

namespace quon {
namespace {

constexpr std::uint64_t kMicrosPerSecond = 1'000'000;
constexpr std::uint64_t kNanosPerMicro = 1000;
/// Between reading one clock and the other the thread may be held up; that is no step.
constexpr std::uint64_t kSmallestStep = 1'000'000;

std::uint64_t read(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kMicrosPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec) / kNanosPerMicro;
}

/// The wall clock is read first: a thread that is held up in between makes the offset too small, which the
/// highest one outlasts, and never too large.
std::int64_t offsetOf(const EventClock& clock) {
  const auto wall = static_cast<std::int64_t>(clock.wallMicros());
  return wall - static_cast<std::int64_t>(clock.steadyMicros());
}

}  // namespace

std::uint64_t SystemEventClock::wallMicros() const {
  return read(CLOCK_REALTIME);
}
std::uint64_t SystemEventClock::steadyMicros() const {
  return read(CLOCK_BOOTTIME);
}

EventIds::EventIds(const EventClock& source, std::uint64_t lastHandedOut)
    : clock(source), last(lastHandedOut), highestOffset(offsetOf(source)) {}

std::uint64_t EventIds::next() {
  highestOffset = std::max(highestOffset, offsetOf(clock));
  const auto now =
      static_cast<std::uint64_t>(static_cast<std::int64_t>(clock.steadyMicros()) + highestOffset);
  last = std::max(last + 1, now);
  return last;
}

void EventIds::raise(std::uint64_t id) {
  last = std::max(last, id);
}

bool EventIds::isAhead() const {
  return last > clock.wallMicros() + kSmallestStep;
}

}  // namespace quon
