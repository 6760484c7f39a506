#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/RefPtr.h"
#include "scan/DirNode.h"
#include "scan/FileEntry.h"
#include "store/ScanPatcher.h"

namespace quon::Refresh {

/// What was read from the disk for one batch of changes, ready to be written to the index and to the tree.
/// The tree's commit takes over its nodes.
struct Batch {
  struct Op {
    enum class Kind {
      refresh,  ///< one folder's direct entries, with those child folders that came or went
      deep,     ///< a whole subtree walked anew
      remove,   ///< a subtree that exists no longer
    };
    /// A child folder that came, with its walked subtree, or went.
    struct Child {
      std::string name;
      RefPtr<DirNode> node;  ///< none when it went
    };

    Kind kind = Kind::refresh;
    std::string path;
    // Of a refresh:
    std::int64_t mtime = 0;
    bool error = false;
    std::uint16_t errorNumber = 0;  ///< as of DirNode
    std::vector<FileEntry> files;  ///< the counted ones
    std::vector<Child> children;
    // Of a deep walk:
    RefPtr<DirNode> node;
  };

  /// A row of the registry of links, by path: its folder may have no id until the batch is written.
  struct LinkWrite {
    std::uint64_t fileID = 0;
    std::string dirPath;
    std::string name;
    bool counted = false;
  };

  std::vector<Op> ops;
  ScanPatcher::Listings listings;  ///< counted files of walked folders
  std::vector<LinkWrite> linkWrites;
  std::vector<LinkSighting> linkDeletes;
  std::vector<std::string> promotedDirs;  ///< read only because a sighting in them became the counted one

  /// Folders re-listed in place, in the order of the ops.
  [[nodiscard]] std::vector<std::string> changedDirs() const;
  /// Subtrees replaced or removed as a whole, in the order of the ops.
  [[nodiscard]] std::vector<std::string> replacedPrefixes() const;
  [[nodiscard]] std::int64_t count(Op::Kind kind) const;
};

}  // namespace quon::Refresh
