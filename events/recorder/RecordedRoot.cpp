// Phases: untried -> being placed -> covered; from each of them, and back, to unwatched. The coverage begins
// when every folder has its watch: what happens from then on is in the kernel's queue, or lies in a folder
// that appeared, which is reported deep.
//
// When the kernel drops events, the coverage ends and watches are placed anew at once, for those who ask
// again; after any other loss, once a client asks or something is mounted at or above the root.
#include "recorder/RecordedRoot.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <system_error>
#include <utility>

#include "base/Log.h"
#include "base/Path.h"
#include "base/Text.h"
#include "linux_fs/OpenFolder.h"
#include "watch/Privilege.h"
#include "wire/Message.h"

namespace quon {
namespace {

constexpr const char* kNotRecorded = "changes made before quon began to record this folder are not known";

/// The nearest folder at or above the path that a message has room for.
std::string nearestThatFits(std::string path) {
  while (path.size() > kLongestPath) path = parentPath(path);
  return path;
}

}  // namespace

RecordedRoot::RecordedRoot(const RecorderContext& shared, std::string path)
    : context(shared), root(std::move(path)), journal(root) {}

const RecordedRoot::Watched* RecordedRoot::watched() const {
  return std::visit(
      [](const auto& present) -> const Watched* {
        if constexpr (requires { present.watched; }) return &present.watched;
        return nullptr;
      },
      phase);
}

RecordedRoot::Watched* RecordedRoot::watched() {
  return const_cast<Watched*>(std::as_const(*this).watched());
}

int RecordedRoot::descriptor() const {
  const Watched* present = watched();
  return present == nullptr ? -1 : present->watch->descriptor();
}

bool RecordedRoot::isUntried() const {
  const auto* unwatched = std::get_if<Unwatched>(&phase);
  return unwatched != nullptr && unwatched->untried;
}

bool RecordedRoot::isBusy() const {
  const Watched* present = watched();
  return present != nullptr && !present->drained;
}

bool RecordedRoot::isDrained(std::uint64_t turn) const {
  return !isCovered() || watched()->drainedTurn >= turn;
}

void RecordedRoot::ask() {
  wasAsked = true;
  if (auto* const unwatched = std::get_if<Unwatched>(&phase)) unwatched->untried = true;
}

std::unique_ptr<RootWatch> RecordedRoot::makeWatch() const {
  const RootWatchSettings settings{.root = root, .own = context.own, .device = device};
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

void RecordedRoot::place() {
  std::get<Unwatched>(phase).untried = false;
  const Descriptor folder = openFolder(AT_FDCWD, root);
  const auto facts = folder.isOpen() ? factsOf(folder.get()) : std::nullopt;
  if (!facts) {
    lose(EventFlag::rootChanged, std::error_code(errno, std::generic_category()).message());
    return;
  }
  device = facts->device;
  identity = facts->identity;
  try {
    std::unique_ptr<RootWatch> watch = makeWatch();
    RootWatch* const visitor = watch.get();
    phase = BeingPlaced{.watched = {.watch = std::move(watch)}, .walk = nullptr};
    const Placing::Settings settings{
        .threads = context.threads, .root = root, .own = context.own, .device = device, .visitor = visitor};
    std::get<BeingPlaced>(phase).walk = std::make_unique<Placing>(settings, context.wake);
  } catch (const std::system_error& failure) {
    lose(EventFlag::kernelDropped, failure.what());
  }
}

void RecordedRoot::drain(std::uint64_t turn) {
  Watched* const present = watched();
  if (present == nullptr) return;
  present->drained = present->watch->drain();
  if (present->drained) present->drainedTurn = turn;
}

void RecordedRoot::followProblems() {
  const Watched* const present = watched();
  if (present == nullptr) return;
  const WatchProblems problems = present->watch->problems();
  if (problems.unmounted) {
    lose(EventFlag::unmount, "its file system was unmounted");
  } else if (!problems.unwatched.empty()) {
    lose(EventFlag::kernelDropped, problems.unwatched);
  } else if (problems.rootMoved) {
    checkPlace();
  }
  if (problems.overflowed && watched() != nullptr) overflowed();
}

void RecordedRoot::advance(bool mayBegin) {
  followProblems();
  if (isPlacing()) finishPlacing();
  if (isUntried() && (wasAsked || mayBegin)) place();
}

/// What kept the walk from placing a watch shows once its end was followed by a drain.
void RecordedRoot::finishPlacing() {
  auto& placing = std::get<BeingPlaced>(phase);
  if (placing.walk != nullptr) {
    if (!placing.walk->isOver()) return;
    placing.walk = nullptr;
    placing.watched.drained = false;
    return checkPlace();
  }
  if (!placing.watched.drained) return;
  phase = Covered{.watched = std::move(placing.watched)};
  journal.begin(context.ids.next());
  logged.clear();
}

void RecordedRoot::overflowed() {
  if (isCovered()) {
    lose(EventFlag::kernelDropped, "the kernel dropped events, because too much changed at once");
  } else {
    phase = Unwatched{};
  }
  ask();
}

void RecordedRoot::mountsChanged(const std::vector<std::string>& points) {
  if (auto* const unwatched = std::get_if<Unwatched>(&phase)) {
    // Its disk may have come back.
    if (std::ranges::any_of(points, [&](const std::string& point) { return isInside(root, point); }))
      unwatched->untried = true;
    return;
  }
  checkPlace();
  Watched* const present = watched();
  if (present == nullptr) return;
  for (const std::string& point : points) {
    if (point != root && isInside(point, root)) present->watch->mountChanged(point);
  }
  present->drained = false;
}

void RecordedRoot::checkPlace() {
  const Descriptor folder = openFolder(AT_FDCWD, root);
  const auto facts = folder.isOpen() ? factsOf(folder.get()) : std::nullopt;
  if (facts && facts->device == device && facts->identity == identity) {
    watched()->watch->rootIsInPlace();
    return;
  }
  lose(EventFlag::rootChanged, "it was moved, removed or mounted over");
}

void RecordedRoot::lose(std::uint32_t flags, const std::string& reason) {
  // That a root of long ago is not there any more interests nobody until it is asked for.
  if ((wasAsked || watched() != nullptr) && logged != reason) {
    context.log.line(fmt::format("lost track of changes below {}: {}", displayText(root), reason));
    logged = reason;
  }
  if (isCovered()) loss = FolderEvent{.path = root, .flags = flags, .reason = reason};
  phase = Unwatched{.untried = false, .reason = reason};
  journal.end();
  changes.clear();
}

std::vector<FolderEvent> RecordedRoot::takeEvents() {
  if (Watched* const present = watched()) present->watch->collect(changes);
  std::vector<FolderEvent> events;
  if (isCovered()) {
    events.reserve(changes.size());
    for (const auto& [changed, deep] : changes) {
      std::string path = nearestThatFits(changed);
      const bool all = deep || path.size() != changed.size();
      const std::uint64_t id = context.ids.next();
      journal.mark(path, id, all);
      events.push_back({.path = std::move(path), .flags = all ? EventFlag::mustScanSubdirs : 0, .id = id});
    }
  }
  changes.clear();
  if (loss) {
    loss->id = context.ids.next();
    events.push_back(*std::exchange(loss, std::nullopt));
  }
  return events;
}

Coverage RecordedRoot::coverage() const {
  if (const auto* unwatched = std::get_if<Unwatched>(&phase))
    return {.since = 0, .reason = unwatched->reason};
  return {.since = journal.since()};
}

std::vector<FolderEvent> RecordedRoot::history(std::uint64_t since) {
  const std::uint64_t now = context.ids.next();
  FolderEvent lost{.path = root, .flags = EventFlag::userDropped, .id = now};
  if (since > now) {
    lost.flags = EventFlag::idsWrapped;
    lost.reason = "the clock was set back";
    return lostHistory(std::move(lost));
  }
  if (!isCovered() || since < journal.since()) {
    lost.reason = coverage().reason;
    return lostHistory(std::move(lost));
  }
  std::vector<FolderEvent> events = journal.changesSince(since);
  events.push_back({.path = root, .flags = EventFlag::historyDone, .id = now});
  return events;
}

std::vector<FolderEvent> RecordedRoot::lostHistory(FolderEvent loss) {
  if (loss.reason.empty()) loss.reason = kNotRecorded;
  FolderEvent done{.path = loss.path, .flags = EventFlag::historyDone, .id = loss.id};
  return {std::move(loss), std::move(done)};
}

}  // namespace quon
