#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "events/EventJournal.h"
#include "events/EventOptions.h"
#include "recorder/Sweep.h"
#include "watch/RootWatch.h"

namespace quon {

class Log;

/// What all roots of a recorder share.
struct RecorderContext {
  const OwnFolders& own;
  const EventClock& clock;
  EventIds& ids;
  Log& log;
  const ThreadService& threads;
  EventBackEnd backEnd;
  std::function<void()> wake;  ///< any thread: ends the recorder's wait
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
  [[nodiscard]] int descriptor() const;

  void ask(const JournalRequest& request, std::uint64_t turn);

  /// Reads the kernel's events; `turn` counts the rounds of the recorder's loop.
  void drain(std::uint64_t turn);
  /// Follows up on what drain() has found, on a sweep that ended, and on requests. A root that nobody has
  /// asked for since the recorder began is not placed before `mayBegin`.
  void advance(EventJournal& journal, bool mayBegin);
  [[nodiscard]] bool isSweeping() const;
  /// It waits to be placed.
  [[nodiscard]] bool isWaiting() const;
  void mountsChanged(const std::vector<std::string>& points);
  void clockStepped(const ClockStep& step);
  /// There is something to do without another event.
  [[nodiscard]] bool isBusy() const;

  void collect(FolderChanges& into);
  /// There is something to write besides changed folders.
  [[nodiscard]] bool wantsWriting() const;
  /// Writes it in the recorder's transaction, after the changed folders.
  void write(EventJournal& journal);
  /// The transaction is done.
  void written();
  /// The next transaction records up to when the root is good.
  void touch() { rowChanged = true; }
  /// The journal was begun anew: it knows nothing of this root.
  void journalReplaced();

 private:
  /// A watch at work.
  struct Watched {
    std::unique_ptr<RootWatch> watch;
    bool drained = false;           ///< the kernel's queue was read to its end,
    std::uint64_t drainedTurn = 0;  ///< last in this round
  };
  /// A time from which not all changes are in the journal yet: swept first, then written.
  struct Gap {
    std::uint64_t began = 0;                  ///< wall clock
    std::optional<std::uint64_t> coversFrom;  ///< once it is closed; none: from then on
    std::vector<std::string> appeared;        ///< reported with what the sweep finds
    std::unique_ptr<Sweep> sweep;             ///< until it has ended
    std::vector<SweptFolder> found;
    std::size_t writtenCount = 0;
    std::size_t endOfWrite = 0;  ///< of the piece that is being written
  };

  /// `untried` until it has been placed for the first time.
  struct Unwatched {
    bool untried = false;
  };
  /// Watches are being placed; the gap reaches from the last recorder, or an overflow, to now.
  struct Placing {
    Watched watched;
    Gap gap;  // whose sweep uses the watch
  };
  /// Every change is recorded.
  struct Covered {
    Watched watched;
  };
  /// Covered, and a client has asked for changes from before the coverage began.
  struct Reaching {
    Watched watched;
    Gap gap;
  };
  using Phase = std::variant<Unwatched, Placing, Covered, Reaching>;

  struct Pending {
    JournalRequest request;
    std::uint64_t turn;
  };

  [[nodiscard]] Watched* watched();
  [[nodiscard]] const Watched* watched() const;
  [[nodiscard]] Gap* gap();
  [[nodiscard]] const Gap* gap() const;

  /// Begins to watch, closing the gap since the root was covered last.
  void place(EventJournal& journal);
  /// Since when a sweep has to find changes, of a root that was just opened; none: no sweep would help.
  [[nodiscard]] std::optional<std::uint64_t> beginOfGap(EventJournal& journal, Gap& gap);
  [[nodiscard]] std::unique_ptr<RootWatch> makeWatch() const;
  void startWatch(std::optional<std::uint64_t> since, Gap gap);
  void startSweep(FolderVisitor* visitor, std::optional<std::uint64_t> since);
  void followProblems();
  void recover();
  void endSweep();
  void checkPlace();
  void lose(std::uint32_t flags, const std::string& reason);
  /// The flags of an answer, or none when only a sweep since then finds what changed.
  [[nodiscard]] std::optional<std::uint32_t> answerTo(std::uint64_t since, EventJournal& journal);
  void answerRequests(EventJournal& journal);

  const RecorderContext& context;
  WatchedRoot stored;
  Phase phase = Unwatched{.untried = true};
  std::uint32_t device = 0;
  bool timesReliable = false;  // the file system's change times
  bool rowChanged = false;
  bool contributed = false;  // changed folders, whose transaction records up to when the root is good
  std::vector<Pending> requests;
  std::vector<std::pair<std::int64_t, std::uint32_t>> answers;
};

}  // namespace quon
