#pragma once

#include <cstdint>

namespace quon {

/// The two clocks that identifiers rest on, in microseconds. Threads: any.
class EventClock {
 public:
  EventClock() = default;
  EventClock(const EventClock&) = delete;
  EventClock& operator=(const EventClock&) = delete;
  virtual ~EventClock() = default;

  /// Since 1970: may be set, forward and back.
  [[nodiscard]] virtual std::uint64_t wallMicros() const = 0;
  /// Since some moment: runs on while the machine sleeps and is never set.
  [[nodiscard]] virtual std::uint64_t steadyMicros() const = 0;
};

class SystemEventClock final : public EventClock {
 public:
  [[nodiscard]] std::uint64_t wallMicros() const override;
  [[nodiscard]] std::uint64_t steadyMicros() const override;
};

/// Hands out identifiers: the time, but always more than before. A wall clock that is set back does not set
/// them back: they go on from the highest time that it has shown. Threads: one at a time.
class EventIds {
 public:
  /// No identifier up to `last` is handed out.
  EventIds(const EventClock& source, std::uint64_t last);

  [[nodiscard]] std::uint64_t next();
  /// From now on only identifiers above `id`.
  void raise(std::uint64_t id);
  [[nodiscard]] std::uint64_t newest() const { return last; }
  /// True when they are ahead of the wall clock, which was set back.
  [[nodiscard]] bool isAhead() const;

 private:
  const EventClock& clock;
  std::uint64_t last;
  std::int64_t highestOffset;  // of the wall clock from the steady one
};

}  // namespace quon
