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

/// Gathers what the journal replays. Threads: filled on the stream's queue, awaited on the caller's.
class HistoryCollector {
 public:
  explicit HistoryCollector(CatchUpCancel& ending) : shared(ending) {}

  void take(std::span<const FolderEvent> events) {
    const MutexLock held(shared.lock);
    for (const FolderEvent& event : events) {
      if ((event.flags & EventFlag::historyDone) != 0) {
        done = true;
      } else if ((event.flags & EventFlag::lostTrack) != 0) {
        dropped = fmt::format("{} (journal flags 0x{:X})", lostTrackReason(event.flags), event.flags);
        done = true;
      } else {
        paths.push_back(event);
      }
    }
    if (done) shared.changed.broadcast();
  }

  /// Throws Failure when the time is up, or the wait was cancelled.
  void wait(std::chrono::seconds longest) {
    const auto deadline = std::chrono::steady_clock::now() + longest;
    const MutexLock held(shared.lock);
    while (!done && !shared.cancelled && std::chrono::steady_clock::now() < deadline) {
      shared.changed.waitUntil(shared.lock, deadline);
    }
    if (shared.cancelled) throw Failure::cancelled();
    if (!done) throw Failure::journalUnavailable("replay timed out");
  }

  [[nodiscard]] std::vector<FolderEvent> result() {
    const MutexLock held(shared.lock);
    if (dropped) throw Failure::journalUnavailable(*dropped);
    return std::move(paths);
  }

 private:
  CatchUpCancel& shared;  // whose lock guards all below
  std::vector<FolderEvent> paths;
  std::optional<std::string> dropped;
  bool done = false;
};

namespace {

constexpr std::chrono::seconds kReplayTimeout{30};

std::vector<FolderEvent> changedPaths(const ThreadService& threads, EventService& events,
                                      const std::string& root, std::uint64_t since, CatchUpCancel& cancel) {
  HistoryCollector collector(cancel);
  ThreadQueue queue([&] { threads.nameThisThread("quon.fsevents.catchup"); });
  const std::unique_ptr<EventStream> stream = events.create(
      {.root = root, .since = since, .latency = std::chrono::duration<double>(0.0), .watchRoot = true}, queue,
      [&](std::span<const FolderEvent> batch) { collector.take(batch); });
  if (!stream) throw Failure::journalUnavailable("stream creation failed");
  if (!stream->start()) throw Failure::journalUnavailable("stream start failed");
  try {
    collector.wait(kReplayTimeout);
  } catch (const Failure&) {
    stream->stop();
    throw;
  }
  stream->stop();
  return collector.result();
}

void checkDevice(const Platform& platform, const IndexedRoot& index) {
  std::error_code gone;
  const auto facts = platform.files.facts(index.root.path(), gone);
  if (!facts || index.rootDev == 0 || facts->device != index.rootDev) throw Failure::deviceChanged();
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

Failure::Failure(Kind which, const std::string& message) : std::runtime_error(message), kind(which) {}
Failure Failure::journalUnavailable(const std::string& reason) {
  return {Kind::journalUnavailable, "journal replay unavailable: " + reason};
}
Failure Failure::tooManyChanges(std::size_t count) {
  return {Kind::tooManyChanges, fmt::format("{} changed dirs — a rescan is cheaper", count)};
}
Failure Failure::treeDiffers(const std::string& path) {
  return {Kind::treeDiffers, "the tree does not contain " + displayText(path) + ", which its index contains"};
}
Failure Failure::cancelled() {
  return {Kind::cancelled, "cancelled"};
}
Failure Failure::deviceChanged() {
  return {Kind::deviceChanged, "root is on a different device than the index"};
}

std::pair<WalkResult, Outcome> catchUp(const Platform& platform, EventService& events, Loaded& loaded,
                                       const CatchUpOptions& options) {
  IndexedRoot index = options.index;
  index.rootDev = loaded.rootDev;
  if (!loaded.hasLinkRegistry) throw Failure::journalUnavailable("index predates the hardlink registry");
  if (loaded.lastEventId == 0) throw Failure::journalUnavailable("index predates event tracking");
  checkDevice(platform, index);
  // Taken before the replay: what happens meanwhile is replayed once more by whoever continues from here.
  const std::uint64_t newEventId = events.currentEventId();
  CatchUpCancel nobody;
  CatchUpCancel& cancel = options.cancel == nullptr ? nobody : *options.cancel;
  const Changes changes =
      coalesce(changedPaths(platform.threads, events, index.root.path(), loaded.lastEventId, cancel),
               index.root, index.skipPaths);
  const auto rootChange = changes.find(index.root.path());
  const bool rootIsDeep = rootChange != changes.end() && rootChange->second == Depth::deep;
  if (changes.size() > options.maxChanges || rootIsDeep) throw Failure::tooManyChanges(changes.size());

  const auto stopIfCancelled = [&cancel] {
    if (cancel.isCancelled()) throw Failure::cancelled();
  };
  stopIfCancelled();
  ScanPatcher patcher(index.indexURL, index.root);
  Batch batch = prepare(platform, changes, patcher, index);
  stopIfCancelled();
  commitStore(batch, patcher);
  stopIfCancelled();
  WalkResult result = loaded.result;
  (void)commitTree(result.root, index.root, index.minKeep, batch);
  result.root->rollup();
  result.topFiles = topFilesOf(result.root, index.root.prefix());
  patcher.updateTopFiles(result.topFiles);
  patcher.commit(newEventId, secondsSince1970());
  result.hardlinksDeduped = patcher.linkDupeCount();
  return {std::move(result), outcomeOf(batch, newEventId)};
}

}  // namespace quon::Refresh
