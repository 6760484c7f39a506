// The watcher's state is shared with the work it schedules, which refers to it weakly: scheduled attempts and
// tree commits do nothing once the watcher has gone. No call out is made under its lock.
//
//   streaming -> armed (first event) -> applying (batch taken) -> streaming, or armed again
//   any failure -> stopped with a reason; stop() -> stopped without one. Both are final.
#include "live/LiveWatcher.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <optional>
#include <utility>

#include "LostTrack.h"
#include "base/BackgroundQueue.h"
#include "base/Clock.h"
#include "base/Mutex.h"
#include "platform/Events.h"
#include "store/ScanPatcher.h"
#include "store/StoreError.h"

namespace quon {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr Seconds kLatency{1.0};
constexpr Seconds kWhileApplying{0.5};
/// A burst of more folders than this waits until it has been quiet for so long.
constexpr std::size_t kLargeBurst = 2000;
constexpr Seconds kQuiet{2.0};
constexpr Seconds kDistantPast{-1e18};

}  // namespace

class LiveWatcher::State : public std::enable_shared_from_this<LiveWatcher::State> {
 public:
  State(Services given, Options chosen) : services(std::move(given)), options(std::move(chosen)) {
    if (options.topFiles.size() > options.topCapacity) options.topFiles.resize(options.topCapacity);
    topFiles = std::move(options.topFiles);
    pendingMaxId = options.sinceEventId;
  }

  void start();
  void foldersChanged(const std::vector<std::string>& paths) QUON_EXCLUDES(lock);
  void stop() QUON_EXCLUDES(lock);

 private:
  /// A batch taken from the pending changes.
  struct Taken {
    Refresh::Changes changes;
    std::uint64_t maxId = 0;
  };

  void onEvents(std::span<const FolderEvent> events);
  void buffer(const FolderEvent& event) QUON_EXCLUDES(lock);
  void schedule(Seconds delay);
  void attempt() QUON_EXCLUDES(lock);
  [[nodiscard]] std::optional<Taken> takePending() QUON_EXCLUDES(lock);
  void apply(const Taken& taken);
  [[nodiscard]] Update write(const Taken& taken, Refresh::Batch& batch);
  void refreshTop(ScanPatcher& patcher, const Refresh::Batch& batch) QUON_EXCLUDES(lock);
  void commitToTree(const std::shared_ptr<Refresh::Batch>& batch, const Update& update) QUON_EXCLUDES(lock);
  void putBack(const Taken& taken) QUON_EXCLUDES(lock);
  void fail(const std::string& reason, Cause cause, std::vector<std::string> changed = {})
      QUON_EXCLUDES(lock);

  const Services services;
  Options options;  // its revision: the work queue's

  Mutex lock;
  std::unique_ptr<EventStream> stream QUON_GUARDED_BY(lock);
  Refresh::Changes pending QUON_GUARDED_BY(lock);
  std::uint64_t pendingMaxId QUON_GUARDED_BY(lock) = 0;
  std::optional<Seconds> firstEventAt QUON_GUARDED_BY(lock);
  Seconds lastEventAt QUON_GUARDED_BY(lock) = kDistantPast;
  bool armed QUON_GUARDED_BY(lock) = false;
  bool applying QUON_GUARDED_BY(lock) = false;
  bool stopped QUON_GUARDED_BY(lock) = false;
  std::optional<std::string> failureReason QUON_GUARDED_BY(lock);
  std::vector<TopFile> topFiles QUON_GUARDED_BY(lock);
};

LiveWatcher::LiveWatcher(Services services, Options options)
    : state(std::make_shared<State>(std::move(services), std::move(options))) {
  state->start();
}
void LiveWatcher::foldersChanged(const std::vector<std::string>& paths) {
  state->foldersChanged(paths);
}
LiveWatcher::~LiveWatcher() {
  state->stop();
}
void LiveWatcher::stop() {
  state->stop();
}

