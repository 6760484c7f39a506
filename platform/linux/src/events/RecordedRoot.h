#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "RootWatch.h"
#include "Sweep.h"
#include "platform_linux/EventJournal.h"
#include "platform_linux/LinuxEvents.h"

namespace quon {

class Log;

/// What all roots of a recorder share.
struct RecorderContext {
  const OwnFolders& own;
  const EventClock& clock;
  EventIds& ids;
  Log& log;
  EventBackEnd backEnd;
  unsigned sweepThreads;
  std::function<void()> wake;  ///< any thread: lets the recorder look at its sweeps
};

/// One root under watch: from the moment it is asked for, through the placing of its watches and the sweep
/// that closes the gap, to being covered, and back again when the kernel drops events.
///
/// Threads: the recorder's.
class RecordedRoot {
 public:
  RecordedRoot(const RecorderContext& shared, WatchedRoot stored);

  [[nodiscard]] const std::string& path() const { return stored.path; }
  /// -1 when nothing is watched.
  [[nodiscard]] int descriptor() const { return watch ? watch->descriptor() : -1; }

  void ask(const JournalRequest& request, std::uint64_t turn);

  /// Reads what the kernel tells; `turn` counts the rounds of the recorder's loop.
  void drain(std::uint64_t turn);
  /// Follows up on what drain() has found, on a sweep that ended, and on requests. A root that nobody asked
  /// for since the recorder began is not placed before `mayBegin` says so.
  void advance(EventJournal& journal, bool mayBegin);
  [[nodiscard]] bool isSweeping() const { return sweep != nullptr; }
  /// It waits to be placed.
  [[nodiscard]] bool isWaiting() const { return isNew; }
  void mountsChanged(const std::vector<std::string>& points);
  void clockStepped(const ClockStep& step);
  /// There is something to do before the kernel tells anything.
  [[nodiscard]] bool isBusy() const { return watch && !drained; }

  void collect(FolderChanges& into);
  /// There is something to write besides changed folders.
  [[nodiscard]] bool wantsWriting() const;
  /// Writes it in the recorder's transaction, after the changed folders.
  void write(EventJournal& journal);
  /// The transaction is done.
  void written();
  /// From now on the next transaction tells up to when the root is good.
  void touch() { rowChanged = true; }
  /// The journal was begun anew: it knows nothing of this root.
  void journalReplaced();

 private:
  enum class Phase { unwatched, placing, covered, reaching };
  struct Pending {
    JournalRequest request;
    std::uint64_t turn;
  };
  /// What a sweep found, until it is in the journal.
  struct Found {
    std::vector<SweptFolder> folders;
    std::size_t written = 0;
    std::size_t ending = 0;  ///< of the piece that is being written
  };

  /// Begins to watch, closing the gap since the root was covered last.
  void place(EventJournal& journal);
  [[nodiscard]] std::unique_ptr<RootWatch> makeWatch(std::unique_ptr<const WatchTree> known);
  void startWatch(std::unique_ptr<const WatchTree> known, std::optional<std::uint64_t> since);
  void startSweep(std::optional<std::uint64_t> since, int rootToken, FolderVisitor& visitor);
  void recover();
  void endSweep();
  void checkPlace();
  void lose(std::uint32_t flags, const std::string& reason);
  void loseToLimit();
  /// The flags of an answer, or none when only a sweep since then tells.
  [[nodiscard]] std::optional<std::uint32_t> answerTo(std::uint64_t since, EventJournal& journal);
  void answerRequests(EventJournal& journal);

  const RecorderContext& context;
  WatchedRoot stored;
  bool rowChanged = false;
  bool contributed = false;  // changed folders, whose transaction is to tell up to when the root is good
  Phase phase = Phase::unwatched;
  bool isNew = true;
  std::uint64_t device = 0;
  bool trusted = false;  // the file system's change times
  std::unique_ptr<RootWatch> watch;
  std::unique_ptr<FolderVisitor> onlooker;  // of a sweep that places nothing
  std::unique_ptr<Sweep> sweep;             // uses watch or onlooker
  std::vector<std::string> appeared;        // to be told with what the sweep finds
  std::optional<Found> found;
  std::uint64_t sweepBegan = 0;               // wall clock
  std::optional<std::uint64_t> coveredAfter;  // the sweep; none: since it ended
  bool drained = false;
  std::uint64_t drainedTurn = 0;
  std::vector<Pending> requests;
  std::vector<std::pair<std::int64_t, std::uint32_t>> answers;
};

}  // namespace quon
