#include "scan/DirNode.h"

#include <algorithm>
#include <utility>

#include "base/Checked.h"
#include "base/Path.h"
#include "scan/MapSlots.h"

namespace quon {

/// Down to a node without children, which goes, and back up over the parents, as often as there are nodes:
/// this needs no memory, of which there may be none left when a tree is freed.
DirNode::~DirNode() {
  for (DirNode* at = this; at != this || !subdirs.empty();) {
    if (at->subdirs.empty()) {
      at = at->parent;
      at->subdirs.pop_back();
      continue;
    }
    DirNode* const child = at->subdirs.back().get();
    if (child->use_count() > 1) {
      child->parent = nullptr;
      at->subdirs.pop_back();
    } else {
      child->parent = at;
      at = child;
    }
  }
}

void DirNode::rollup() {
  // Parents precede their children in this list, so its reverse rolls children up first.
  std::vector<DirNode*> parentsFirst{this};
  for (std::size_t at = 0; at < parentsFirst.size(); ++at) {
    for (const RefPtr<DirNode>& child : parentsFirst[at]->subdirs) parentsFirst.push_back(child.get());
  }
  std::for_each(parentsFirst.rbegin(), parentsFirst.rend(), [](DirNode* node) {
    node->rollupShallow();
    rankSlots(*node);  // while the children are in the processor's cache
  });
}

void DirNode::rollupShallow() {
  totalLogical = directLogical;
  totalPhysical = directPhysical;
  totalFiles = directFiles;
  totalDirs = subdirs.size();
  newest = std::max(directNewest, mtime);
  for (const RefPtr<DirNode>& child : subdirs) {
    totalLogical = checkedAdd(totalLogical, child->totalLogical);
    totalPhysical = checkedAdd(totalPhysical, child->totalPhysical);
    totalFiles = checkedAdd(totalFiles, child->totalFiles);
    totalDirs = checkedAdd(totalDirs, child->totalDirs);
    newest = std::max(newest, child->newest);
  }
}

std::string DirNode::path(std::string_view root) const {
  std::size_t length = root.size();
  for (const DirNode* node = this; node->parent != nullptr; node = node->parent)
    length += 1 + node->name.size();
  std::string whole(length, '/');
  std::copy(root.begin(), root.end(), whole.begin());
  std::size_t end = length;
  for (const DirNode* node = this; node->parent != nullptr; node = node->parent) {
    end -= node->name.size();
    node->name.copy(whole.data() + end, node->name.size());
    end -= 1;  // the slash that the string was filled with
  }
  return whole;
}

bool DirNode::isWithin(const DirNode& top) const {
  const DirNode* at = this;
  while (at != nullptr && at != &top) at = at->parent;
  return at != nullptr;
}

void DirNode::subtractFile(const FileEntry& entry) {
  std::erase_if(keptFiles, [&](const FileEntry& kept) { return kept.name == entry.name; });
  if (entry.name == kCacheTag) cacheTagged = false;
  directLogical = saturatingSub(directLogical, entry.logical);
  directPhysical = saturatingSub(directPhysical, entry.physical);
  directFiles = saturatingSub<std::uint64_t>(directFiles, 1);
  for (DirNode* node = this; node != nullptr; node = node->parent) {
    node->totalLogical = saturatingSub(node->totalLogical, entry.logical);
    node->totalPhysical = saturatingSub(node->totalPhysical, entry.physical);
    node->totalFiles = saturatingSub<std::uint64_t>(node->totalFiles, 1);
  }
}

void DirNode::removeFromTree() {
  if (parent == nullptr) return;
  DirNode* const above = std::exchange(parent, nullptr);
  const RefPtr<DirNode> alive(this);
  std::erase_if(above->subdirs, [this](const RefPtr<DirNode>& child) { return child == this; });
  for (DirNode* node = above; node != nullptr; node = node->parent) {
    node->totalLogical = checkedSub(node->totalLogical, totalLogical);
    node->totalPhysical = checkedSub(node->totalPhysical, totalPhysical);
    node->totalFiles = checkedSub(node->totalFiles, totalFiles);
    node->totalDirs = checkedSub(node->totalDirs, totalDirs + 1);
  }
}

RefPtr<DirNode> folderAt(const RefPtr<DirNode>& root, std::string_view pathBelowRoot) {
  RefPtr<DirNode> at = root;
  std::string_view rest = pathBelowRoot;
  for (std::string_view name = takeComponent(rest); !name.empty() && at; name = takeComponent(rest)) {
    const auto child =
        std::ranges::find(at->subdirs, name, [](const auto& node) { return std::string_view(node->name); });
    at = child == at->subdirs.end() ? RefPtr<DirNode>() : *child;
  }
  return at;
}

}  // namespace quon
