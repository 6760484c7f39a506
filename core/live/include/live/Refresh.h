#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/RootPath.h"
#include "live/Batch.h"
#include "platform/DiskIdentity.h"
#include "platform/Platform.h"
#include "scan/WalkResult.h"
#include "store/IndexedRoot.h"

namespace quon {

class EventService;
class ScanPatcher;
struct FolderEvent;
struct IndexState;
struct Loaded;

/// Brings an index and its tree up to date with the folders that changed, without a scan. The batch
/// operations serve the catch-up at launch and the live watcher alike: `prepare` reads the disk,
/// `commitStore` writes the index, `commitTree` and `rollupDirty` change the tree, each on the thread that
/// its caller chooses.
namespace Refresh {

/// Why an index cannot be brought up to date; only a scan can then.
class Failure : public std::runtime_error {
 public:
  enum class Kind {
    journalUnavailable,
    tooManyChanges,
    deviceChanged,
    treeDiffers,  ///< the tree lacks a folder that the index contains
    notRead,      ///< a folder that is there could not be read now, for want of descriptors or memory
    cancelled,
  };
  [[nodiscard]] static Failure journalUnavailable(const std::string& reason);
  [[nodiscard]] static Failure tooManyChanges(std::size_t count);
  /// The journal says that anything below the root may have changed.
  [[nodiscard]] static Failure rootIsDeep(std::size_t count);
  [[nodiscard]] static Failure deviceChanged();
  [[nodiscard]] static Failure treeDiffers(const std::string& path);
  [[nodiscard]] static Failure notRead(const std::string& path, const std::error_code& reason);
  [[nodiscard]] static Failure cancelled();
  const Kind kind;
  /// A walk that compares finds out what changed.
  const bool wantsReconciling;

 private:
  Failure(Kind which, const std::string& message, bool reconciling = false);
};

/// Counts of what a batch did.
struct Outcome {
  std::int64_t refreshedDirs = 0;
  std::int64_t walkedSubtrees = 0;
  std::int64_t removedSubtrees = 0;
  std::uint64_t newEventId = 0;  ///< what the index is current to
  std::uint64_t revision = 0;    ///< of the index from then on
};

/// How far below a changed folder things may have changed.
enum class Depth {
  shallow,  ///< directly in the folder
  deep,     ///< anywhere below it
};

/// Changed folders by full path.
using Changes = std::map<std::string, Depth, std::less<>>;

/// The rules for the path of every event: trailing slashes dropped, paths outside the root or below a skipped
/// one dropped, a folder deep once one of its events was.
[[nodiscard]] Changes coalesce(const std::vector<FolderEvent>& events, const RootPath& root,
                               const std::set<std::string>& skipPaths);
/// One event by the same rules.
void addChange(Changes& changes, const FolderEvent& event, const RootPath& root,
               const std::set<std::string>& skipPaths);

/// Reads the changed folders from the disk and compares them with the patcher's index, without a lock on
/// that. Folders whose modification time differs from the stored one are read even when no event named them.
/// Throws Failure when the root has gone or lies on another device, or a folder cannot be read now;
/// StoreError (superseded) when the index changed meanwhile, which may also turn out only when the patcher
/// begins to write. Threads: any; starts walker threads.
[[nodiscard]] Batch prepare(const Platform& platform, const Changes& changes, ScanPatcher& patcher,
                            const IndexedRoot& index);

/// Writes the batch within the patcher's transaction.
void commitStore(const Batch& batch, ScanPatcher& patcher);

/// The new list of largest files: those in changed folders are replaced by the batch's files.
[[nodiscard]] std::vector<TopFile> patchTop(std::vector<TopFile> topFiles, const Batch& batch,
                                            std::uint64_t minKeep, std::size_t capacity);

/// What the batch does, in numbers.
[[nodiscard]] Outcome outcomeOf(const Batch& batch, std::uint64_t newEventId);

/// Applies the batch to the tree; returns the nodes whose totals must be rolled up again. Throws Failure
/// (treeDiffers); the tree is changed in part then.
[[nodiscard]] std::vector<DirNode*> commitTree(const RefPtr<DirNode>& root, const RootPath& rootPath,
                                               std::uint64_t minKeep, Batch& batch);
/// Rolls up the nodes and all their ancestors, each once, children first.
void rollupDirty(const std::vector<DirNode*>& nodes);

/// With more changed folders a scan is cheaper.
inline constexpr std::size_t kMaxChanges = 20000;

struct CatchUpOptions {
  IndexedRoot index;  ///< its device is found out, whatever is given here
  std::size_t maxChanges = kMaxChanges;
  std::stop_token stopped = {};  ///< ends it before its next step, and its wait for the journal
};

/// The root as it is on the disk that is there now. Throws Failure (deviceChanged) when that is another disk
/// than the one the index was made of.
[[nodiscard]] IndexedRoot presentRoot(const Platform& platform, IndexedRoot index, const DiskIdentity& disk,
                                      std::uint32_t storedDevice);

/// The same for a catch-up. Throws Failure also when the index lacks what that takes.
[[nodiscard]] IndexedRoot rootToCatchUp(const Platform& platform, IndexedRoot index, const IndexState& state);

/// What the journal says has changed since the event. Throws Failure: journalUnavailable when it cannot say,
/// tooManyChanges, cancelled. Threads: any but the main one: waits up to 30 seconds for the journal.
[[nodiscard]] Changes changesSince(const Platform& platform, EventService& events, std::uint64_t eventId,
                                   const CatchUpOptions& options);

/// A patched tree, and what was done to it.
struct Applied {
  WalkResult result;
  Outcome outcome;
  std::vector<std::string> changedDirs;       ///< as of a batch
  std::vector<std::string> replacedPrefixes;  ///< likewise
};

/// Patches index and tree with these changes. The tree in `loaded` is changed in place and returned. Throws
/// Failure and StoreError (superseded when the index is no longer the one that was loaded); the index is
/// unchanged then, the tree perhaps not. Threads: any but the main one.
[[nodiscard]] Applied applyChanges(const Platform& platform, const Changes& changes, std::uint64_t newEventId,
                                   Loaded& loaded, const CatchUpOptions& options);

/// The two of them, from the loaded index's event on.
[[nodiscard]] std::pair<WalkResult, Outcome> catchUp(const Platform& platform, EventService& events,
                                                     Loaded& loaded, const CatchUpOptions& options);

}  // namespace Refresh

}  // namespace quon
