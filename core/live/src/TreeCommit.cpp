#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include "base/Checked.h"
#include "base/Path.h"
#include "base/PathRange.h"
#include "live/Refresh.h"
#include "scan/DirNode.h"
#include "scan/MapSlots.h"

namespace quon::Refresh {
namespace {

using Kind = Batch::Op::Kind;

/// The children of a folder by name. Built when one is looked for in a folder with many: a batch names many
/// folders of few parents.
using ChildIndex = boost::unordered_flat_map<std::string_view, DirNode*>;
constexpr std::size_t kMostUnindexed = 16;

/// Takes nodes out of the tree and puts others in, without touching totals, which are rolled up afterwards.
class TreePatch {
 public:
  TreePatch(const RefPtr<DirNode>& rootNode, const RootPath& root) : tree(rootNode), rootPath(root) {}
  ~TreePatch() {
    for (auto& [parent, nodes] : taken) {
      std::erase_if(parent->subdirs,
                    [&gone = nodes](const RefPtr<DirNode>& child) { return gone.contains(child.get()); });
    }
  }
  TreePatch(const TreePatch&) = delete;
  TreePatch& operator=(const TreePatch&) = delete;

  DirNode& at(const std::string& path) {
    DirNode* node = find(path);
    if (node == nullptr) throw Failure::treeDiffers(path);
    return *node;
  }

  DirNode* find(const std::string& path) {
    if (!rootPath.contains(path)) return nullptr;
    // From the nearest folder above that is known, down again.
    std::vector<std::string_view> below;
    DirNode* node = tree.get();
    for (std::string_view at = path; at != rootPath.path(); at = parentPath(at)) {
      if (const auto hit = known.find(at); hit != known.end()) {
        node = hit->second;
        break;
      }
      below.push_back(at);
    }
    for (auto next = below.rbegin(); next != below.rend() && node != nullptr; ++next) {
      node = child(*node, lastComponent(*next));
    }
    if (node != nullptr && !below.empty()) known.emplace(path, node);
    return node;
  }

  DirNode* child(DirNode& parent, std::string_view name) {
    if (parent.subdirs.size() <= kMostUnindexed) {
      for (const RefPtr<DirNode>& node : parent.subdirs) {
        if (node->parent == &parent && node->name == name) return node.get();
      }
      return nullptr;
    }
    const auto [index, isNew] = children.try_emplace(&parent);
    if (isNew) {
      for (const RefPtr<DirNode>& node : parent.subdirs) {
        if (node->parent == &parent) index->second.emplace(node->name, node.get());
      }
    }
    const auto found = index->second.find(name);
    return found == index->second.end() ? nullptr : found->second;
  }

  /// Takes out the folder at the path.
  void take(DirNode& node, const std::string& path) {
    eraseInside(known, path);
    DirNode& parent = *node.parent;
    node.parent = nullptr;
    taken[&parent].emplace(&node);
    if (const auto index = children.find(&parent); index != children.end()) index->second.erase(node.name);
    if (const auto use = slots.find(&parent); use != slots.end()) use->second.remove(node.slotIndex);
  }

  /// Puts in a folder that is new, or that replaces the former one, which was taken out.
  void put(DirNode& parent, const RefPtr<DirNode>& child, const DirNode* former) {
    SlotUse& use = slots.try_emplace(&parent, parent).first->second;
    if (former != nullptr) {
      keepSlots(*former, *child);
    } else {
      child->slotIndex = use.free();
    }
    use.add(child->slotIndex);
    child->parent = &parent;
    parent.subdirs.push_back(child);
    if (const auto index = children.find(&parent); index != children.end()) {
      index->second.insert_or_assign(child->name, child.get());
    }
  }

