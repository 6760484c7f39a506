#include <algorithm>
#include <unordered_map>
#include <utility>

#include "base/Checked.h"
#include "base/Path.h"
#include "live/Refresh.h"
#include "scan/DirNode.h"

namespace quon::Refresh {
namespace {

using Kind = Batch::Op::Kind;

DirNode* childOf(DirNode& node, std::string_view name) {
  const auto found =
      std::ranges::find_if(node.subdirs, [&](const RefPtr<DirNode>& child) { return child->name == name; });
  return found == node.subdirs.end() ? nullptr : found->get();
}

/// Finds nodes by path. Remembers them: a batch names many folders of few parents.
class NodeFinder {
 public:
  NodeFinder(const RefPtr<DirNode>& rootNode, const RootPath& root) : tree(rootNode), rootPath(root) {}

  DirNode& at(const std::string& path) {
    DirNode* node = find(path);
    if (node == nullptr) throw Failure::treeDiffers(path);
    return *node;
  }

  DirNode* find(const std::string& path) {
    if (const auto hit = known.find(path); hit != known.end()) return hit->second;
    const std::optional<std::string_view> below = rootPath.relative(path);
    DirNode* const node = below ? folderAt(tree, *below).get() : nullptr;
    if (node != nullptr) known.emplace(path, node);
    return node;
  }

  void forgetBelow(const std::string& path) {
    std::erase_if(known, [&](const auto& item) { return isInside(item.first, path); });
  }

 private:
  const RefPtr<DirNode>& tree;
  const RootPath& rootPath;
  std::unordered_map<std::string, DirNode*> known;
};

/// Takes a subtree out of its parent without touching totals, which are rolled up afterwards.
void detach(DirNode& node) {
  DirNode* const parent = std::exchange(node.parent, nullptr);
  if (parent != nullptr)
    std::erase_if(parent->subdirs, [&](const RefPtr<DirNode>& child) { return child == &node; });
}

void attach(DirNode& parent, const RefPtr<DirNode>& child) {
  child->parent = &parent;
  parent.subdirs.push_back(child);
}

void setFiles(DirNode& node, const Batch::Op& op, std::uint64_t minKeep) {
  node.mtime = op.mtime;
  node.error = op.error;
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

void applyRefresh(NodeFinder& nodes, const Batch::Op& op, std::uint64_t minKeep) {
  DirNode& node = nodes.at(op.path);
  setFiles(node, op, minKeep);
  for (const Batch::Op::Child& child : op.children) {
    if (DirNode* former = childOf(node, child.name)) {
      nodes.forgetBelow(joinPath(pathPrefix(op.path), child.name));
      detach(*former);
    }
    if (child.node) attach(node, child.node);
  }
}

/// The node whose totals change.
DirNode* apply(NodeFinder& nodes, const Batch::Op& op, std::uint64_t minKeep) {
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
  nodes.forgetBelow(op.path);
  detach(*former);
  if (op.node) attach(*parent, op.node);
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
  NodeFinder nodes(root, rootPath);
  std::vector<RefPtr<DirNode>> changed;  // counted, since a later op may take one out of the tree
  for (const Batch::Op& op : batch.ops) {
    if (DirNode* node = apply(nodes, op, minKeep)) changed.emplace_back(node);
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
