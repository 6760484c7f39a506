#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

#include "events/EventOptions.h"
#include "journal/StateWatch.h"
#include "recorder/Clients.h"
#include "recorder/JournalKeeper.h"
#include "recorder/RecordedRoot.h"
#include "watch/MountTable.h"
#include "watch/OwnFolders.h"

namespace quon {

class RecorderRole;

/// The recorder at work, while it has the role. Threads: one; the wake descriptor may be written by any.
class RecorderLoop {
 public:
  /// Begins with the roots of the journal's file. `wake` is an eventfd that ends the wait of turn(). Throws
  /// std::system_error.
  RecorderLoop(const ThreadService& threads, const Folders& folders, Log& log, const EventOptions& options,
               const EventClock& clock, RecorderRole& role, int wake);
  ~RecorderLoop();
  RecorderLoop(const RecorderLoop&) = delete;
  RecorderLoop& operator=(const RecorderLoop&) = delete;

  /// Waits for something to happen and does what it calls for. False when another process has the role by
  /// now. Throws std::system_error.
  [[nodiscard]] bool turn();
  /// Writes what the next recorder needs.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;

  struct Root {
    RecordedRoot recorded;
    std::uint64_t asked;  ///< when last; wall clock, microseconds
  };

  void loadRoots();
  void dropUnasked();
  [[nodiscard]] Root* rootFor(const std::string& path, bool mayAdd);
  void wait();
  [[nodiscard]] int timeout() const;
  [[nodiscard]] bool takeWaits();
  [[nodiscard]] bool keepRole();
  void followRoots();
  [[nodiscard]] bool answer(const Clients::Waiting& waiting);
  [[nodiscard]] bool answerCover(const CoverRequest& request, const Clients::Waiting& waiting);
  [[nodiscard]] bool answerFollow(const FollowRequest& request, const Clients::Waiting& waiting);
  [[nodiscard]] bool answerId(const Clients::Waiting& waiting);
  void keepJournal();

  const std::string stateFolder;
  Log& log;
  const EventClock& clock;
  const OwnFolders own;
  RecorderRole& role;
  const int wake;
  std::optional<StateWatch> stateWatch;
  MountTable mountTable;
  JournalKeeper keeper;
  EventIds ids;
  RecorderContext context;
  std::vector<std::unique_ptr<Root>> roots;
  Clients clients;
  std::vector<pollfd> waits;
  std::size_t firstRootWait = 0;
  std::uint64_t turnNumber = 0;
  std::uint64_t keptId = 0;    ///< no identifier above it was handed out ahead of the wall clock
  Clock::time_point nextRead;  // of the roots' events
  Clock::time_point nextDrop;  // of roots that nobody asks for
  bool readNow = true;
};

}  // namespace quon
