// Live updates: the watcher prepares and writes batches on its own queues; here its changes enter the tree,
// on the main thread and through the gate.
#include <set>
#include <utility>
#include <variant>

#include "base/Path.h"
#include "model/AppModel.h"
#include "platform/Events.h"
#include "rows/FolderRows.h"
#include "scan/KeptFiles.h"
#include "scan/Walker.h"

namespace quon {

void AppModel::startLiveWatch(const WalkResult& result, std::uint64_t sinceEventId, std::uint32_t rootDev) {
  liveWatcher.reset();
  if (!conduct.liveUpdates || lastRun.index.empty() || sinceEventId == 0) return;
  const std::int64_t generation = scanGeneration;
  const auto tell = [weak = Self(self), generation](const LiveWatcher::Event& event) {
    const auto alive = weak.lock();
    if (alive && (*alive)->scanGeneration == generation) (*alive)->liveEvent(event);
  };
  liveWatcher = std::make_unique<LiveWatcher>(
      LiveWatcher::Services{services.platform, services.events, services.liveEvents, services.liveWork,
                            [&main = services.main, gate = treeGate](std::function<void()> commit) {
                              main.post([gate, commit = std::move(commit)] {
                                const TreeGate::Writing writing(*gate);
                                commit();
                              });
                            },
                            // Applied batches are told from within the commit, and have to be taken in before
                            // anything else runs.
                            [&main = services.main, tell](const LiveWatcher::Event& event) {
                              if (main.isCurrent()) return tell(event);
                              main.post([tell, event] { tell(event); });
                            },
                            services.steadyClock},
      LiveWatcher::Options{.index = {.root = RootPath(shownRoot),
                                     .indexURL = lastRun.index,
                                     .rootDev = rootDev,
                                     .skipPaths = std::set<std::string>(result.skippedProtected.begin(),
                                                                        result.skippedProtected.end())},
                           .tree = result.root,
                           .topFiles = result.topFiles,
                           .sinceEventId = sinceEventId});
}

void AppModel::liveEvent(const LiveWatcher::Event& event) {
  change([&] {
    if (const auto* rescan = std::get_if<LiveWatcher::NeedsRescan>(&event)) {
      liveWatcher.reset();
      indexFresh = false;
      _indexedAt.set(services.now());
      _toast.set("live updates paused — " + rescan->reason);
    } else {
      liveBatchApplied(std::get<LiveWatcher::Update>(event));
    }
    if (onLiveEvent) onLiveEvent(event);
  });
}

void AppModel::liveBatchApplied(const LiveWatcher::Update& update) {
  const auto result = std::make_shared<WalkResult>(*_result.get());
  result->topFiles = update.topFiles;
  result->hardlinksDeduped = update.hardlinksDeduped;
  _result.set(result);
  if (_scope.get() && !_scope.get()->isWithin(*result->root)) {
    // Another folder may lie there by now, read anew.
    const auto below = relativeTo(scopePath, shownRoot);
    const RefPtr<DirNode> present = below ? folderAt(result->root, *below) : RefPtr<DirNode>();
    _scope.set(present ? present : result->root);
    _hovered.set(std::nullopt);
    _selection.set(std::nullopt);
    if (!present) _toast.set("the folder you were viewing was removed");
  }
  _indexedAt.set(services.now());
  _version.set(_version.get() + 1);
  scheduleSearch();
}

}  // namespace quon
