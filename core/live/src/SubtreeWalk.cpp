#include "SubtreeWalk.h"

#include <algorithm>
#include <utility>

#include "base/Checked.h"
#include "base/Path.h"
#include "platform/Directories.h"
#include "scan/Walker.h"

namespace quon::Refresh {
namespace {

/// Most of the folders that appear are small; more threads would spend their time on starting.
constexpr unsigned kThreads = 2;

/// A folder that could not be read for want of descriptors or memory is not empty for that.
void refuseTransient(const DirNode& subtree, const std::string& path) {
  std::vector<const DirNode*> waiting{&subtree};
  while (!waiting.empty()) {
    const DirNode* const node = waiting.back();
    waiting.pop_back();
    const std::error_code reason(node->errorNumber, std::generic_category());
    if (node->error && isTransient(reason)) throw Failure::notRead(node->path(path), reason);
    for (const RefPtr<DirNode>& child : node->subdirs) waiting.push_back(child.get());
  }
}

}  // namespace

void MemorySink::record(const DirNode& node, FileBatch files) {
  const MutexLock held(lock);
  listings.emplace(&node, std::move(files));
}

void MemorySink::recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) {
  const MutexLock held(lock);
  // The walk owns its nodes; it hands them out as const because a sink has no business changing them
  // meanwhile.
  links.push_back({fileID, const_cast<DirNode*>(&node), std::string(name), counted});
}

ScanPatcher::Listings MemorySink::takeListings() {
  const MutexLock held(lock);
  return std::move(listings);
}

std::vector<WalkedLink> MemorySink::takeLinks() {
  const MutexLock held(lock);
  return std::move(links);
}

WalkedSubtree walkSubtree(const Platform& platform, const std::string& path, const IndexedRoot& index,
                          ScanPatcher::Listings& listings) {
  WalkedSubtree walked{path, RefPtr<DirNode>(new DirNode(std::string(lastComponent(path)))), {}};
  MemorySink sink;
  Walker walker(platform,
                {.rootDev = index.rootDev, .minKeep = index.minKeep, .topN = 0, .skipPaths = index.skipPaths},
                &sink);
  const WalkResult result = walker.run(path, walked.node, kThreads);
  if (result.errorCount > 0) refuseTransient(*walked.node, path);
  listings.merge(sink.takeListings());
  walked.links = sink.takeLinks();
  return walked;
}

void dropFile(DirNode& node, const std::string& name, ScanPatcher::Listings& listings) {
  FileBatch& files = listings.at(&node);
  FileBatch::Builder remaining;
  node.directNewest = 0;
  for (std::size_t index = 0; index < files.size(); ++index) {
    const FileBatch::File file = files[index];
    if (file.name == name) {
      node.directLogical = checkedSub(node.directLogical, file.logical);
      node.directPhysical = checkedSub(node.directPhysical, file.physical);
      node.directFiles = checkedSub<std::uint64_t>(node.directFiles, 1);
      if (name == DirNode::kCacheTag) node.cacheTagged = false;
      continue;
    }
    node.directNewest = std::max(node.directNewest, file.mtime);
    remaining.add(file);
  }
  files = remaining.build();
  std::erase_if(node.keptFiles, [&](const FileEntry& kept) { return kept.name == name; });
}

}  // namespace quon::Refresh
