#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/WorkItem.h"
#include "live/LiveWatcher.h"
#include "model/LatestJob.h"
#include "model/ModelState.h"

namespace quon {

/// Keeps the shown tree true while the program runs: the watcher prepares and writes batches on its own
/// queues; here they enter the tree, on the main thread and through the gate. Threads: main only.
class LiveUpdates {
 public:
  LiveUpdates(const LiveUpdates&) = delete;
  LiveUpdates& operator=(const LiveUpdates&) = delete;
  virtual ~LiveUpdates() = default;

  /// When the shown state was true, seconds since 1970.
  Observed<std::optional<std::int64_t>> _indexedAt;
  /// The shown tree follows the disk.
  Observed<bool> _isLive;
  /// True until it has turned out whether the shown tree can be followed.
  [[nodiscard]] bool isLiveStarting() const { return starting.isRunning(); }
  /// The shown tree is not followed now, and will be brought up to date by itself.
  [[nodiscard]] bool isRecovering() const { return recovering; }
  /// Called for each live event with the observers of the operation that took it in.
  std::function<void(const LiveWatcher::Event&)> onLiveEvent;

 protected:
  explicit LiveUpdates(ModelState& model);
  /// Where live updates continue.
  struct LiveStart {
    std::uint64_t eventId = 0;  ///< the shown tree is true as of it; 0 when there are none
    std::uint32_t rootDev = 0;
    std::uint64_t revision = 0;   ///< of the index, that the shown tree stands for
    std::string notRecorded = {}; ///< why changes cannot be followed; "" when they can
    std::vector<std::string> changed = {};  ///< folders that may have changed since they were read
  };
  /// Follows the shown tree. When it cannot be followed, or should not be, the problem says why.
  void startLiveWatch(const LiveStart& start);
  void stopLiveWatch();
  /// Brings what is directly in these folders up to date at once, without waiting for events, or as soon as a watcher
  /// that is on its way is there. False when none is.
  bool refreshFolders(const std::vector<std::string>& paths);

  /// Brings the shown tree up to date and follows it again: from its index, by comparing it with the disk where
  /// the journal does not help, by a scan where more changed than that is good for.
  virtual void recover() = 0;
  /// The folders of batches that another program was faster to write; gone with the call.
  [[nodiscard]] std::vector<std::string> takeOvertaken() { return std::exchange(overtaken, {}); }
  /// A live event, for whoever listens.
  void report(const LiveWatcher::Event& event);

 private:
  void refreshWaiting();
  [[nodiscard]] std::string whyNotFollowed(const LiveStart& start) const;
  void commit(const std::function<void()>& commitToTree);
  void take(const LiveWatcher::Event& event);
  void liveBatchApplied(const LiveWatcher::Update& update);
  void scheduleRecovery(LiveWatcher::Cause cause);

  ModelState& state;
  bool recovering = false;
  std::vector<std::string> overtaken;
  std::vector<std::string> toRefresh;  // once a watcher is there
  std::chrono::duration<double> nextDelay{0};  // of a recovery, when it soon follows another
  std::chrono::duration<double> lastRecovery{-1e9};
  WorkItem recovery;
  std::shared_ptr<LiveUpdates*>
      watch;  // none while nothing is watched; what the watcher posts refers to it weakly
  LatestJob<std::shared_ptr<LiveWatcher>> starting;
  std::shared_ptr<LiveWatcher> liveWatcher;
};

}  // namespace quon
