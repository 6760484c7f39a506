#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/WorkItem.h"

namespace quon {

/// The pending work of a queue, in the order in which it runs: by due time, and by arrival where times are
/// equal. Times count from an epoch that the queue chooses. The destructor cancels what is left, so that a
/// handle that outlives the queue keeps no captures alive. Our own, as neither Boost.Asio nor GLib keeps this
/// order, and neither lets a manual clock step to the next due time.
///
/// Threads: none of its own; a queue guards it with its lock. Taken work is run after the lock is released.
class DueWork {
 public:
  DueWork() = default;
  DueWork(const DueWork&) = delete;
  DueWork& operator=(const DueWork&) = delete;
  ~DueWork();

  void add(std::chrono::nanoseconds due, WorkItem work);
  /// When the first of the work is due; nullopt when there is none.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> nextDue() const;
  /// Takes the first of the work that is due at `now`.
  [[nodiscard]] std::optional<WorkItem> takeDue(std::chrono::nanoseconds now);
  /// How many are left that have not been cancelled.
  [[nodiscard]] std::size_t pendingCount() const;

  /// The time `delay` after `now`: `now` itself for a delay that is negative or not a number, and never
  /// further away than a hundred years, so that no sum overflows.
  [[nodiscard]] static std::chrono::nanoseconds dueAfter(std::chrono::nanoseconds now,
                                                         std::chrono::duration<double> delay);

 private:
  struct Entry {
    std::chrono::nanoseconds due;
    std::uint64_t sequence;
    WorkItem work;
  };
  static bool runsLater(const Entry& a, const Entry& b);

  std::vector<Entry> heap;  // the first to run is in front
  std::uint64_t nextSequence = 0;
};

}  // namespace quon
