#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

#include "events/EventJournal.h"
#include "events/EventOptions.h"
#include "journal/StateWatch.h"
#include "linux_fs/Descriptor.h"
#include "recorder/RecordedRoot.h"
#include "watch/MountTable.h"
#include "watch/OwnFolders.h"

namespace quon {

/// The recorder at work, while it has the lock. Threads: one; the wake descriptor may be written by any.
class RecorderLoop {
 public:
  /// Opens the journal and begins to watch the roots in it. `wake` is an eventfd that ends the wait of
  /// turn().
  RecorderLoop(const ThreadService& threads, const Folders& folders, Log& log, const EventOptions& options,
               const EventClock& clock, int wake);
  ~RecorderLoop();
  RecorderLoop(const RecorderLoop&) = delete;
  RecorderLoop& operator=(const RecorderLoop&) = delete;

  /// Waits for something to happen and does what it calls for. False when the state folder or the lock file
  /// was replaced: the lock that this process has keeps nobody else out.
  [[nodiscard]] bool turn();
  /// Writes what is known; the next recorder continues from there.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;

  void openJournal();
  void loadRoots();
  void loadRequests();
  [[nodiscard]] bool wait();
  [[nodiscard]] bool takeWaits();
  [[nodiscard]] int timeout() const;
  [[nodiscard]] bool readState();
  void noticeClock();
  void followRoots();
  [[nodiscard]] bool isDue() const;
  void writeJournal();
  void commit();
  void journalFailed(const DatabaseError& failure);

  const std::string stateFolder;
  Log& log;
  const EventClock& clock;
  const OwnFolders own;
  const int wake;
  StateWatch stateWatch;
  MountTable mountTable;
  Descriptor clockTimer;
  std::optional<EventJournal> journal;
  EventIds ids;
  RecorderContext context;
  std::vector<std::unique_ptr<RecordedRoot>> roots;
  std::vector<ClockStep> steps;  // not written yet
  FolderChanges changes;         // not written yet
  std::vector<pollfd> waits;
  std::uint64_t turnNumber = 0;
  Clock::time_point nextRead;   // of the roots' events
  Clock::time_point nextWrite;  // of changed folders
  std::optional<Clock::time_point> retry;
  std::string lastFailure;
  bool requestsWaiting = true;
  bool readNow = true;
  bool mustRing = true;  // clients may have missed the last ring of a recorder that was killed
};

}  // namespace quon
