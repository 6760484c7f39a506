// Phases: unwatched -> placing -> covered, and covered -> reaching -> covered when a client asks for changes
// from before the coverage began. An overflow of the kernel's queue leads from any of them back to placing,
// since the time up to which everything is in the journal; a loss that no sweep can make good leads to
// unwatched, until a client asks again.
//
// Identifiers of what a sweep finds: after placing, new ones, taken when the sweep is over, because a change
// that it found may be younger than any identifier handed out while it ran. After reaching back, the
// identifier at which the coverage begins: who resumes from before it has to see them, and nobody else.
//
// A request is answered when a round of the loop that began after it arrived has read the kernel's queue to
// its end and written what it found: then everything that happened before the request is in the journal.
#include "RecordedRoot.h"

#include <algorithm>
#include <fcntl.h>
#include <fmt/format.h>
#include <system_error>

#include "Privilege.h"
#include "base/Log.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/Events.h"

namespace quon {
namespace {

/// A change time is the time of the kernel's last tick, and the wall clock is corrected by small steps.
constexpr std::uint64_t kSweepMargin = 3'000'000;
constexpr std::uint64_t kClockTolerance = 1'000'000;
constexpr std::size_t kFoldersPerWrite = 2000;
constexpr std::uint32_t kRootLost = EventFlag::rootChanged | EventFlag::unmount;

/// Visits for a sweep of folders that have their watches.
class Onlooker final : public FolderVisitor {
 public:
  [[nodiscard]] std::optional<int> enter(int, int, std::string_view, const FolderIdentity&) override {
    return 0;
  }
  void refuse(int, std::string_view) override {}
  [[nodiscard]] bool wasThere(const std::string&, const FolderIdentity&) const override { return false; }
};

}  // namespace

RecordedRoot::RecordedRoot(const RecorderContext& shared, WatchedRoot known)
    : context(shared), stored(std::move(known)) {}

void RecordedRoot::ask(const JournalRequest& request, std::uint64_t turn) {
  const auto isThis = [&](std::int64_t key) { return key == request.key; };
  if (std::ranges::any_of(requests, isThis, [](const Pending& pending) { return pending.request.key; }))
    return;
  if (std::ranges::any_of(answers, isThis, [](const auto& answer) { return answer.first; })) return;
  requests.push_back({request, turn});
  stored.asked = context.clock.wallMicros();
  rowChanged = true;
}

std::unique_ptr<RootWatch> RecordedRoot::makeWatch(std::unique_ptr<const WatchTree> known) {
  RootWatchSettings settings{
      .root = stored.path, .own = context.own, .device = device, .known = std::move(known)};
  if (context.backEnd == EventBackEnd::fanotify) return makeFanotifyWatch(std::move(settings));
  if (context.backEnd == EventBackEnd::automatic && Privilege::isAtHand()) {
    try {
      return makeFanotifyWatch({.root = stored.path, .own = context.own, .device = device, .known = nullptr});
    } catch (const std::system_error& failure) {
      context.log.line(fmt::format("{}; watching each folder instead", failure.what()));
    }
  }
  return makeInotifyWatch(std::move(settings));
}

void RecordedRoot::place(EventJournal& journal) {
  isNew = false;
  const Descriptor folder = openFolder(AT_FDCWD, stored.path);
  FolderFacts facts;
  if (!folder.isOpen() || !readFacts(folder.get(), "", facts)) {
    lose(EventFlag::rootChanged, std::error_code(errno, std::generic_category()).message());
    return;
  }
  device = facts.device;
  trusted = keepsChangeTimes(folder.get());
  if (stored.identity != FolderIdentity() && stored.identity != facts.identity) {
    lose(EventFlag::rootChanged, "another folder took its place");
  }
  stored.identity = facts.identity;
  coveredAfter = std::exchange(stored.coveredSince, std::nullopt);
  std::optional<std::uint64_t> since;
  if (coveredAfter && trusted && stored.goodUntil <= context.clock.wallMicros()) {
    since = stored.goodUntil;
  } else {
    coveredAfter = std::nullopt;
    for (const Pending& pending : requests) {
      if (!answerTo(pending.request.since, journal) && (!since || pending.request.since < *since)) {
        since = coveredAfter = pending.request.since;
      }
    }
  }
  startWatch(nullptr, since);
}

void RecordedRoot::startWatch(std::unique_ptr<const WatchTree> known, std::optional<std::uint64_t> since) {
  try {
    watch = makeWatch(std::move(known));
    drained = false;
    phase = Phase::placing;
    sweepBegan = context.clock.wallMicros();
    startSweep(since, WatchTree::kNone, *watch);
  } catch (const std::system_error& failure) {
    lose(EventFlag::kernelDropped, failure.what());
  }
}

void RecordedRoot::startSweep(std::optional<std::uint64_t> since, int rootToken, FolderVisitor& visitor) {
  FolderWalk::Settings settings{
      .own = context.own, .visitor = visitor, .device = device, .changedSince = std::nullopt};
  if (since) settings.changedSince = static_cast<std::int64_t>(*since - std::min(*since, kSweepMargin));
  sweep = std::make_unique<Sweep>(stored.path, settings, rootToken, context.sweepThreads, context.wake);
}

void RecordedRoot::drain(std::uint64_t turn) {
  if (!watch) return;
  const std::uint64_t now = context.clock.wallMicros();
  drained = watch->drain();
  if (!drained) return;
  drainedTurn = turn;
  if (phase == Phase::covered || phase == Phase::reaching) stored.goodUntil = now;
}

void RecordedRoot::advance(EventJournal& journal, bool mayBegin) {
  if (watch) {
    const WatchTrouble trouble = watch->trouble();
    if (trouble.unmounted) {
      lose(EventFlag::unmount, "its file system was unmounted");
    } else if (trouble.limitReached) {
      loseToLimit();
    } else if (trouble.refused) {
      lose(EventFlag::kernelDropped, "the kernel refuses to watch it");
    } else if (trouble.rootMoved) {
      checkPlace();
    }
  }
  if (watch && watch->trouble().overflowed) recover();
  if (sweep && sweep->isOver()) endSweep();
  if (phase == Phase::unwatched && (!requests.empty() || (isNew && mayBegin))) place(journal);
  if (phase == Phase::covered && !found) answerRequests(journal);
}

void RecordedRoot::recover() {
  context.log.line(
      fmt::format("the kernel dropped events below {}; looking for what changed", displayText(stored.path)));
  const bool wasCovered = phase == Phase::covered || phase == Phase::reaching;
  if (wasCovered && !trusted) {
    lose(EventFlag::kernelDropped, "the kernel dropped events");
    return;
  }
  sweep = nullptr;
  // What was gathered before is still true; what a sweep was about to tell is found again.
  WatchRemains remains = watch->abandon();
  appeared.insert(appeared.end(), std::make_move_iterator(remains.appeared.begin()),
                  std::make_move_iterator(remains.appeared.end()));
  watch = nullptr;
  std::optional<std::uint64_t> since;
  if (wasCovered) {
    since = stored.goodUntil;
    coveredAfter = stored.coveredSince;
    stored.coveredSince = std::nullopt;
  } else {
    since = coveredAfter;
  }
  found = std::nullopt;
  startWatch(wasCovered ? std::move(remains.known) : nullptr, since);
}

void RecordedRoot::endSweep() {
  found = Found{.folders = sweep->take()};
  sweep = nullptr;
  onlooker = nullptr;
  for (std::string& path : appeared) found->folders.push_back({std::move(path), true});
  appeared.clear();
  if (phase == Phase::placing) checkPlace();
}

void RecordedRoot::mountsChanged(const std::vector<std::string>& points) {
  if (!watch) return;
  checkPlace();
  for (const std::string& point : points) {
    if (watch && point != stored.path && isInside(point, stored.path)) watch->mountChanged(point);
  }
  drained = false;
}

void RecordedRoot::clockStepped(const ClockStep& step) {
  stored.goodUntil = std::min(stored.goodUntil, step.low);
  sweepBegan = std::min(sweepBegan, step.low);
}

void RecordedRoot::checkPlace() {
  const Descriptor folder = openFolder(AT_FDCWD, stored.path);
  FolderFacts facts;
  if (folder.isOpen() && readFacts(folder.get(), "", facts) && facts.device == device &&
      facts.identity == stored.identity) {
    watch->rootIsInPlace();
    return;
  }
  lose(EventFlag::rootChanged, "it was moved, removed or mounted over");
}

void RecordedRoot::loseToLimit() {
  lose(EventFlag::kernelDropped,
       "it has more folders than you may watch: /proc/sys/fs/inotify/max_user_watches is too low; raise it "
       "with "
       "`sudo sysctl fs.inotify.max_user_watches=1048576`");
}

void RecordedRoot::lose(std::uint32_t flags, const std::string& reason) {
  // That a root of long ago is not there any more is of interest to nobody until it is asked for.
  if (phase != Phase::unwatched || !requests.empty()) {
    context.log.line(fmt::format("lost track of {}: {}", displayText(stored.path), reason));
  }
  sweep = nullptr;
  onlooker = nullptr;
  watch = nullptr;
  found = std::nullopt;
  appeared.clear();
  phase = Phase::unwatched;
  stored.coveredSince = std::nullopt;
  stored.lostId = context.ids.next();
  stored.lostFlags = flags;
  stored.identity = {};  // what comes to lie there next is not compared with it
  rowChanged = true;
  for (const Pending& pending : requests) answers.emplace_back(pending.request.key, flags);
  requests.clear();
}

std::optional<std::uint32_t> RecordedRoot::answerTo(std::uint64_t since, EventJournal& journal) {
  const std::uint64_t present = std::max(context.clock.wallMicros(), context.ids.newest());
  if (since > present + kClockTolerance) return EventFlag::idsWrapped;
  context.ids.raise(since);
  if ((stored.lostFlags & kRootLost) != 0 && since < stored.lostId) return stored.lostFlags;
  if (stored.coveredSince && *stored.coveredSince <= since) return 0;
  if (!trusted) return EventFlag::userDropped;
  if (journal.isAmbiguous(since)) return EventFlag::idsWrapped;
  if (stored.identity.bornMicros > 0 && static_cast<std::uint64_t>(stored.identity.bornMicros) > since) {
    return EventFlag::rootChanged;
  }
  return std::nullopt;
}

void RecordedRoot::answerRequests(EventJournal& journal) {
  std::optional<std::uint64_t> reach;
  std::erase_if(requests, [&](const Pending& pending) {
    if (drainedTurn < pending.turn) return false;
    const auto answer = answerTo(pending.request.since, journal);
    if (!answer) {
      reach = std::min(reach.value_or(pending.request.since), pending.request.since);
      return false;
    }
    answers.emplace_back(pending.request.key, *answer);
    return true;
  });
  if (!reach) return;
  phase = Phase::reaching;
  coveredAfter = reach;
  onlooker = std::make_unique<Onlooker>();
  startSweep(reach, 0, *onlooker);
}

void RecordedRoot::collect(FolderChanges& into) {
  if (!watch) return;
  const std::size_t before = into.size();
  watch->collect(into);
  if (into.size() != before) contributed = true;
}

bool RecordedRoot::wantsWriting() const {
  return found.has_value() || rowChanged || !answers.empty();
}

void RecordedRoot::write(EventJournal& journal) {
  if (found) {
    found->ending = std::min(found->folders.size(), found->written + kFoldersPerWrite);
    for (std::size_t at = found->written; at < found->ending; ++at) {
      const SweptFolder& folder = found->folders[at];
      if (phase == Phase::reaching) {
        journal.markOld(folder.path, *stored.coveredSince, folder.deep);
      } else {
        journal.mark(folder.path, context.ids.next(), folder.deep);
      }
    }
  }
  if (rowChanged || contributed) journal.putRoot(stored);
  for (const auto& [key, flags] : answers) journal.answer(key, flags);
}

void RecordedRoot::written() {
  rowChanged = contributed = false;
  answers.clear();
  if (!found) return;
  found->written = found->ending;
  if (found->written < found->folders.size()) return;
  found = std::nullopt;
  if (phase == Phase::placing) stored.goodUntil = sweepBegan;
  phase = Phase::covered;
  stored.coveredSince = coveredAfter ? *coveredAfter : context.ids.next();
  rowChanged = true;
  // Only a queue that is read to its end from here on tells up to when the root is good.
  drained = false;
}

void RecordedRoot::journalReplaced() {
  requests.clear();
  answers.clear();
  rowChanged = true;
  coveredAfter = std::nullopt;
  if (!stored.coveredSince) return;
  stored.coveredSince = context.ids.next();
  if (phase == Phase::reaching) {
    sweep = nullptr;
    onlooker = nullptr;
    found = std::nullopt;
    phase = Phase::covered;
  }
}

}  // namespace quon