void LiveWatcher::State::start() {
  if (!options.followsEvents) return;
  std::unique_ptr<EventStream> made = services.events.create(
      {.root = options.index.root.path(),
       .since = options.sinceEventId,
       .latency = kLatency,
       .watchRoot = true},
      services.callbackQueue, [weak = weak_from_this()](std::span<const FolderEvent> events) {
        if (const auto alive = weak.lock()) alive->onEvents(events);
      });
  if (!made) return services.onEvent(NeedsRescan{"live stream creation failed"});
  EventStream* const starting = made.get();
  {
    const MutexLock held(lock);
    stream = std::move(made);
  }
  if (starting->start()) return;
  {
    const MutexLock held(lock);
    made = std::move(stream);
  }
  services.onEvent(NeedsRescan{"live stream start failed"});
}

void LiveWatcher::State::stop() {
  std::unique_ptr<EventStream> ending;
  {
    const MutexLock held(lock);
    stopped = true;
    ending = std::move(stream);
  }
  if (ending) ending->stop();
}

void LiveWatcher::State::onEvents(std::span<const FolderEvent> events) {
  for (const FolderEvent& event : events) {
    if ((event.flags & EventFlag::historyDone) != 0) continue;
    if ((event.flags & EventFlag::lostTrack) != 0) {
      return fail(fmt::format("{} (stream flags 0x{:X})", Refresh::lostTrackReason(event), event.flags),
                  Cause::lostTrack);
    }
    if (!event.path.empty()) buffer(event);
  }
}

void LiveWatcher::State::buffer(const FolderEvent& event) {
  {
    const MutexLock held(lock);
    if (stopped || failureReason) return;
    Refresh::addChange(pending, event, options.index.root, options.index.skipPaths);
    pendingMaxId = std::max(pendingMaxId, event.id);
    const Seconds now = services.clock();
    if (!firstEventAt) firstEventAt = now;
    lastEventAt = now;
    if (armed) return;
    armed = true;
  }
  schedule(options.coalesceWindow);
}

void LiveWatcher::State::foldersChanged(const std::vector<std::string>& paths) {
  {
    const MutexLock held(lock);
    if (stopped || failureReason) return;
    for (const std::string& path : paths) {
      Refresh::addChange(pending, {.path = path}, options.index.root, options.index.skipPaths);
    }
    armed = true;
  }
  schedule(Seconds(0));
}

void LiveWatcher::State::schedule(Seconds delay) {
  services.workQueue.postAfter(delay, [weak = weak_from_this()] {
    if (const auto alive = weak.lock()) alive->attempt();
  });
}

void LiveWatcher::State::attempt() {
  if (const std::optional<Taken> taken = takePending()) apply(*taken);
}

/// The batch to apply now; none when there is nothing to do, or only later, or never again.
std::optional<LiveWatcher::State::Taken> LiveWatcher::State::takePending() {
  std::optional<Seconds> retry;
  std::optional<std::string> failure;
  {
    const MutexLock held(lock);
    if (stopped || failureReason) return std::nullopt;
    const std::size_t count = pending.size();
    if (applying) {
      retry = kWhileApplying;
    } else if (count > options.maxChanges) {
      failure = fmt::format("{} changed dirs — a rescan is cheaper", count);
    } else if (count == 0) {
      armed = false;
      return std::nullopt;
    } else if (count > kLargeBurst && services.clock() - lastEventAt < kQuiet) {
      retry = kQuiet;
    } else {
      armed = false;
      applying = true;
      firstEventAt.reset();
      return Taken{std::exchange(pending, {}), pendingMaxId};
    }
  }
  if (retry) schedule(*retry);
  if (failure) fail(*failure, Cause::tooMany);
  return std::nullopt;
}

