#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "events/EventClock.h"
#include "events/EventOptions.h"
#include "journal/FolderJournal.h"
#include "recorder/Placing.h"
#include "watch/RootWatch.h"

namespace quon {

class Log;

/// What all roots of a recorder share.
struct RecorderContext {
  const OwnFolders& own;
  EventIds& ids;
  Log& log;
  const ThreadService& threads;
  EventBackEnd backEnd;
  std::function<void()> wake;  ///< any thread: ends the recorder's wait
};

/// One root: untried, then its watches are being placed, then it is covered; unwatched, for a reason, when
/// they cannot be placed or track was lost.
///
/// Threads: the recorder's.
class RecordedRoot {
 public:
  RecordedRoot(const RecorderContext& shared, std::string path);

  [[nodiscard]] const std::string& path() const { return root; }
  /// -1 when nothing is watched.
  [[nodiscard]] int descriptor() const;

  /// A client wants it covered: an unwatched root is tried again.
  void ask();
  /// Reads the kernel's events; `turn` counts the rounds of the recorder's loop.
  void drain(std::uint64_t turn);
  /// Follows up on what drain() has found and on watches that were placed. Watches of a root that no client
  /// has asked this recorder for are not placed before `mayBegin`.
  void advance(bool mayBegin);
  void mountsChanged(const std::vector<std::string>& points);

  [[nodiscard]] bool isPlacing() const { return std::holds_alternative<BeingPlaced>(phase); }
  [[nodiscard]] bool isCovered() const { return std::holds_alternative<Covered>(phase); }
  /// It has not been tried yet.
  [[nodiscard]] bool isUntried() const;
  /// There is something to do without another event.
  [[nodiscard]] bool isBusy() const;
  /// Everything that happened before the round is in the journal, or it is not covered.
  [[nodiscard]] bool isDrained(std::uint64_t turn) const;

  /// What changed since the last call, with identifiers, for those who follow it. When track was lost, the
  /// last says so, with its flags.
  [[nodiscard]] std::vector<FolderEvent> takeEvents();
  /// What clients are answered.
  [[nodiscard]] Coverage coverage() const;
  /// The changed folders since then and historyDone; or that they are not known, with historyDone.
  [[nodiscard]] std::vector<FolderEvent> history(std::uint64_t since);
  /// That they are not known.
  [[nodiscard]] static std::vector<FolderEvent> lostHistory(FolderEvent loss);

 private:
  /// A watch at work.
  struct Watched {
    std::unique_ptr<RootWatch> watch;
    bool drained = false;           ///< the kernel's queue was read to its end,
    std::uint64_t drainedTurn = 0;  ///< last in this round
  };
  struct Unwatched {
    bool untried = true;
    std::string reason = {};
  };
  struct BeingPlaced {
    Watched watched;
    std::unique_ptr<Placing> walk;  // uses the watch; none when it is over
  };
  struct Covered {
    Watched watched;
  };
  using Phase = std::variant<Unwatched, BeingPlaced, Covered>;

  [[nodiscard]] Watched* watched();
  [[nodiscard]] const Watched* watched() const;
  void place();
  [[nodiscard]] std::unique_ptr<RootWatch> makeWatch() const;
  void finishPlacing();
  void followProblems();
  void checkPlace();
  void lose(std::uint32_t flags, const std::string& reason);
  void overflowed();

  const RecorderContext& context;
  const std::string root;
  Phase phase = Unwatched{};
  FolderJournal journal;
  bool wasAsked = false;
  InodeIdentity identity;
  std::uint32_t device = 0;
  FolderChanges changes;            // until they get identifiers
  std::optional<FolderEvent> loss;  // not taken yet
  std::string logged;               // the reason why it is not covered; "" once it is
};

}  // namespace quon
