#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "base/RefPtr.h"
#include "live/Refresh.h"
#include "platform/Platform.h"
#include "scan/DirNode.h"
#include "scan/KeptFiles.h"

namespace quon {

class BackgroundQueue;
class EventService;

/// Keeps a loaded tree and its index current: gathers the folders that change, waits until the changes
/// settle, and applies one batch at a time. When it cannot, it says why, once, and stops; the answer is a
/// scan.
///
/// Threads: made and stopped anywhere. Events come on the callback queue, batches are prepared and written on
/// the work queue, the tree is changed and `onEvent` told inside the commit executor. Destroyed, it is
/// stopped; work under way keeps what it needs alive and then finds it gone.
class LiveWatcher {
 public:
  struct Update {
    std::vector<TopFile> topFiles;
    Refresh::Outcome outcome;  ///< newEventId is the batch's largest event
    std::vector<std::string> changedDirs;
    std::vector<std::string> replacedPrefixes;  ///< drop what was cached below these
    std::uint64_t hardlinksDeduped = 0;
  };
  struct NeedsRescan {
    std::string reason;
  };
  using Event = std::variant<Update, NeedsRescan>;
  using Clock = std::function<std::chrono::duration<double>()>;

  struct Options {
    RefPtr<DirNode> root;
    std::string rootPath;  ///< "/" for "/"
    std::string indexURL;
    std::uint32_t rootDev = 0;
    std::uint64_t minKeep = kMinKeep;
    std::set<std::string> skipPaths = {};
    std::vector<TopFile> topFiles = {};  ///< no more than topCapacity are kept
    std::uint64_t sinceEventId = 0;
    std::chrono::duration<double> coalesceWindow{1.5};
    std::size_t maxChanges = 20000;
    std::size_t topCapacity = static_cast<std::size_t>(kTopFiles);
  };
  /// What it works with. The queues are serial and outlive it; so does the event service.
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

  /// No event is accepted after it; may be called twice.
  void stop();

 private:
  class State;
  std::shared_ptr<State> state;
};

}  // namespace quon
