#include "support/SampleTree.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <utility>

#include "base/Checked.h"

namespace quon::test {
namespace {

std::string inconsistencyOf(const DirNode& node) {
  std::uint64_t logical = node.directLogical;
  std::uint64_t physical = node.directPhysical;
  std::uint64_t fileCount = node.directFiles;
  std::uint64_t dirs = node.subdirs.size();
  std::int64_t newest = std::max(node.directNewest, node.mtime);
  for (const RefPtr<DirNode>& child : node.subdirs) {
    if (child->parent != &node) return "a child points to another parent";
    logical = checkedAdd(logical, child->totalLogical);
    physical = checkedAdd(physical, child->totalPhysical);
    fileCount += child->totalFiles;
    dirs += child->totalDirs;
    newest = std::max(newest, child->newest);
  }
  if (std::tuple(logical, physical, fileCount, dirs, newest) !=
      std::tuple(node.totalLogical, node.totalPhysical, node.totalFiles, node.totalDirs, node.newest)) {
    return "totals are not those of the children";
  }
  std::uint64_t keptLogical = 0;
  std::uint64_t keptPhysical = 0;
  for (const FileEntry& file : node.keptFiles) {
    if (__builtin_add_overflow(keptLogical, file.logical, &keptLogical) ||
        __builtin_add_overflow(keptPhysical, file.physical, &keptPhysical)) {
      return "kept files overflow";
    }
  }
  if (keptLogical > node.directLogical || keptPhysical > node.directPhysical ||
      node.keptFiles.size() > node.directFiles) {
    return "kept files are larger than their folder";
  }
  return "";
}

}  // namespace

const Platform& linuxPlatform() {
  static const LinuxPlatform kPlatform;
  return kPlatform.services();
}

FileBatch batchOf(const std::vector<FileEntry>& files) {
  FileBatch::Builder builder;
  for (const FileEntry& file : files) builder.add({file.name, file.logical, file.physical, file.mtime});
  return builder.build();
}

SampleTree::SampleTree(std::string_view rootPath) : path(rootPath), tree(new DirNode(path.path())) {
  folders.push_back(tree.get());
}

DirNode& SampleTree::folder(std::string name, DirNode* parent, std::int64_t mtime) {
  DirNode& above = parent == nullptr ? *tree : *parent;
  RefPtr<DirNode> node(new DirNode(std::move(name)));
  node->parent = &above;
  node->mtime = mtime;
  folders.push_back(node.get());
  above.subdirs.push_back(node);
  return *node;
}

void SampleTree::file(DirNode& parent, FileEntry file) {
  parent.directLogical = checkedAdd(parent.directLogical, file.logical);
  parent.directPhysical = checkedAdd(parent.directPhysical, file.physical);
  parent.directFiles += 1;
  parent.directNewest = std::max(parent.directNewest, file.mtime);
  files[&parent].push_back(std::move(file));
}

void SampleTree::record(ScanStore& store) const {
  for (auto node = folders.rbegin(); node != folders.rend(); ++node) {
    const auto own = files.find(*node);
    store.record(**node, own == files.end() ? FileBatch() : batchOf(own->second));
  }
}

std::string SampleTree::save(const std::string& indexFolder, WalkResult figures) const {
  ScanStore store(linuxPlatform(), ScanStore::canonicalURL(indexFolder, path));
  record(store);
  tree->rollup();
  figures.root = tree;
  store.finish(path, 7, figures, 11, 13);
  return store.finalURL();
}

std::string inconsistency(const Loaded& loaded, const RootPath& root) {
  std::set<std::int64_t> ids;
  std::vector<const DirNode*> left{loaded.result.root.get()};
  std::size_t folders = 0;
  while (!left.empty()) {
    const DirNode* node = left.back();
    left.pop_back();
    ++folders;
    if (std::string wrong = inconsistencyOf(*node); !wrong.empty()) return wrong;
    const auto id = loaded.idByPath.find(node->parent == nullptr ? root.path() : node->path(root.prefix()));
    if (!id) return "a folder is not found by its path";
    if (!ids.insert(*id).second) return "two folders have one id";
    const auto index = loaded.idByPath.indexOf(*id);
    if (!index || &loaded.idByPath.node(*index) != node) return "an id leads to another folder";
    for (const RefPtr<DirNode>& child : node->subdirs) left.push_back(child.get());
  }
  return folders == loaded.idByPath.size() ? "" : "ids of folders that are not in the tree";
}

}  // namespace quon::test
