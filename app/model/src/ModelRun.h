#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "live/Refresh.h"
#include "model/AppModel.h"
#include "platform/Threads.h"
#include "store/FolderScan.h"

namespace quon {

class FileService;

/// The path with the links above its last name resolved; as it is when that cannot be.
[[nodiscard]] std::string withoutLinksAbove(const FileService& files, const std::string& path);

/// A scan or load under way. Owned, and ended, by the main thread; its own thread uses it until then.
struct AppModel::Run {
  /// Threads: any.
  void cancel() {
    cancelled = true;
    catchUp.cancel();
    if (scan) scan->cancel();
  }

  std::int64_t generation = 0;
  std::unique_ptr<FolderScan> scan;  ///< none for a load; made before the thread
  Refresh::CatchUpCancel catchUp;
  std::atomic<bool> cancelled{false};
  std::unique_ptr<RunningThread> thread;  ///< last: joined before the rest goes
};

/// What a run's thread brings back.
struct AppModel::Finished {
  std::shared_ptr<WalkResult> result;  ///< none when it failed or was cancelled
  SlotIndex slots;
  LastRun told;
  std::string failure;  ///< what was thrown
  bool isLoad = false;
  std::int64_t trueAt = 0;  ///< seconds since 1970
  std::uint64_t eventId = 0;
  std::uint32_t rootDev = 0;
};

}  // namespace quon
