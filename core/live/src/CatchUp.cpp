#include <chrono>
#include <fmt/format.h>
#include <optional>

#include "LostTrack.h"
#include "base/Clock.h"
#include "base/Mutex.h"
#include "base/Path.h"
#include "base/Text.h"
#include "base/ThreadQueue.h"
#include "live/Refresh.h"
#include "platform/Events.h"
#include "platform/Files.h"
#include "platform/Threads.h"
#include "scan/KeptFiles.h"
#include "scan/TopHeap.h"
#include "store/ScanStore.h"

namespace quon::Refresh {

namespace {

/// Gathers what the journal replays. Threads: filled on the stream's queue, awaited on the caller's.
class HistoryCollector {
 public:
  void take(std::span<const FolderEvent> events) QUON_EXCLUDES(lock) {
    const MutexLock held(lock);
    for (const FolderEvent& event : events) {
      if ((event.flags & EventFlag::historyDone) != 0) {
        done = true;
      } else if ((event.flags & EventFlag::lostTrack) != 0) {
        dropped = fmt::format("{} (journal flags 0x{:X})", lostTrackReason(event), event.flags);
        done = true;
      } else {
        paths.push_back(event);
      }
    }
    if (done) changed.broadcast();
  }

  /// Throws Failure when the time is up, or the wait was cancelled.
  void wait(std::chrono::seconds longest, const std::stop_token& stopped) QUON_EXCLUDES(lock) {
    const auto deadline = std::chrono::steady_clock::now() + longest;
    const std::stop_callback wake(stopped, [this] {
      const MutexLock held(lock);
      changed.broadcast();
    });
    const MutexLock held(lock);
    while (!done && !stopped.stop_requested() && std::chrono::steady_clock::now() < deadline) {
      changed.waitUntil(lock, deadline);
    }
    if (stopped.stop_requested()) throw Failure::cancelled();
    if (!done) throw Failure::journalUnavailable("replay timed out");
  }

  [[nodiscard]] std::vector<FolderEvent> result() QUON_EXCLUDES(lock) {
    const MutexLock held(lock);
    if (dropped) throw Failure::journalUnavailable(*dropped);
    return std::move(paths);
  }

