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
#include "recorder/RecordedRoot.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <iterator>
#include <system_error>

#include "base/Log.h"
#include "base/Path.h"
#include "base/Text.h"
#include "linux_fs/OpenFolder.h"
#include "platform/Events.h"
#include "watch/Privilege.h"

namespace quon {
namespace {

/// A change time is the time of the kernel's last tick, and the wall clock is corrected by small steps.
constexpr std::uint64_t kSweepMargin = 3'000'000;
constexpr std::uint64_t kClockTolerance = 1'000'000;
constexpr std::size_t kFoldersPerWrite = 2000;
constexpr unsigned kMostSweepThreads = 8;
constexpr std::uint32_t kRootLost = EventFlag::rootChanged | EventFlag::unmount;
constexpr const char* kLimitReached =
    "it has more folders than you may watch: /proc/sys/fs/inotify/max_user_watches is too low; raise it with "
    "`sudo sysctl fs.inotify.max_user_watches=1048576`";

}  // namespace

RecordedRoot::RecordedRoot(const RecorderContext& shared, WatchedRoot known)
    : context(shared), stored(std::move(known)) {}

const RecordedRoot::Watched* RecordedRoot::watched() const {
  return std::visit(
      [](const auto& present) -> const Watched* {
        if constexpr (requires { present.watched; }) return &present.watched;
        return nullptr;
      },
      phase);
}

const RecordedRoot::Gap* RecordedRoot::gap() const {
  return std::visit(
      [](const auto& present) -> const Gap* {
        if constexpr (requires { present.gap; }) return &present.gap;
        return nullptr;
      },
      phase);
}

RecordedRoot::Watched* RecordedRoot::watched() {
  return const_cast<Watched*>(std::as_const(*this).watched());
}

RecordedRoot::Gap* RecordedRoot::gap() {
  return const_cast<Gap*>(std::as_const(*this).gap());
}

int RecordedRoot::descriptor() const {
  const Watched* present = watched();
  return present == nullptr ? -1 : present->watch->descriptor();
}

bool RecordedRoot::isSweeping() const {
  const Gap* present = gap();
  return present != nullptr && present->sweep != nullptr;
}

bool RecordedRoot::isWaiting() const {
  const auto* unwatched = std::get_if<Unwatched>(&phase);
  return unwatched != nullptr && unwatched->untried;
}

bool RecordedRoot::isBusy() const {
  const Watched* present = watched();
  return present != nullptr && !present->drained;
}

void RecordedRoot::ask(const JournalRequest& request, std::uint64_t turn) {
  const auto isThis = [&](std::int64_t key) { return key == request.key; };
  if (std::ranges::any_of(requests, isThis, [](const Pending& pending) { return pending.request.key; }))
    return;
  if (std::ranges::any_of(answers, isThis, [](const auto& answer) { return answer.first; })) return;
  requests.push_back({request, turn});
  stored.asked = context.clock.wallMicros();
  rowChanged = true;
}

std::unique_ptr<RootWatch> RecordedRoot::makeWatch() const {
  const RootWatchSettings settings{.root = stored.path, .own = context.own, .device = device};
  if (context.backEnd == EventBackEnd::fanotify) return makeFanotifyWatch(settings);
  if (context.backEnd == EventBackEnd::automatic && Privilege::isAtHand()) {
    try {
      return makeFanotifyWatch(settings);
    } catch (const std::system_error& failure) {
      context.log.line(fmt::format("{}; watching each folder instead", failure.what()));
    }
  }
  return makeInotifyWatch(settings);
}

void RecordedRoot::place(EventJournal& journal) {
  std::get<Unwatched>(phase).untried = false;
  const Descriptor folder = openFolder(AT_FDCWD, stored.path);
  const auto facts = folder.isOpen() ? factsOf(folder.get()) : std::nullopt;
  if (!facts) {
    lose(EventFlag::rootChanged, std::error_code(errno, std::generic_category()).message());
    return;
  }
  device = facts->device;
  timesReliable = keepsChangeTimes(folder.get());
  if (stored.identity != InodeIdentity() && stored.identity != facts->identity) {
    lose(EventFlag::rootChanged, "another folder took its place");
  }
  stored.identity = facts->identity;
  Gap gap;
  const auto since = beginOfGap(journal, gap);
  startWatch(since, std::move(gap));
}

std::optional<std::uint64_t> RecordedRoot::beginOfGap(EventJournal& journal, Gap& gap) {
  gap.coversFrom = std::exchange(stored.coveredSince, std::nullopt);
  if (gap.coversFrom && timesReliable && stored.goodUntil <= context.clock.wallMicros()) {
    return stored.goodUntil;
  }
  gap.coversFrom = std::nullopt;
  for (const Pending& pending : requests) {
    const std::uint64_t since = pending.request.since;
    if (!answerTo(since, journal)) gap.coversFrom = std::min(gap.coversFrom.value_or(since), since);
  }
  return gap.coversFrom;
}

void RecordedRoot::startWatch(std::optional<std::uint64_t> since, Gap gap) {
  try {
    std::unique_ptr<RootWatch> watch = makeWatch();
    RootWatch* const visitor = watch.get();
    phase = Placing{.watched = {.watch = std::move(watch)}, .gap = std::move(gap)};
    startSweep(visitor, since);
  } catch (const std::system_error& failure) {
    lose(EventFlag::kernelDropped, failure.what());
  }
}

void RecordedRoot::startSweep(FolderVisitor* visitor, std::optional<std::uint64_t> since) {
  gap()->began = context.clock.wallMicros();
  std::unique_ptr<ChangeTimes> times;
  if (since) {
    const std::uint64_t from = *since - std::min(*since, kSweepMargin);
    times = std::make_unique<ChangeTimes>(static_cast<std::int64_t>(from));
  }
  const Sweep::Settings settings{
      .threads = context.threads,
      .threadCount = std::clamp(context.threads.activeProcessors(), 2U, kMostSweepThreads),
      .root = stored.path,
      .rootToken = WatchTree::kNone,
      .own = context.own,
      .device = device,
      .visitor = visitor};
  gap()->sweep = std::make_unique<Sweep>(settings, std::move(times), context.wake);
}

void RecordedRoot::drain(std::uint64_t turn) {
  Watched* const present = watched();
  if (present == nullptr) return;
  const std::uint64_t now = context.clock.wallMicros();
  present->drained = present->watch->drain();
  // A queue that overflowed is empty as well, but not everything before now was in it.
  if (!present->drained || present->watch->problems().overflowed) return;
  present->drainedTurn = turn;
  if (!std::holds_alternative<Placing>(phase)) stored.goodUntil = now;
}

void RecordedRoot::followProblems() {
  const Watched* const present = watched();
  if (present == nullptr) return;
  const WatchProblems problems = present->watch->problems();
  if (problems.unmounted) {
    lose(EventFlag::unmount, "its file system was unmounted");
  } else if (problems.limitReached) {
    lose(EventFlag::kernelDropped, kLimitReached);
  } else if (problems.refused) {
    lose(EventFlag::kernelDropped, "the kernel refuses to watch it");
  } else if (problems.rootMoved) {
    checkPlace();
  }
  if (problems.overflowed && watched() != nullptr) recover();
}

void RecordedRoot::advance(EventJournal& journal, bool mayBegin) {
  followProblems();
  if (isSweeping() && gap()->sweep->isOver()) endSweep();
  if (std::holds_alternative<Unwatched>(phase) && (!requests.empty() || (isWaiting() && mayBegin))) {
    place(journal);
  }
  if (std::holds_alternative<Covered>(phase)) answerRequests(journal);
}

void RecordedRoot::recover() {
  context.log.line(
      fmt::format("the kernel dropped events below {}; finding what changed", displayText(stored.path)));
  const bool wasPlacing = std::holds_alternative<Placing>(phase);
  if (!wasPlacing && !timesReliable) {
    lose(EventFlag::kernelDropped, "the kernel dropped events");
    return;
  }
  Gap next;
  if (Gap* const open = gap()) {
    // What its sweep found, or was about to find, is found again.
    open->sweep = nullptr;
    next.coversFrom = open->coversFrom;
    next.appeared = std::move(open->appeared);
  }
  std::ranges::move(watched()->watch->abandon(), std::back_inserter(next.appeared));
  std::optional<std::uint64_t> since = next.coversFrom;
  if (!wasPlacing) {
    next.coversFrom = std::exchange(stored.coveredSince, std::nullopt);
    since = stored.goodUntil;
  }
  startWatch(since, std::move(next));
}

void RecordedRoot::endSweep() {
  Gap& closing = *gap();
  closing.found = closing.sweep->take();
  closing.sweep = nullptr;
  for (const std::string& path : closing.appeared) closing.found.push_back({path, true});
  if (std::holds_alternative<Placing>(phase)) checkPlace();
}

void RecordedRoot::mountsChanged(const std::vector<std::string>& points) {
  if (watched() == nullptr) return;
  checkPlace();
  Watched* const present = watched();
  if (present == nullptr) return;
  for (const std::string& point : points) {
    if (point != stored.path && isInside(point, stored.path)) present->watch->mountChanged(point);
  }
  present->drained = false;
}

void RecordedRoot::clockStepped(const ClockStep& step) {
  stored.goodUntil = std::min(stored.goodUntil, step.low);
  if (Gap* const open = gap()) open->began = std::min(open->began, step.low);
}

void RecordedRoot::checkPlace() {
  const Descriptor folder = openFolder(AT_FDCWD, stored.path);
  const auto facts = folder.isOpen() ? factsOf(folder.get()) : std::nullopt;
  if (facts && facts->device == device && facts->identity == stored.identity) {
    watched()->watch->rootIsInPlace();
    return;
  }
  lose(EventFlag::rootChanged, "it was moved, removed or mounted over");
}

void RecordedRoot::lose(std::uint32_t flags, const std::string& reason) {
  // That a root of long ago is not there any more interests nobody until it is asked for.
  if (watched() != nullptr || !requests.empty()) {
    context.log.line(fmt::format("lost track of {}: {}", displayText(stored.path), reason));
  }
  phase = Unwatched{};
  stored.coveredSince = std::nullopt;
  stored.lostId = context.ids.next();
  stored.lostFlags = flags;
  stored.identity = {};  // the next folder at this path is not compared with it
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
  if (!timesReliable) return EventFlag::userDropped;
  if (journal.isAmbiguous(since)) return EventFlag::idsWrapped;
  const std::int64_t born = stored.identity.bornMicros;
  if (born > 0 && static_cast<std::uint64_t>(born) > since) return EventFlag::rootChanged;
  return std::nullopt;
}

void RecordedRoot::answerRequests(EventJournal& journal) {
  Watched& present = *watched();
  std::optional<std::uint64_t> reach;
  std::erase_if(requests, [&](const Pending& pending) {
    if (present.drainedTurn < pending.turn) return false;
    const std::uint64_t since = pending.request.since;
    const auto answer = answerTo(since, journal);
    if (answer) {
      answers.emplace_back(pending.request.key, *answer);
    } else {
      reach = std::min(reach.value_or(since), since);
    }
    return answer.has_value();
  });
  if (!reach) return;
  Gap further;
  further.coversFrom = reach;
  try {
    phase = Reaching{.watched = std::move(present), .gap = std::move(further)};
    startSweep(nullptr, reach);
  } catch (const std::system_error& failure) {
    lose(EventFlag::kernelDropped, failure.what());
  }
}

void RecordedRoot::collect(FolderChanges& into) {
  Watched* const present = watched();
  if (present == nullptr) return;
  const std::size_t before = into.size();
  present->watch->collect(into);
  if (into.size() != before) contributed = true;
}

bool RecordedRoot::wantsWriting() const {
  return (gap() != nullptr && !isSweeping()) || rowChanged || !answers.empty();
}

void RecordedRoot::write(EventJournal& journal) {
  if (Gap* const closing = gap(); closing != nullptr && !isSweeping()) {
    closing->endOfWrite = std::min(closing->found.size(), closing->writtenCount + kFoldersPerWrite);
    for (std::size_t at = closing->writtenCount; at < closing->endOfWrite; ++at) {
      const SweptFolder& folder = closing->found[at];
      if (std::holds_alternative<Reaching>(phase)) {
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
  Gap* const closing = gap();
  if (closing == nullptr || isSweeping()) return;
  closing->writtenCount = closing->endOfWrite;
  if (closing->writtenCount < closing->found.size()) return;
  if (std::holds_alternative<Placing>(phase)) stored.goodUntil = closing->began;
  stored.coveredSince = closing->coversFrom ? *closing->coversFrom : context.ids.next();
  rowChanged = true;
  phase = Covered{.watched = std::move(*watched())};
  // Only a queue that is read to its end from here on shows up to when the root is good.
  watched()->drained = false;
}

void RecordedRoot::journalReplaced() {
  requests.clear();
  answers.clear();
  rowChanged = true;
  if (Gap* const open = gap()) open->coversFrom = std::nullopt;
  if (!stored.coveredSince) return;
  stored.coveredSince = context.ids.next();
  if (auto* const reaching = std::get_if<Reaching>(&phase)) {
    reaching->gap.sweep = nullptr;
    phase = Covered{.watched = std::move(reaching->watched)};
  }
}

}  // namespace quon
