#include <algorithm>
#include <functional>
#include <set>

#include "base/Path.h"
#include "base/Text.h"
#include "live/Refresh.h"
#include "scan/TopHeap.h"
#include "store/StoreError.h"

namespace quon::Refresh {
namespace {

using Kind = Batch::Op::Kind;

/// The row of a folder that the batch was prepared from.
std::int64_t idOf(ScanPatcher& patcher, const std::string& path) {
  const std::optional<std::int64_t> id = patcher.dirId(path);
  if (!id) throw StoreError::incompatible("the index no longer contains " + displayText(path));
  return *id;
}

void writeRefresh(const Batch& batch, const Batch::Op& op, ScanPatcher& patcher) {
  const std::int64_t id = idOf(patcher, op.path);
  patcher.replaceFiles(id, op.files, op.mtime, op.error);
  for (const Batch::Op::Child& child : op.children) {
    const std::string path = joinPath(pathPrefix(op.path), child.name);
    if (child.node) {
      patcher.insertSubtree(id, *child.node, batch.listings);
    } else if (const auto gone = patcher.dirId(path)) {
      patcher.deleteSubtree(*gone, path);
    }
  }
}

void writeOp(const Batch& batch, const Batch::Op& op, ScanPatcher& patcher) {
  switch (op.kind) {
    case Kind::refresh:
      writeRefresh(batch, op, patcher);
      break;
    case Kind::deep: {
      const std::int64_t parent = idOf(patcher, std::string(parentPath(op.path)));
      patcher.deleteSubtree(idOf(patcher, op.path), op.path);
      patcher.insertSubtree(parent, *op.node, batch.listings);
      break;
    }
    case Kind::remove:
      if (const auto id = patcher.dirId(op.path)) patcher.deleteSubtree(*id, op.path);
      break;
  }
}

/// The kept files of a walked subtree, with their paths.
void collectKept(const DirNode& subtree, const std::string& path, std::vector<TopFile>& files) {
  std::vector<const DirNode*> waiting{&subtree};
  while (!waiting.empty()) {
    const DirNode* node = waiting.back();
    waiting.pop_back();
    for (const RefPtr<DirNode>& child : node->subdirs) waiting.push_back(child.get());
    if (node->keptFiles.empty()) continue;
    const std::string folder = node->path(path);
    for (const FileEntry& kept : node->keptFiles) {
      files.push_back({joinPath(folder, kept.name), kept.logical, kept.physical, kept.mtime});
    }
  }
}

std::vector<TopFile> keptFilesOf(const Batch& batch, std::uint64_t minKeep) {
  std::vector<TopFile> files;
  for (const Batch::Op& op : batch.ops) {
    const std::string prefix(pathPrefix(op.path));
    for (const FileEntry& entry : op.files) {
      if (entry.logical < minKeep) continue;
      files.push_back({joinPath(prefix, entry.name), entry.logical, entry.physical, entry.mtime});
    }
    if (op.node) collectKept(*op.node, op.path, files);
    for (const Batch::Op::Child& child : op.children) {
      if (child.node) collectKept(*child.node, joinPath(prefix, child.name), files);
    }
  }
  return files;
}

}  // namespace

Outcome outcomeOf(const Batch& batch, std::uint64_t newEventId) {
  Outcome outcome{batch.count(Kind::refresh), batch.count(Kind::deep), batch.count(Kind::remove), newEventId};
  for (const Batch::Op& op : batch.ops) {
    for (const Batch::Op::Child& child : op.children) {
      ++(child.node ? outcome.walkedSubtrees : outcome.removedSubtrees);
    }
  }
  return outcome;
}

void commitStore(const Batch& batch, ScanPatcher& patcher) {
  // Before the ops: the rows are named by the ids that they had when the batch was prepared.
  for (const LinkSighting& link : batch.linkDeletes) patcher.deleteLink(link.fileID, link.dirId, link.name);
  for (const Batch::Op& op : batch.ops) writeOp(batch, op, patcher);
  for (const Batch::LinkWrite& link : batch.linkWrites) {
    patcher.setLink(link.fileID, idOf(patcher, link.dirPath), link.name, link.counted);
  }
}

std::vector<TopFile> patchTop(std::vector<TopFile> topFiles, const Batch& batch, std::uint64_t minKeep,
                              std::size_t capacity) {
  const std::vector<std::string> changed = batch.changedDirs();
  const std::set<std::string, std::less<>> changedDirs(changed.begin(), changed.end());
  const std::vector<std::string> replaced = batch.replacedPrefixes();
  const std::set<std::string, std::less<>> prefixes(replaced.begin(), replaced.end());
  const auto isReplaced = [&](const TopFile& file) {
    std::string_view at = parentPath(file.path);
    if (changedDirs.contains(at)) return true;
    for (; !prefixes.empty() && at.size() > 1; at = parentPath(at)) {
      if (prefixes.contains(at)) return true;
    }
    return false;
  };
  std::erase_if(topFiles, isReplaced);
  std::ranges::move(keptFilesOf(batch, minKeep), std::back_inserter(topFiles));
  topFiles = sortedLargestFirst(std::move(topFiles));
  if (topFiles.size() > capacity) topFiles.resize(capacity);
  return topFiles;
}

}  // namespace quon::Refresh
