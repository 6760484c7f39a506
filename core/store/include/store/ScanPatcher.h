#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/RootPath.h"
#include "scan/DirNode.h"
#include "scan/FileBatch.h"
#include "scan/FileEntry.h"

namespace quon {

/// One row of the registry of hard links.
struct LinkSighting {
  std::uint64_t fileID = 0;
  std::int64_t dirId = 0;
  std::string name;
  bool counted = false;  ///< the one sighting of its file whose sizes are counted
};

/// A folder as it is stored in the index.
struct StoredDir {
  std::int64_t id = 0;
  std::string name;
  std::int64_t mtime = 0;
};

/// A file of the index by its folder's path.
struct StoredFile {
  std::string folder;
  std::string name;
};

/// One batch of changes to an existing index. First it is read, without any lock, while the batch is
/// prepared; then `begin` starts the one transaction that writes, which `commit` ends; without that the
/// destructor leaves every row as it was. A statement that fails (a full disk) throws StoreError, and the
/// batch is lost as a whole.
///
/// Threads: confined to one at a time. From `begin` to `commit` other connections wait up to 2 seconds.
class ScanPatcher {
 public:
  /// The files of walked folders, by node.
  using Listings = std::unordered_map<const DirNode*, FileBatch>;

  /// StoreError (sqlite) "cannot open PATH for patching", or incompatible.
  ScanPatcher(const std::string& indexURL, RootPath root);
  ~ScanPatcher();
  ScanPatcher(const ScanPatcher&) = delete;
  ScanPatcher& operator=(const ScanPatcher&) = delete;

  /// Nullopt outside the root and for folders that the index does not contain.
  [[nodiscard]] std::optional<std::int64_t> dirId(const std::string& path);
  [[nodiscard]] std::optional<std::string> path(std::int64_t dir);
  [[nodiscard]] std::vector<std::string> childNames(std::int64_t dir);
  /// The child folders with what was stored of them.
  [[nodiscard]] std::vector<StoredDir> children(std::int64_t dir);
  /// The folder itself and all below it.
  [[nodiscard]] std::vector<std::int64_t> dirIdsUnder(std::int64_t dir);
  /// Logical and physical size and mtime of a counted file.
  [[nodiscard]] std::optional<FileEntry> file(std::int64_t dir, std::string_view name);

  /// Apparent size and time of modification.
  using SizeAndTime = std::pair<std::uint64_t, std::int64_t>;
  /// Counted files of these sizes and times, and a few of these sizes and other times.
  struct Alike {
    std::vector<StoredFile> files;
    bool hasAllOfTimes = true;  ///< every file of the same size and time is among them
  };
  /// Reads all files of the index.
  [[nodiscard]] Alike filesLike(const std::set<SizeAndTime>& wanted);

  /// Reads all folders of the index.
  [[nodiscard]] std::size_t folderCount();

  /// When the index was last scanned or patched, seconds since 1970; 0 when it does not say.
  [[nodiscard]] double writtenAt();
  /// True until events from after the scan are in: the registry may lack names of files that were linked while
  /// they were scanned.
  [[nodiscard]] bool mayLackLinks();
  /// Ends the read lock that the operations above take, each for those that follow at once. To be called
  /// before anything that may take its time: no other program can write meanwhile.
  void releaseLock();

  /// Which state of the index this is. Every commit that changes rows raises it by one; a new index begins
  /// anywhere.
  [[nodiscard]] std::uint64_t revision();
  /// Begins to write. StoreError: superseded when the index is of another revision, busy when another program
  /// has kept it locked for 2 seconds, unwritable.
  void begin(std::uint64_t expectedRevision);

  // From `begin` on:
  void replaceFiles(std::int64_t dir, const std::vector<FileEntry>& files, std::int64_t mtime, bool error);
  void deleteSubtree(std::int64_t dir, const std::string& path);
  void insertSubtree(std::int64_t parent, const DirNode& node, const Listings& listings);

  // At any time:
  [[nodiscard]] std::vector<LinkSighting> linksIn(std::int64_t dir);
  [[nodiscard]] std::vector<LinkSighting> linkSightings(std::uint64_t fileID);
  /// The counted sightings in the folder and all below it.
  [[nodiscard]] std::vector<LinkSighting> countedLinksUnder(std::int64_t dir);
  /// The files with a sighting, counted or not, in the folder or below it.
  [[nodiscard]] std::vector<std::uint64_t> linkedFilesUnder(std::int64_t dir);
  // From `begin` on:
  void setLink(std::uint64_t fileID, std::int64_t dir, std::string_view name, bool counted);
  void deleteLink(std::uint64_t fileID, std::int64_t dir, std::string_view name);
  void deleteLinks(std::int64_t dir);
  /// Sightings that are not counted in sizes.
  [[nodiscard]] std::uint64_t linkDupeCount();

  /// The largest files of at least `minKeep` bytes, largest first: reads all files of the index.
  [[nodiscard]] std::vector<TopFile> topFiles(std::int64_t limit, std::uint64_t minKeep);
  void updateTopFiles(const std::vector<TopFile>& topFiles);

  /// Ends the batch. `scannedAt` is seconds since 1970. Returns the revision from now on.
  std::uint64_t commit(std::uint64_t lastEventId, double scannedAt);
  /// The number of the device that the root is on now, for the next commit.
  void setRootDev(std::uint32_t device);

 private:
  struct Statements;
  void setMeta(std::string_view key, std::string_view value);
  std::int64_t insertFolder(std::int64_t parent, const DirNode& node, const Listings& listings);

  std::map<std::string, std::int64_t, std::less<>> idByPath;  // ordered: what is below a path is a range
  const RootPath root;
  std::unique_ptr<Statements> statements;
};

}  // namespace quon
