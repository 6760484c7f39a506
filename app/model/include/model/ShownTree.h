#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/RefPtr.h"
#include "base/RootPath.h"
#include "lenses/Kinds.h"
#include "lenses/KnownMarkers.h"
#include "model/TreeGate.h"
#include "rows/Entry.h"
#include "scan/DirNode.h"
#include "scan/WalkResult.h"

namespace quon {

/// The tree that is shown, with all that belongs to it. Replaced in one step, so that nobody reads the tree
/// of one root with the paths of another; whoever needs a path asks it. A live batch, which changes the nodes
/// in place, replaces it by one with the same `id`, gate and markers.
///
/// Threads: the value never changes. The nodes are read on the main thread, or through the gate elsewhere;
/// the last reference is dropped on the main thread.
struct ShownTree {
  std::uint64_t id = 0;  ///< grows with each tree that is shown; never 0
  RootPath root;
  std::string indexURL;                       ///< the index, on disk or in memory; "" when there is none
  std::shared_ptr<const void> indexInMemory;  ///< keeps the latter alive
  std::shared_ptr<const WalkResult> result;
  KindOverrides kindOverrides;
  std::shared_ptr<TreeGate> gate;
  std::shared_ptr<KnownMarkers> markers = {};  ///< of its folders; kept current by the live batches

  [[nodiscard]] const RefPtr<DirNode>& rootNode() const { return result->root; }
  /// The full path of a node of the tree; an older one has that of its remains.
  [[nodiscard]] std::string pathOf(const DirNode& node) const;
  /// The folder at a full path; none when the tree has none there.
  [[nodiscard]] RefPtr<DirNode> folderAt(std::string_view path) const;
  /// The row of the folder or kept file at a full path.
  [[nodiscard]] std::optional<Entry> entryAt(const std::string& path) const;
};

using ShownTreeRef = std::shared_ptr<const ShownTree>;

}  // namespace quon
