// Preparing a batch.
//
// Changed folders are handled in the order of their paths, so that a parent comes before what lies below it.
// A folder is read in place (one listing, compared with the children in the index), walked again (a deep
// change, or a child that is not in the index), or removed. Subtrees walked or removed are covered:
// later changes below them are part of them.
//
// Reading one folder can call for another: a child whose modification time is not the stored one; the folder
// of a hard link's other name (see LinkResolver). These join the folders still to do, until none is left.
#include "BatchBuilder.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "LinkResolver.h"
#include "base/Path.h"
#include "base/PathRange.h"
#include "platform/Files.h"

namespace quon::Refresh {
namespace {

/// True for the error of opening a path that no longer leads to a folder.
bool meansGone(const std::error_code& refusal) {
  return refusal == std::errc::no_such_file_or_directory || refusal == std::errc::not_a_directory ||
         refusal == std::errc::too_many_symbolic_link_levels;
}

}  // namespace

BatchBuilder::BatchBuilder(const Platform& services, ScanPatcher& patching, const IndexedRoot& about)
    : platform(services),
      patcher(patching),
      index(about),
      reader(services.directories.makeReader()) {}

Batch BatchBuilder::build(const Changes& changes) {
  todo = changes;
  LinkResolver links(*this);
  do {
    while (!todo.empty()) {
      const auto [path, depth] = *todo.begin();
      todo.erase(todo.begin());
      handle(path, depth);
    }
    links.settle();  // may add folders
  } while (!todo.empty());
  links.decide();
  return assemble();
}

void BatchBuilder::handle(std::string path, Depth depth) {
  if (isCovered(path)) return;
  std::optional<std::int64_t> id = patcher.dirId(path);
  if (!id) {
    // A folder that is not in the index is found by listing the nearest one above it that is.
    depth = Depth::shallow;
    while (!id && path != index.root.path()) {
      path.resize(parentPath(path).size());
      id = patcher.dirId(path);
    }
    if (!id || isCovered(path)) return;
  }
  if (handled.insert(path).second) handleKnown(path, *id, depth);
}

void BatchBuilder::handleKnown(const std::string& path, std::int64_t id, Depth depth) {
  patcher.releaseLock();
  DirListing listing =
      DirListing::read(*reader, std::string(pathPrefix(path)), index.rootDev, /*oneFileSystem=*/true);
  if (listing.isTransient()) throw Failure::notRead(path, listing.reason);
  const bool isRoot = path == index.root.path();
  const bool elsewhere = !listing.refusal && listing.self.device != index.rootDev;
  if (meansGone(listing.refusal) || elsewhere || index.skipPaths.contains(path)) {
    if (isRoot) throw Failure::deviceChanged();
    remove(path, id);
    addFolder(std::string(parentPath(path)));
    return;
  }
  if (depth == Depth::deep && !isRoot) {
    releaseLinksUnder(id);
    cover(path);
    deepWalks.insert(path);
    walk(path);
    return;
  }
  refresh(path, id, std::move(listing));
}

void BatchBuilder::refresh(const std::string& path, std::int64_t id, DirListing listing) {
  ListedFolder folder{path, id, std::move(listing), {}, patcher.linksIn(id)};
  if (folder.listing.refusal) {
    // What cannot be opened still has attributes, which a scan takes from its parent's listing.
    std::error_code ignored;
    if (const auto facts = platform.files.facts(path, ignored)) folder.listing.self.mtime = facts->mtime;
  }
  compareChildren(folder);
  for (const LinkSighting& former : folder.formerLinks) releasedLinks.insert(former.fileID);
  listed.emplace(path, std::move(folder));
}

void BatchBuilder::compareChildren(ListedFolder& folder) {
  const std::string prefix(pathPrefix(folder.path));
  std::map<std::string, StoredDir> gone;
  for (StoredDir& child : patcher.children(folder.id)) gone.emplace(child.name, child);
  std::set<std::string> seen;
  for (const DirListing::Subdir& child : folder.listing.subdirs) {
    const std::string path = joinPath(prefix, child.name);
    if (index.skipPaths.contains(path) || !seen.insert(child.name).second) continue;
    const auto known = gone.find(child.name);
    if (known == gone.end()) {
      if (isCovered(path)) continue;
      cover(path);
      walk(path);
      folder.children.push_back({child.name, walked.at(path).node});
      continue;
    }
    if (known->second.mtime != child.mtime) addFolder(path);
    gone.erase(known);
  }
  for (const auto& [name, child] : gone) {
    const std::string path = joinPath(prefix, name);
    if (isCovered(path)) continue;
    releaseLinksUnder(child.id);
    cover(path);
    folder.children.push_back({name, nullptr});
  }
}

void BatchBuilder::walk(const std::string& path) {
  patcher.releaseLock();
  WalkedSubtree subtree = walkSubtree(platform, path, index, batch.listings);
  if (const auto before = walked.find(path); before != walked.end()) {
    superseded.push_back(before->second.node);
    walked.erase(before);
  }
  walked.emplace(path, std::move(subtree));
}

void BatchBuilder::remove(const std::string& path, std::int64_t id) {
  releaseLinksUnder(id);
  cover(path);
  removed.insert(path);
}

void BatchBuilder::releaseLinksUnder(std::int64_t id) {
  // Counted or not: a file that loses a name may be down to its last.
  for (const std::uint64_t fileID : patcher.linkedFilesUnder(id)) releasedLinks.insert(fileID);
}

/// What was read below before is superseded: it was read as part of the subtree, or is gone.
void BatchBuilder::cover(const std::string& path) {
  const auto supersede = [&](const auto& item) { superseded.push_back(item.second.node); };
  const auto [first, last] = rangeBelow(walked, path);
  std::for_each(first, last, supersede);
  if (const auto itself = walked.find(path); itself != walked.end()) supersede(*itself);
  eraseInside(walked, path);
  eraseInside(listed, path);
  eraseInside(deepWalks, path);
  eraseInside(removed, path);
  eraseInside(todo, path);
  covered.insert(path);
}

void BatchBuilder::addFolder(const std::string& path) {
  if (!handled.contains(path) && !isCovered(path)) todo.emplace(path, Depth::shallow);
}

bool BatchBuilder::isCovered(const std::string& path) const {
  if (covered.empty()) return false;
  for (std::string_view at = path; at.size() > 1; at = parentPath(at)) {
    if (covered.contains(at)) return true;
  }
  return false;
}

/// The ops in the order of their paths: a parent's comes before those of what lies below it.
Batch BatchBuilder::assemble() {
  for (auto& [path, subtree] : walked) subtree.node->rollup();
  std::map<std::string_view, Batch::Op> ops;
  for (auto& [path, folder] : listed) {
    ops[path] = {.kind = Batch::Op::Kind::refresh,
                 .path = path,
                 .mtime = folder.listing.self.mtime,
                 .error = folder.listing.error,
                 .errorNumber = static_cast<std::uint16_t>(folder.listing.reason.value()),
                 .files = std::move(folder.listing.files),
                 .children = std::move(folder.children),
                 .node = nullptr};
  }
  for (const std::string& path : deepWalks) {
    Batch::Op& op = ops[path];
    op.kind = Batch::Op::Kind::deep;
    op.path = path;
    op.node = walked.at(path).node;
  }
  for (const std::string& path : removed) {
    Batch::Op& op = ops[path];
    op.kind = Batch::Op::Kind::remove;
    op.path = path;
  }
  for (auto& [path, op] : ops) batch.ops.push_back(std::move(op));
  return std::move(batch);
}

Batch prepare(const Platform& platform, const Changes& changes, ScanPatcher& patcher,
              const IndexedRoot& index) {
  Batch batch = BatchBuilder(platform, patcher, index).build(changes);
  patcher.releaseLock();
  return batch;
}

std::vector<std::string> Batch::changedDirs() const {
  std::vector<std::string> paths;
  for (const Op& op : ops) {
    if (op.kind == Op::Kind::refresh) paths.push_back(op.path);
  }
  return paths;
}

std::vector<std::string> Batch::replacedPrefixes() const {
  std::vector<std::string> prefixes;
  for (const Op& op : ops) {
    if (op.kind != Op::Kind::refresh) prefixes.push_back(op.path);
    for (const Op::Child& child : op.children) prefixes.push_back(joinPath(pathPrefix(op.path), child.name));
  }
  return prefixes;
}

std::int64_t Batch::count(Op::Kind kind) const {
  return std::ranges::count_if(ops, [&](const Op& op) { return op.kind == kind; });
}

}  // namespace quon::Refresh
