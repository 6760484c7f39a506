#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <string>

#include "base/Mutex.h"
#include "base/RootPath.h"
#include "live/Refresh.h"
#include "model/ScanSession.h"
#include "platform/Threads.h"
#include "scan/Progress.h"
#include "store/FolderScan.h"
#include "store/MemoryIndex.h"
#include "store/ScanStore.h"

namespace quon {

/// What a run's thread brings back.
struct ScanSession::Finished {
  RootPath root;                       ///< empty when the folder could not be examined
  std::shared_ptr<WalkResult> result;  ///< none when it failed or was cancelled
  LastRun outcome;
  std::int64_t trueAt = 0;  ///< seconds since 1970
  std::uint64_t eventId = 0;
  std::uint32_t rootDev = 0;
  std::uint64_t revision = 0;  ///< of the saved index
  std::string indexURL;        ///< of the index on disk or in memory; "" when there is none
  std::shared_ptr<MemoryIndex> inMemory;
  Refresh::Applied caughtUp;  ///< of a load; without the tree
  std::string notRecorded;     ///< why changes cannot be followed, and what to do about it; "" when they can
};

/// Where a run has got to.
struct ScanSession::Step {
  enum class Kind { loading, scanning };
  Kind kind = Kind::scanning;
  RootPath root;
  bool hasFullDiskAccess = true;
  std::string notLoaded;  ///< of a scan: why the saved index was not used; "" when there was none
};

/// One scan, or one load of a saved index with what follows when that cannot be used, on a thread of its own.
///
/// Threads: made, started and destroyed, which joins the thread, on the main thread; `cancel`, `progress` and
/// `buildingFile` from any.
class ScanSession::Run {
 public:
  struct Request {
    std::string path;  ///< of the root, as it was asked for
    Purpose purpose = Purpose::scan;
    ModelOptions options;
    std::int64_t now = 0;  ///< seconds since 1970
  };
  Run(const ModelServices& services, Request asked, std::int64_t ownGeneration);

  /// `onStep` and `onEnd` are called on the run's thread, the latter once and last. Throws std::system_error when
  /// the system has no thread to give.
  void start(std::function<void(Step)> onStep, std::function<void(std::shared_ptr<Finished>)> onEnd);
  void cancel() QUON_EXCLUDES(lock);
  [[nodiscard]] Progress::Snapshot progress() const QUON_EXCLUDES(lock);
  [[nodiscard]] std::string buildingFile() const QUON_EXCLUDES(lock);

  const std::int64_t generation;
  const Purpose purpose;

 private:
  void work(const std::function<void(Step)>& onStep, Finished& finished);
  void load(Finished& finished, const std::string& url);
  void loadOnce(Finished& finished, const std::string& onDisk, const std::string& url);
  void loadInMemory(Finished& finished, const std::string& url, const std::string& reason);
  void catchUp(Finished& finished, const std::string& url, const IndexSummary& summary);
  /// Has the root recorded; returns the event from which the disk, as it is read from now on, is true.
  [[nodiscard]] std::uint64_t beginRecording(Finished& finished);
  void scan(Finished& finished, bool hasFullDiskAccess);

  const ModelServices services;
  const Request request;
  std::stop_source stopping;
  std::atomic<bool> cancelled{false};
  mutable Mutex lock;
  std::unique_ptr<FolderScan> folderScan QUON_GUARDED_BY(lock);
  std::unique_ptr<RunningThread> thread;  // last: joined before the rest goes
};

}  // namespace quon