void LiveWatcher::State::apply(const Taken& taken) {
  const auto rootChange = taken.changes.find(options.index.root.path());
  if (rootChange != taken.changes.end() && rootChange->second == Refresh::Depth::deep) {
    return fail("deep rescan flagged at the root", Cause::tooMany);
  }
  const auto batch = std::make_shared<Refresh::Batch>();
  std::optional<Update> update;
  std::string reason;
  Cause cause = Cause::failed;
  try {
    update = write(taken, *batch);
  } catch (const StoreError& failure) {
    if (failure.kind == StoreError::Kind::busy) return putBack(taken);
    if (failure.kind == StoreError::Kind::superseded) cause = Cause::superseded;
    if (failure.kind == StoreError::Kind::unwritable) cause = Cause::unwritable;
    reason = failure.what();
  } catch (const Refresh::Failure& failure) {
    if (failure.kind == Refresh::Failure::Kind::notRead) return putBack(taken);
    reason = failure.what();
  } catch (const std::runtime_error& failure) {  // std::system_error among them
    reason = failure.what();
  }
  if (!update) {
    {
      const MutexLock held(lock);
      applying = false;
    }
    std::vector<std::string> changed;
    for (const auto& [path, depth] : taken.changes) changed.push_back(path);
    return fail("index patch failed: " + reason, cause, std::move(changed));
  }
  services.commitExecutor([weak = weak_from_this(), batch, done = *std::move(update)] {
    if (const auto alive = weak.lock()) alive->commitToTree(batch, done);
  });
}

/// The batch is tried again later: another program has the index locked, or descriptors ran out.
void LiveWatcher::State::putBack(const Taken& taken) {
  bool schedules = false;
  {
    const MutexLock held(lock);
    applying = false;
    for (const auto& [path, depth] : taken.changes) {
      Refresh::Depth& now = pending.try_emplace(path, depth).first->second;
      if (depth == Refresh::Depth::deep) now = depth;
    }
    schedules = !armed;
    armed = true;
  }
  if (schedules) schedule(kWhileApplying);
}

LiveWatcher::Update LiveWatcher::State::write(const Taken& taken, Refresh::Batch& batch) {
  ScanPatcher patcher(options.index.indexURL, options.index.root);
  batch = Refresh::prepare(services.platform, taken.changes, patcher, options.index);
  patcher.begin(options.revision);
  Refresh::commitStore(batch, patcher);
  refreshTop(patcher, batch);
  options.revision = patcher.commit(taken.maxId, secondsSince1970());
  Update update;
  {
    const MutexLock held(lock);
    update.topFiles = topFiles;
  }
  update.outcome = Refresh::outcomeOf(batch, taken.maxId);
  update.outcome.revision = options.revision;
  update.changedDirs = batch.changedDirs();
  update.replacedPrefixes = batch.replacedPrefixes();
  update.hardlinksDeduped = patcher.linkDupeCount();
  return update;
}

void LiveWatcher::State::refreshTop(ScanPatcher& patcher, const Refresh::Batch& batch) {
  std::vector<TopFile> before;
  {
    const MutexLock held(lock);
    before = topFiles;
  }
  const bool wasFull = before.size() >= options.topCapacity;
  std::vector<TopFile> after =
      Refresh::patchTop(std::move(before), batch, options.index.minKeep, options.topCapacity);
  // A full list that shrank may lack files that only the index contains.
  if (wasFull && after.size() < options.topCapacity) {
    after = patcher.topFiles(static_cast<std::int64_t>(options.topCapacity), options.index.minKeep);
  }
  patcher.updateTopFiles(after);
  const MutexLock held(lock);
  topFiles = std::move(after);
}

void LiveWatcher::State::commitToTree(const std::shared_ptr<Refresh::Batch>& batch, const Update& update) {
  try {
    Refresh::rollupDirty(
        Refresh::commitTree(options.tree, options.index.root, options.index.minKeep, *batch));
  } catch (const Refresh::Failure& failure) {
    return fail(std::string("index patch failed: ") + failure.what(), Cause::superseded);
  }
  bool again = false;
  {
    const MutexLock held(lock);
    applying = false;
    again = !pending.empty() && !armed;
    if (again) armed = true;
  }
  if (again) schedule(options.coalesceWindow);
  services.onEvent(update);
}

void LiveWatcher::State::fail(const std::string& reason, Cause cause, std::vector<std::string> changed) {
  std::shared_ptr<EventStream> ending;
  {
    const MutexLock held(lock);
    const bool reported = failureReason.has_value();
    failureReason = reason;
    if (reported || stopped) return;
    stopped = true;
    ending = std::move(stream);
  }
  // Not here: this may be the stream's own delivery, which its stop waits for.
  if (ending) services.workQueue.post([ending] { ending->stop(); });
  services.onEvent(NeedsRescan{reason, cause, std::move(changed)});
}

}  // namespace quon
