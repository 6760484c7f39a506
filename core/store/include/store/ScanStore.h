#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/RootPath.h"
#include "platform/DiskIdentity.h"
#include "platform/Platform.h"
#include "scan/KeptFiles.h"
#include "scan/ScanSink.h"
#include "scan/WalkResult.h"
#include "store/DirIds.h"

namespace quon {

/// What an index says of how it can be brought up to date.
struct IndexState {
  std::uint64_t lastEventId = 0;  ///< 0 when the index does not say
  bool hasLinkRegistry = false;   ///< the registry of links is present and complete
  std::uint32_t rootDev = 0;      ///< 0 when the index does not say
  DiskIdentity disk;              ///< that the index was made of
};

/// An index read back.
struct Loaded : IndexState {
  WalkResult result;     ///< the tree, rolled up, with the scan's saved figures
  double scannedAt = 0;  ///< seconds since 1970, with fraction
  std::int64_t scanElapsedMs = 0;
  std::uint64_t revision = 0;  ///< of the index
  DirIds idByPath;             ///< folder path to row id
  /// Of each folder, by its index in `idByPath`: the sum of the fileDigest of its files.
  std::vector<std::uint64_t> folderDigests;
};

/// What an index says of itself, without its tree.
struct IndexSummary : IndexState {
  std::string root;
  double scannedAt = 0;  ///< seconds since 1970
  std::vector<std::string> skippedProtected;
};

/// A sighting of a multiply-linked file in an index, by the row of its folder.
struct RegisteredLink {
  std::uint64_t fileID = 0;
  std::int64_t folder = 0;
  std::string name;
  bool counted = false;
  FileEntry file = {};  ///< of a counted one: the row of its file; without a name when there is none
};

/// The size that names are chosen and sorted by.
enum class NamesBy : std::uint8_t { physical, logical };

/// A file name that occurs more than once, with the totals over all files of that name.
struct RepeatedName {
  std::string name;
  std::int64_t count = 0;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;

  friend bool operator==(const RepeatedName&, const RepeatedName&) = default;
};

/// One file of a name.
struct NamedFile {
  std::string path;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;
};

/// A candidate of the duplicate search, as it is stored in the index.
struct DupeFile {
  std::string path;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;
  std::uint64_t cloneID = 0;      ///< 0 until fetched, or when the file system has none
  std::uint64_t privateSize = 0;  ///< bytes shared with no clone; 0 until fetched
};

/// The index of one scanned root: an SQLite file that is written while the walk runs. As an object it writes
/// one index once; its static operations read and change a finished one, each over a connection of its own.
///
/// Nothing is seen under the final name before it is whole: the file is built under another name in the same
/// folder and moved into place at the end.
///
/// Threads: `record` and `recordLink` from any thread, at most 32,768 folders waiting, beyond which they
/// block; `interrupt` from any; everything else confined to the owner. Static operations: any thread.
class ScanStore final : public ScanSink {
 public:
  static constexpr int formatVersion = 1;

  /// Folder of the indexes + the root's last component (or "root") + "-" + SHA-256 of the root + ".sqlite". A
  /// component too long for the names built from it is cut; the digest keeps it apart from others.
  [[nodiscard]] static std::string canonicalURL(const std::string& indexDirectory, const RootPath& root);

  /// Opens a new file beside `finalURL` and sweeps builds of the same index that were left an hour ago or
  /// more. StoreError (sqlite) "cannot open PATH: reason".
  ScanStore(const Platform& platform, std::string finalURL);
  /// Aborts what was not finished.
  ~ScanStore() override;

  void record(const DirNode& node, FileBatch files) override;
  void recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) override;

  /// Writes what is queued, the metadata and the secondary indexes, and moves the file into place, replacing
  /// an earlier index. On failure throws StoreError; then the building file is gone, and the earlier index is
  /// as it was.
  void finish(const RootPath& root, std::int64_t elapsedMs, const WalkResult& result,
              std::uint64_t lastEventId, std::uint32_t rootDev);
  /// Stops writing and removes the building file.
  void abort();
  /// Makes the writing, and a running `finish`, fail soon.
  void interrupt();

  [[nodiscard]] const std::string& finalURL() const;
  [[nodiscard]] const std::string& buildingURL() const;
  /// That the finished index has. Every commit of a patch raises it by one.
  [[nodiscard]] std::uint64_t revision() const;

  /// All metadata. StoreError as openRead.
  [[nodiscard]] static std::map<std::string, std::string> meta(const std::string& url);
  /// Rebuilds the tree. StoreError: missing, sqlite, or incompatible for an index that is incomplete, of
  /// another format or root, or damaged.
  [[nodiscard]] static Loaded load(const std::string& url, const RootPath& root,
                                   std::uint64_t minKeep = kMinKeep);
  /// StoreError as `load`, for what it reads.
  [[nodiscard]] static IndexSummary summary(const std::string& url);
  /// The whole registry of links. StoreError as openRead.
  [[nodiscard]] static std::vector<RegisteredLink> links(const std::string& url);
  /// Names that occur more than once with at least so many bytes in all, largest first. With `below`, a
  /// folder's path below the root, only files in or below it count.
  [[nodiscard]] static std::vector<RepeatedName> repeatedNames(const std::string& url, std::int64_t limit,
                                                               std::uint64_t minTotal,
                                                               std::string_view below = {},
                                                               NamesBy by = NamesBy::physical);
  /// Files of one name, largest allocation first; `below` as for names.
  [[nodiscard]] static std::vector<NamedFile> paths(std::string_view named, const std::string& url,
                                                    const RootPath& root, std::int64_t limit,
                                                    std::string_view below = {});
  /// Every file of at least `minSize` bytes whose logical size occurs more than once.
  [[nodiscard]] static std::vector<DupeFile> dupeCandidates(const std::string& url, const RootPath& root,
                                                            std::uint64_t minSize);
  /// Removes a trashed file, or a folder with all below it, from the index. StoreError (missing) with the
  /// path when the index does not contain it.
  static void remove(const std::string& path, bool isDir, const std::string& url, const RootPath& root);
  /// The script that patching runs before it writes to an index of an older version.
  [[nodiscard]] static const char* patchIndexSQL();

 private:
  class Writer;
  std::unique_ptr<Writer> writer;
};

}  // namespace quon