 private:
  const RefPtr<DirNode>& tree;
  const RootPath& rootPath;
  std::map<std::string, DirNode*, std::less<>> known;
  std::unordered_map<DirNode*, ChildIndex> children;
  std::unordered_map<DirNode*, SlotUse> slots;  ///< of the parents that got children
  /// By parent; erased from it together: each by itself would take time by the number of its siblings. A
  /// parent that is itself taken out stays alive until then.
  std::map<RefPtr<DirNode>, boost::unordered_flat_set<const DirNode*>> taken;
};

void setFiles(DirNode& node, const Batch::Op& op, std::uint64_t minKeep) {
  node.mtime = op.mtime;
  node.error = op.error;
  node.errorNumber = op.errorNumber;
  node.directLogical = 0;
  node.directPhysical = 0;
  node.directFiles = op.files.size();
  node.directNewest = 0;
  node.cacheTagged = false;
  node.keptFiles.clear();
  for (const FileEntry& file : op.files) {
    node.directLogical = checkedAdd(node.directLogical, file.logical);
    node.directPhysical = checkedAdd(node.directPhysical, file.physical);
    node.directNewest = std::max(node.directNewest, file.mtime);
    if (file.name == DirNode::kCacheTag) node.cacheTagged = true;
    if (file.logical >= minKeep) node.keptFiles.push_back(file);
  }
}

void applyRefresh(TreePatch& nodes, const Batch::Op& op, std::uint64_t minKeep) {
  DirNode& node = nodes.at(op.path);
  setFiles(node, op, minKeep);
  for (const Batch::Op::Child& child : op.children) {
    DirNode* const former = nodes.child(node, child.name);
    if (former != nullptr) nodes.take(*former, joinPath(pathPrefix(op.path), child.name));
    if (child.node) nodes.put(node, child.node, former);
  }
}

/// The node whose totals change.
DirNode* apply(TreePatch& nodes, const Batch::Op& op, std::uint64_t minKeep) {
  if (op.kind == Kind::refresh) {
    applyRefresh(nodes, op, minKeep);
    return &nodes.at(op.path);
  }
  DirNode* const former = nodes.find(op.path);
  if (former == nullptr && op.kind == Kind::remove) return nullptr;
  if (former == nullptr || former->parent == nullptr) {
    throw Failure::treeDiffers(op.path);
  }
  DirNode* const parent = former->parent;
  nodes.take(*former, op.path);
  if (op.node) nodes.put(*parent, op.node, former);
  return parent;
}

bool isBelow(const DirNode* node, const DirNode* root) {
  while (node->parent != nullptr) node = node->parent;
  return node == root;
}

std::size_t depthOf(const DirNode* node) {
  std::size_t depth = 0;
  for (; node->parent != nullptr; node = node->parent) ++depth;
  return depth;
}

}  // namespace

std::vector<DirNode*> commitTree(const RefPtr<DirNode>& root, const RootPath& rootPath, std::uint64_t minKeep,
                                 Batch& batch) {
  std::vector<RefPtr<DirNode>> changed;  // counted, since a later op may take one out of the tree
  {
    TreePatch nodes(root, rootPath);
    for (const Batch::Op& op : batch.ops) {
      if (DirNode* node = apply(nodes, op, minKeep)) changed.emplace_back(node);
    }
  }
  std::vector<DirNode*> dirty;
  for (const RefPtr<DirNode>& node : changed) {
    if (isBelow(node.get(), root.get())) dirty.push_back(node.get());
  }
  return dirty;
}

void rollupDirty(const std::vector<DirNode*>& nodes) {
  std::unordered_map<DirNode*, std::size_t> depths;
  for (DirNode* start : nodes) {
    std::size_t depth = depths.contains(start) ? 0 : depthOf(start);
    for (DirNode* node = start; node != nullptr && !depths.contains(node); node = node->parent) {
      depths.emplace(node, depth--);
    }
  }
  std::vector<std::pair<std::size_t, DirNode*>> deepestFirst;
  deepestFirst.reserve(depths.size());
  for (const auto& [node, depth] : depths) deepestFirst.emplace_back(depth, node);
  std::ranges::sort(deepestFirst, std::greater<>(), &std::pair<std::size_t, DirNode*>::first);
  for (const auto& [depth, node] : deepestFirst) node->rollupShallow();
}

}  // namespace quon::Refresh
