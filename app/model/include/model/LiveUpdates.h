#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "live/LiveWatcher.h"
#include "model/LatestJob.h"
#include "model/ModelState.h"

namespace quon {

/// Keeps the shown tree true while the program runs: the watcher prepares and writes batches on its own
/// queues; here they enter the tree, on the main thread and through the gate. Threads: main only.
class LiveUpdates {
 public:
  /// When the shown state was true, seconds since 1970.
  Observed<std::optional<std::int64_t>> _indexedAt;
  /// The shown tree follows the disk.
  Observed<bool> _isLive;
  /// True until it has turned out whether the shown tree can be followed.
  [[nodiscard]] bool isLiveStarting() const { return starting.isRunning(); }
  /// Called for each live event with the observers of the operation that took it in.
  std::function<void(const LiveWatcher::Event&)> onLiveEvent;

 protected:
  explicit LiveUpdates(ModelState& model);
  /// Follows the shown tree, which is true as of the event. When it cannot be followed, or should not be, the
  /// problem says why.
  void startLiveWatch(std::uint64_t sinceEventId, std::uint32_t rootDev);
  void stopLiveWatch();

 private:
  void commit(const std::function<void()>& commitToTree);
  void take(const LiveWatcher::Event& event);
  void liveBatchApplied(const LiveWatcher::Update& update);

  ModelState& state;
  std::shared_ptr<LiveUpdates*>
      watch;  // none while nothing is watched; what the watcher posts refers to it weakly
  LatestJob<std::shared_ptr<LiveWatcher>> starting;
  std::shared_ptr<LiveWatcher> liveWatcher;
};

}  // namespace quon