 private:
  Mutex lock;
  Condition changed;
  std::vector<FolderEvent> paths QUON_GUARDED_BY(lock);
  std::optional<std::string> dropped QUON_GUARDED_BY(lock);
  bool done QUON_GUARDED_BY(lock) = false;
};

constexpr std::chrono::seconds kReplayTimeout{30};

std::vector<FolderEvent> changedPaths(const ThreadService& threads, EventService& events,
                                      const std::string& root, std::uint64_t since,
                                      const std::stop_token& stopped) {
  HistoryCollector collector;
  ThreadQueue queue([&] { threads.nameThisThread("quon.fsevents.catchup"); });
  const std::unique_ptr<EventStream> stream = events.create(
      {.root = root, .since = since, .latency = std::chrono::duration<double>(0.0), .watchRoot = true}, queue,
      [&](std::span<const FolderEvent> batch) { collector.take(batch); });
  if (!stream) throw Failure::journalUnavailable("stream creation failed");
  if (!stream->start()) throw Failure::journalUnavailable("stream start failed");
  try {
    collector.wait(kReplayTimeout, stopped);
  } catch (const Failure&) {
    stream->stop();
    throw;
  }
  stream->stop();
  return collector.result();
}

std::vector<TopFile> topFilesOf(const RefPtr<DirNode>& root, std::string_view rootPath) {
  TopHeap heap(kTopFiles);
  std::vector<const DirNode*> waiting{root.get()};
  while (!waiting.empty()) {
    const DirNode* node = waiting.back();
    waiting.pop_back();
    for (const RefPtr<DirNode>& child : node->subdirs) waiting.push_back(child.get());
    for (const FileEntry& file : node->keptFiles) {
      if (!heap.wouldKeep(file.logical)) continue;
      heap.offer({joinPath(node->path(rootPath), file.name), file.logical, file.physical, file.mtime});
    }
  }
  return sortedLargestFirst(std::move(heap.items));
}

}  // namespace

Failure::Failure(Kind which, const std::string& message, bool reconciling)
    : std::runtime_error(message), kind(which), wantsReconciling(reconciling) {}
Failure Failure::journalUnavailable(const std::string& reason) {
  return {Kind::journalUnavailable, "journal replay unavailable: " + reason, /*reconciling=*/true};
}
Failure Failure::tooManyChanges(std::size_t count) {
  return {Kind::tooManyChanges, fmt::format("{} changed dirs — a rescan is cheaper", count)};
}
Failure Failure::rootIsDeep(std::size_t count) {
  return {Kind::tooManyChanges, tooManyChanges(count).what(), /*reconciling=*/true};
}
Failure Failure::treeDiffers(const std::string& path) {
  return {Kind::treeDiffers, "the tree does not contain " + displayText(path) + ", which its index contains"};
}
Failure Failure::notRead(const std::string& path, const std::error_code& reason) {
  return {Kind::notRead, "cannot read " + displayText(path) + ": " + reason.message()};
}
Failure Failure::cancelled() {
  return {Kind::cancelled, "cancelled"};
}
Failure Failure::deviceChanged() {
  return {Kind::deviceChanged, "root is on a different device than the index"};
}

IndexedRoot presentRoot(const Platform& platform, IndexedRoot index, const DiskIdentity& disk,
                        std::uint32_t storedDevice) {
  std::error_code gone;
  const auto facts = platform.files.facts(index.root.path(), gone);
  if (!facts || storedDevice == 0) throw Failure::deviceChanged();
  // Device numbers are handed out anew by every boot and mount; they count only where nothing else is known.
  const DiskIdentity present = platform.files.disk(index.root.path());
  const bool isSame =
      disk.isKnown() && present.isKnown() ? disk.isSameDisk(present) : facts->device == storedDevice;
  if (!isSame) throw Failure::deviceChanged();
  index.rootDev = facts->device;
  return index;
}

IndexedRoot rootToCatchUp(const Platform& platform, IndexedRoot index, const IndexState& state) {
  if (!state.hasLinkRegistry) throw Failure::journalUnavailable("index predates the hardlink registry");
  if (state.lastEventId == 0) throw Failure::journalUnavailable("index predates event tracking");
  return presentRoot(platform, std::move(index), state.disk, state.rootDev);
}

Changes changesSince(const Platform& platform, EventService& events, std::uint64_t eventId,
                     const CatchUpOptions& options) {
  const IndexedRoot& index = options.index;
  Changes changes =
      coalesce(changedPaths(platform.threads, events, index.root.path(), eventId, options.stopped),
               index.root, index.skipPaths);
  const auto rootChange = changes.find(index.root.path());
  const bool rootIsDeep = rootChange != changes.end() && rootChange->second == Depth::deep;
  if (changes.size() > options.maxChanges) throw Failure::tooManyChanges(changes.size());
  if (rootIsDeep) throw Failure::rootIsDeep(changes.size());
  return changes;
}

Applied applyChanges(const Platform& platform, const Changes& changes, std::uint64_t newEventId,
                     Loaded& loaded, const CatchUpOptions& options) {
  const auto stopIfCancelled = [&] {
    if (options.stopped.stop_requested()) throw Failure::cancelled();
  };
  const IndexedRoot index = presentRoot(platform, options.index, loaded.disk, loaded.rootDev);
  stopIfCancelled();
  ScanPatcher patcher(index.indexURL, index.root);
  Batch batch = prepare(platform, changes, patcher, index);
  stopIfCancelled();
  patcher.begin(loaded.revision);
  commitStore(batch, patcher);
  stopIfCancelled();
  Applied applied{.result = loaded.result,
                  .outcome = outcomeOf(batch, newEventId),
                  .changedDirs = batch.changedDirs(),
                  .replacedPrefixes = batch.replacedPrefixes()};
  WalkResult& result = applied.result;
  (void)commitTree(result.root, index.root, index.minKeep, batch);
  result.root->rollup();
  result.topFiles = topFilesOf(result.root, index.root.prefix());
  patcher.updateTopFiles(result.topFiles);
  if (index.rootDev != loaded.rootDev) patcher.setRootDev(index.rootDev);
  applied.outcome.revision = patcher.commit(newEventId, secondsSince1970());
  result.hardlinksDeduped = patcher.linkDupeCount();
  return applied;
}

std::pair<WalkResult, Outcome> catchUp(const Platform& platform, EventService& events, Loaded& loaded,
                                       const CatchUpOptions& options) {
  (void)rootToCatchUp(platform, options.index, loaded);
  // Taken before the replay: what happens meanwhile is replayed once more by whoever continues from here.
  const std::uint64_t newEventId = events.currentEventId();
  const Changes changes = changesSince(platform, events, loaded.lastEventId, options);
  Applied applied = applyChanges(platform, changes, newEventId, loaded, options);
  return {std::move(applied.result), applied.outcome};
}

}  // namespace quon::Refresh
