#pragma once

#include <chrono>
#include <cstdint>

#include "base/Mutex.h"

namespace quon {

/// How many workers a walk has at work. More than at first while those wait for the disk; when they compute
/// instead, the others pause, down to the first number; fewer, for good, when the process has no descriptor
/// left for one of them. Threads: any.
class Crew {
 public:
  /// Of one folder: how long the system took to list it, and how much of that it waited for the disk.
  struct Sample {
    std::chrono::nanoseconds whole{0};
    std::chrono::nanoseconds waited{0};
  };

  /// Begins with `first` workers, and never has more than `most`.
  Crew(unsigned first, unsigned most);

  // The thread that starts the workers.

  /// Waits until another worker is to be started: true, and it is at work from now on. False when the last
  /// one has left and none is to follow.
  [[nodiscard]] bool waitForVacancy() QUON_EXCLUDES(lock);
  /// The worker that was to be started could not be: from now on there are not more than now.
  void couldNotStart() QUON_EXCLUDES(lock);

  // The workers.

  /// One is measured; `hasMore` when folders wait that other workers could list. Pauses while there are more
  /// workers than there should be.
  void record(Sample sample, bool hasMore) QUON_EXCLUDES(lock);
  /// Out of descriptors. True when others are at work, which find more of them when the caller has ended; it
  /// has left then.
  [[nodiscard]] bool leaveToOthers() QUON_EXCLUDES(lock);
  /// The walk is over for this worker, and for all.
  void leaveAtEnd() QUON_EXCLUDES(lock);

 private:
  [[nodiscard]] unsigned atWork() const QUON_REQUIRES(lock) { return present - pausing; }
  void leave() QUON_REQUIRES(lock);
  void adjust(bool hasMore) QUON_REQUIRES(lock);

  const unsigned first;
  Mutex lock;
  Condition changed;
  unsigned most QUON_GUARDED_BY(lock);
  unsigned wanted QUON_GUARDED_BY(lock);
  unsigned present QUON_GUARDED_BY(lock) = 0;  ///< started, and not left
  unsigned pausing QUON_GUARDED_BY(lock) = 0;  ///< of those
  bool over QUON_GUARDED_BY(lock) = false;
  Sample sum QUON_GUARDED_BY(lock);  ///< of the samples since the last adjustment
  unsigned samples QUON_GUARDED_BY(lock) = 0;
};

}  // namespace quon
