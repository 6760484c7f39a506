#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "base/RefPtr.h"
#include "live/Refresh.h"
#include "platform/Platform.h"
#include "scan/DirNode.h"
#include "scan/KeptFiles.h"
#include "store/IndexedRoot.h"

namespace quon {

class BackgroundQueue;
class EventService;

/// Keeps a loaded tree and its index current: gathers the folders that change, waits until the changes
/// settle, and applies one batch at a time. When it cannot, it reports the reason, once, and stops; then a
/// scan is needed.
///
/// Threads: made and stopped on any. Events come on the callback queue, batches are prepared and written on
/// the work queue; the tree is changed, and `onEvent` called for it, inside the commit executor. Failures are
/// reported on the thread that saw them. Its destructor stops it; work that is running keeps what it needs
/// alive, and does nothing more.
class LiveWatcher {
 public:
  struct Update {
    std::vector<TopFile> topFiles;
    Refresh::Outcome outcome;  ///< newEventId is the batch's largest event
    std::vector<std::string> changedDirs;
    std::vector<std::string> replacedPrefixes;  ///< what was cached below these is void
    std::uint64_t hardlinksDeduped = 0;
  };
  /// Why the tree can no longer be patched.
  enum class Cause {
    lostTrack,   ///< the journal cannot say what changed
    tooMany,     ///< more changed than a patch may take
    superseded,  ///< another program has changed the index, which the tree is therefore no longer in step with
    unwritable,  ///< the index cannot be written
    failed,      ///< anything else
  };
  struct NeedsRescan {
    std::string reason;
    Cause cause = Cause::failed;
    std::vector<std::string> changed = {};  ///< when superseded: the folders of the batch that was not written
  };
  using Event = std::variant<Update, NeedsRescan>;
  using Clock = std::function<std::chrono::duration<double>()>;

  struct Options {
    IndexedRoot index;
    RefPtr<DirNode> tree;
    std::vector<TopFile> topFiles = {};  ///< no more than topCapacity are kept
    std::uint64_t sinceEventId = 0;
    bool followsEvents = true;  ///< else only what `foldersChanged` reports is applied
    std::uint64_t revision = 0;  ///< of the index, that the tree stands for
    std::chrono::duration<double> coalesceWindow{1.5};
    std::size_t maxChanges = Refresh::kMaxChanges;
    std::size_t topCapacity = static_cast<std::size_t>(kTopFiles);
  };
  /// What it uses. The queues are serial; they and the event service outlive it.
  struct Services {
    const Platform& platform;
    EventService& events;
    BackgroundQueue& callbackQueue;
    BackgroundQueue& workQueue;
    std::function<void(std::function<void()>)> commitExecutor;
    std::function<void(const Event&)> onEvent;
    Clock clock;  ///< seconds of a clock that only goes forward
  };

  /// Starts at once.
  LiveWatcher(Services services, Options options);
  ~LiveWatcher();
  LiveWatcher(const LiveWatcher&) = delete;
  LiveWatcher& operator=(const LiveWatcher&) = delete;

  /// Applies at once what changed directly in these folders, without waiting for the events. Threads: any.
  void foldersChanged(const std::vector<std::string>& paths);
  /// No event is accepted after it; may be called twice.
  void stop();

 private:
  class State;
  std::shared_ptr<State> state;
};

}  // namespace quon
