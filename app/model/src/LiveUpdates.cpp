#include "model/LiveUpdates.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>
#include <variant>

#include "base/Log.h"
#include "base/MainQueue.h"
#include "scan/KeptFiles.h"

namespace quon {
namespace {

using Seconds = std::chrono::duration<double>;
constexpr Seconds kFirstDelay{1};
constexpr Seconds kLongestDelay{60};
/// Two programs that follow one root overtake each other all the time.
constexpr Seconds kLongestWhenShared{1};
/// After so long without a recovery the next one does not wait.
constexpr Seconds kCalm{120};

}  // namespace

LiveUpdates::LiveUpdates(ModelState& model)
    : _indexedAt(model),
      _isLive(model),
      state(model),
      starting(
          model, QueueName::liveWork, Job::Reads::nothing,
          [this](std::shared_ptr<LiveWatcher>&& watcher) {
            liveWatcher = std::move(watcher);
            _isLive.set(true);
            refreshWaiting();
          },
          [this](const std::string& reason) { take(LiveWatcher::NeedsRescan{reason}); }) {}

/// "" when they can be.
std::string LiveUpdates::whyNotFollowed(const LiveStart& start) const {
  if (state.shownTree()->indexURL.empty()) {
    return "Changes are not followed, because the index of this folder could not be saved. Rescan once it can be.";
  }
  if (!start.notRecorded.empty()) return "Changes are not followed: " + start.notRecorded + ".";
  if (start.eventId == 0) {
    return "Changes are not followed, because file-system events were not available when this folder was scanned. "
           "Rescan to follow them.";
  }
  return "";
}

void LiveUpdates::startLiveWatch(const LiveStart& start) {
  stopLiveWatch();
  toRefresh.insert(toRefresh.end(), start.changed.begin(), start.changed.end());
  const ShownTreeRef& tree = state.shownTree();
  const std::string reason = whyNotFollowed(start);
  if (state.options.liveUpdates && !reason.empty()) state.raise(Problem::Kind::notWatched, reason);
  if (tree->indexURL.empty()) return;
  watch = std::make_shared<LiveUpdates*>(this);
  const std::weak_ptr<LiveUpdates*> weak = watch;
  MainQueue& main = state.services.main;
  const auto onEvent = [weak](const LiveWatcher::Event& event) {
    if (const auto alive = weak.lock()) (*alive)->take(event);
  };
  const WalkResult& result = *tree->result;
  const LiveWatcher::Services watcherServices{
      state.services.platform, state.services.events, state.services.queue(QueueName::liveEvents),
      state.services.queue(QueueName::liveWork),
      [weak, &main](std::function<void()> commitToTree) {
        main.post([weak, commitToTree = std::move(commitToTree)] {
          if (const auto alive = weak.lock()) (*alive)->commit(commitToTree);
        });
      },
      // Applied batches are reported from within the commit, and belong to its operation.
      [onEvent, &main](const LiveWatcher::Event& event) {
        if (std::holds_alternative<LiveWatcher::Update>(event)) return onEvent(event);
        main.post([onEvent, event] { onEvent(event); });
      },
      state.services.steadyClock};
  LiveWatcher::Options options{
      .index = {.root = tree->root,
                .indexURL = tree->indexURL,
                .rootDev = start.rootDev,
                .skipPaths = {result.skippedProtected.begin(), result.skippedProtected.end()}},
      .tree = result.root,
      .topFiles = result.topFiles,
      .sinceEventId = start.eventId,
      .followsEvents = state.options.liveUpdates && reason.empty(),
      .revision = start.revision};
  if (!options.followsEvents) {
    liveWatcher = std::make_shared<LiveWatcher>(watcherServices, options);
    return refreshWaiting();
  }
  // It opens the event journal.
  starting.start([watcherServices, options = std::move(options)](
                     const IsVoid&) -> std::optional<std::shared_ptr<LiveWatcher>> {
    return std::make_shared<LiveWatcher>(watcherServices, options);
  });
}

bool LiveUpdates::refreshFolders(const std::vector<std::string>& paths) {
  if (liveWatcher) {
    liveWatcher->foldersChanged(paths);
    return true;
  }
  if (!starting.isRunning() && !recovering) return false;
  toRefresh.insert(toRefresh.end(), paths.begin(), paths.end());
  return true;
}

void LiveUpdates::refreshWaiting() {
  const std::vector<std::string> paths = std::exchange(toRefresh, {});
  if (!paths.empty()) liveWatcher->foldersChanged(paths);
}

void LiveUpdates::stopLiveWatch() {
  watch.reset();
  recovery.cancel();
  recovering = false;
  starting.stop();
  liveWatcher.reset();
  _isLive.set(false);
  state.clear(Problem::Kind::notWatched);
}

void LiveUpdates::commit(const std::function<void()>& commitToTree) {
  state.perform([this, watched = std::weak_ptr(watch), commitToTree] {
    if (watched.expired()) return;  // its tree is no longer shown
    state.interruptReaders();
    const TreeGate::Writing writing(*state.shownTree()->gate);
    commitToTree();
  });
}

void LiveUpdates::take(const LiveWatcher::Event& event) {
  state.perform([this, event] {
    if (const auto* rescan = std::get_if<LiveWatcher::NeedsRescan>(&event)) {
      stopLiveWatch();
      // That another program was faster is nobody's concern: its work is taken over.
      if (rescan->cause != LiveWatcher::Cause::superseded) {
        _indexedAt.set(state.services.now());
        state._toast.set("live updates paused — " + rescan->reason);
      }
      overtaken.insert(overtaken.end(), rescan->changed.begin(), rescan->changed.end());
      scheduleRecovery(rescan->cause);
    } else {
      liveBatchApplied(std::get<LiveWatcher::Update>(event));
    }
    report(event);
  });
}

void LiveUpdates::report(const LiveWatcher::Event& event) {
  if (!onLiveEvent) return;
  state.announce([this, event] {
    if (onLiveEvent) onLiveEvent(event);
  });
}

/// At once, unless the one before was a moment ago: what goes wrong each time must not keep the disk busy.
void LiveUpdates::scheduleRecovery(LiveWatcher::Cause cause) {
  const Seconds now = state.services.steadyClock();
  if (now - lastRecovery > kCalm) nextDelay = Seconds(0);
  const Seconds longest = cause == LiveWatcher::Cause::superseded ? kLongestWhenShared : kLongestDelay;
  const Seconds delay = std::min(nextDelay, longest);
  nextDelay = std::max(kFirstDelay, nextDelay * 2);
  lastRecovery = now + delay;
  recovering = true;
  recovery = state.services.main.postAfter(delay, [this] {
    state.perform([this] {
      recovering = false;
      recover();
    });
  });
}

void LiveUpdates::liveBatchApplied(const LiveWatcher::Update& update) {
  state.services.log.line(fmt::format("batch changed={} replaced={}", update.changedDirs.size(),
                                      update.replacedPrefixes.size()));
  auto result = std::make_shared<WalkResult>(*state.shownTree()->result);
  result->topFiles = update.topFiles;
  result->hardlinksDeduped = update.hardlinksDeduped;
  state.shownTree()->markers->forget(update.changedDirs, update.replacedPrefixes);
  state.showChanged(std::move(result));
  _indexedAt.set(state.services.now());
}

}  // namespace quon
