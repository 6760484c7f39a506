#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/RefPtr.h"
#include "scan/FileEntry.h"

namespace quon {

/// One folder of the scan tree: its own ("direct") figures, as the folder's listing gave them, and the totals
/// of everything below it, which are only ever derived by rolling up.
///
/// A parent owns its children; a child points back without owning. Nodes are compared by identity.
///
/// Threads: while a scan runs, each node is written by the one thread that lists it; afterwards the tree is
/// changed only by the thread that applies patches. Nodes carry no lock. Chains of 100,000 nested folders are
/// freed, rolled up and named without recursion.
class DirNode final : public RefCounted<DirNode> {
 public:
  explicit DirNode(std::string ownName) : name(std::move(ownName)) {}
  DirNode(const DirNode&) = delete;
  DirNode& operator=(const DirNode&) = delete;
  /// Frees, without recursion, all below that has no other reference; what has one loses its parent.
  ~DirNode();

  std::string name;                      ///< bytes; the root's own name is never used in paths
  DirNode* parent = nullptr;             ///< none for the root and for a node taken out of the tree
  std::vector<RefPtr<DirNode>> subdirs;  ///< in the order they were found
  std::vector<FileEntry> keptFiles;      ///< files of at least the scan's minKeep logical bytes
  std::uint64_t directLogical = 0;
  std::uint64_t directPhysical = 0;
  std::uint64_t directFiles = 0;
  std::uint64_t totalLogical = 0;
  std::uint64_t totalPhysical = 0;
  std::uint64_t totalFiles = 0;
  std::uint64_t totalDirs = 0;  ///< folders strictly below this one
  std::int64_t mtime = 0;
  std::int64_t directNewest = 0;  ///< newest mtime of the direct files; 0 when there are none
  std::int64_t newest = 0;        ///< of mtime, directNewest and every child's newest
  bool error = false;             ///< could not be opened, or not be read to its end
  /// The system's error number, when `error` is set; 0 when it is not known, as in a loaded tree.
  std::uint16_t errorNumber = 0;
  bool cacheTagged = false;  ///< one of the direct files is called kCacheTag; its content was not checked
  /// Which of the map's colours it has among its siblings: see scan/MapSlots.h.
  std::uint8_t slotIndex = 0;

  /// The file by which programs mark a folder as a cache.
  static constexpr std::string_view kCacheTag = "CACHEDIR.TAG";

  /// Totals of the whole subtree, children first, and by them the slots of all below this node: what a scan or
  /// a load ends with. An overflow is fatal.
  void rollup();
  /// Totals of this node alone, taking the children's as they stand.
  void rollupShallow();
  /// The node's full path, given the path of the tree's root. A root of "/" yields a doubled slash, so roots
  /// are given without trailing slash ("" for the file system's root).
  [[nodiscard]] std::string path(std::string_view root) const;
  /// True for `top` itself and for all below it, at any depth.
  [[nodiscard]] bool isWithin(const DirNode& top) const;

  /// Subtracts one file from this node and from all totals above; saturates at 0, does not change the newest
  /// times.
  void subtractFile(const FileEntry& entry);
  /// Removes this subtree from its parent and from all totals above; nothing for a node without parent. The
  /// newest times above do not change. An underflow is fatal: an intact tree has none.
  void removeFromTree();
};

/// The folder at a path below `root`, `root` itself for "", none when the tree does not contain it.
[[nodiscard]] RefPtr<DirNode> folderAt(const RefPtr<DirNode>& root, std::string_view pathBelowRoot);

}  // namespace quon
