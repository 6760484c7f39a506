#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "SubtreeWalk.h"
#include "live/Batch.h"
#include "live/Refresh.h"
#include "platform/Directories.h"
#include "scan/DirListing.h"

namespace quon::Refresh {

/// A folder that was read in place.
struct ListedFolder {
  std::string path;
  std::int64_t id = 0;
  DirListing listing;
  std::vector<Batch::Op::Child> children;
  std::vector<LinkSighting> formerLinks;  ///< its rows in the registry
};

/// Reads what changed from the disk. See the .cpp for how. Serves one batch. Threads: confined to one.
class BatchBuilder {
 public:
  BatchBuilder(const Platform& services, ScanPatcher& patching, const IndexedRoot& about);
  [[nodiscard]] Batch build(const Changes& changes);

 private:
  friend class LinkResolver;

  void handle(std::string path, Depth depth);
  void handleKnown(const std::string& path, std::int64_t id, Depth depth);
  void refresh(const std::string& path, std::int64_t id, DirListing listing);
  void compareChildren(ListedFolder& folder);
  void walk(const std::string& path);
  void remove(const std::string& path, std::int64_t id);
  void cover(const std::string& path);
  /// Hands the links below a folder that goes to the resolver.
  void releaseLinksUnder(std::int64_t id);
  /// Adds the folder to those that are still to be read.
  void addFolder(const std::string& path);
  [[nodiscard]] bool isCovered(const std::string& path) const;
  [[nodiscard]] Batch assemble();

  const Platform& platform;
  ScanPatcher& patcher;
  const IndexedRoot& index;
  const std::unique_ptr<DirectoryReader> reader;

  Changes todo;
  std::set<std::string> handled;
  std::set<std::string, std::less<>> covered;  ///< subtrees walked or removed as a whole

  // By path, so that what a subtree covers is a range.
  std::map<std::string, ListedFolder, std::less<>> listed;
  std::map<std::string, WalkedSubtree, std::less<>> walked;
  std::set<std::string, std::less<>> removed;
  /// Nodes of walks that a later one took in. Listings are found by the addresses of nodes: as long as any is
  /// added, no node may be freed and its address used again.
  std::vector<RefPtr<DirNode>> superseded;
  std::set<std::string, std::less<>> deepWalks;  ///< those of `walked` that replace a folder of the index
  std::set<std::uint64_t> releasedLinks;  ///< files that may have lost a sighting
  Batch batch;
};

}  // namespace quon::Refresh
