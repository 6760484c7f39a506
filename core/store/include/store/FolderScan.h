#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "base/Mutex.h"
#include "base/RootPath.h"
#include "platform/Platform.h"
#include "scan/Progress.h"
#include "scan/WalkResult.h"

namespace quon {

class MemoryIndex;
class ScanStore;
class Walker;

/// One fresh scan of a folder into its index: walk, roll up, save. An index that cannot be saved does not
/// spoil the scan: the result is valid, and `notSaved` is the reason. Serves one run. Threads: `run` blocks
/// its caller; `cancel`, `progress` and `buildingFile` are for any thread.
class FolderScan {
 public:
  struct Options {
    RootPath root;         ///< canonical
    unsigned threads = 0;  ///< 0 for the walker's own choice
    bool oneFileSystem = true;
    bool saveIndex = true;
    std::string indexDirectory = {};  ///< where the index is saved
    std::set<std::string> skipPaths = {};
    /// Taken before: live updates continue from it. None: the present time by the clock.
    std::optional<std::uint64_t> eventId = {};
    /// An index that cannot be saved is kept in memory instead, for which the folder is walked once more.
    bool keepsInMemory = false;
  };

  struct Outcome {
    WalkResult result;           ///< rolled up
    std::int64_t elapsedMs = 0;  ///< walk and roll-up
    double scannedAt = 0;        ///< seconds since 1970
    std::string index;           ///< the saved index; "" when there is none
    std::shared_ptr<MemoryIndex> inMemory = {};  ///< the index, when it is kept there
    std::string notSaved;        ///< why an index that was asked for was not saved; "" when it was
    std::uint64_t eventId = 0;   ///< live updates start from it; 0 when they cannot
    std::uint32_t rootDev = 0;
    std::uint64_t revision = 0;  ///< of the saved index
    bool cancelled = false;  ///< nothing was saved, and nothing else here is valid
  };

  FolderScan(const Platform& platform, Options options);
  ~FolderScan();

  /// Throws std::system_error "cannot scan PATH" when the root is no folder or cannot be reached, and
  /// std::bad_alloc. Nothing is saved then.
  [[nodiscard]] Outcome run();
  void cancel();
  [[nodiscard]] Progress::Snapshot progress() const;
  /// The file that is being built; "" when there is none. Waits while it is being made, at most 2 seconds.
  [[nodiscard]] std::string buildingFile() const;

 private:
  [[nodiscard]] Outcome scan();
  void closeStore();
  void walkInto(const std::string& url, Outcome& outcome);
  void keepInMemory(Outcome& outcome);
  void openStore(const std::string& url, Outcome& outcome);
  void save(Outcome& outcome);
  [[nodiscard]] WalkResult walk(std::uint32_t rootDev);

  const Platform& platform;
  const Options options;
  mutable Mutex lock;
  std::unique_ptr<ScanStore> store QUON_GUARDED_BY(lock);
  std::unique_ptr<Walker> walker QUON_GUARDED_BY(lock);
  bool isOpening QUON_GUARDED_BY(lock) = false;  // the store is being made
  mutable Condition opened;
  std::atomic<bool> cancelled{false};
};

}  // namespace quon
