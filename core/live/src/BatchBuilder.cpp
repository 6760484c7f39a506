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
    : platform(services), patcher(patching), index(about) {}

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
  DirListing listing =
      DirListing::read(platform, std::string(pathPrefix(path)), index.rootDev, /*oneFileSystem=*/true);
  const bool isRoot = path == index.root.path();
  const bool elsewhere = !listing.refusal && listing.self.device != index.rootDev;
  if (meansGone(listing.refusal) || elsewhere || index.skipPaths.contains(path)) {
    if (isRoot) throw Failure::deviceChanged();
    remove(path, id);
    want(std::string(parentPath(path)));
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
  order.push_back({Step::listed, path});
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
    if (known->second.mtime != child.mtime) want(path);
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
  WalkedSubtree subtree = walkSubtree(platform, path, index, batch.listings);
  if (const auto before = walked.find(path); before != walked.end()) {
    superseded.push_back(before->second.node);
    walked.erase(before);
  }
  walked.emplace(path, std::move(subtree));
  if (deepWalks.contains(path)) order.push_back({Step::walked, path});
}

void BatchBuilder::remove(const std::string& path, std::int64_t id) {
  releaseLinksUnder(id);
  cover(path);
  order.push_back({Step::removed, path});
}

void BatchBuilder::releaseLinksUnder(std::int64_t id) {
  // Counted or not: a file that loses a name may be down to its last.
  for (const std::uint64_t fileID : patcher.linkedFilesUnder(id)) releasedLinks.insert(fileID);
}

/// What was read below before is superseded: it was read as part of the subtree, or is gone.
void BatchBuilder::cover(const std::string& path) {
  const auto below = [&](const std::string& other) { return isInside(other, path); };
  std::erase_if(order, [&](const Done& done) { return below(done.path); });
  std::erase_if(listed, [&](const auto& item) { return below(item.first); });
  std::erase_if(walked, [&](const auto& item) {
    if (!below(item.first)) return false;
    superseded.push_back(item.second.node);
    return true;
  });
  std::erase_if(deepWalks, below);
  covered.insert(path);
}

void BatchBuilder::want(const std::string& path) {
  if (!handled.contains(path) && !isCovered(path)) todo.emplace(path, Depth::shallow);
}

bool BatchBuilder::isCovered(const std::string& path) const {
  if (covered.empty()) return false;
  for (std::string_view at = path; at.size() > 1; at = parentPath(at)) {
    if (covered.contains(at)) return true;
  }
  return false;
}

Batch BatchBuilder::assemble() {
  for (auto& [path, subtree] : walked) subtree.node->rollup();
  for (const Done& done : order) {
    Batch::Op op;
    op.path = done.path;
    switch (done.step) {
      case Step::listed: {
        ListedFolder& folder = listed.at(done.path);
        op.kind = Batch::Op::Kind::refresh;
        op.mtime = folder.listing.self.mtime;
        op.error = folder.listing.error;
        op.files = std::move(folder.listing.files);
        op.children = std::move(folder.children);
        break;
      }
      case Step::walked:
        op.kind = Batch::Op::Kind::deep;
        op.node = walked.at(done.path).node;
        break;
      case Step::removed:
        op.kind = Batch::Op::Kind::remove;
        break;
    }
    batch.ops.push_back(std::move(op));
  }
  return std::move(batch);
}

Batch prepare(const Platform& platform, const Changes& changes, ScanPatcher& patcher,
              const IndexedRoot& index) {
  return BatchBuilder(platform, patcher, index).build(changes);
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
