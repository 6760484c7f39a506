// Hard links within a batch.
//
// A sighting is a name of a multiply-linked file. Those in folders that the batch has read ("fresh") are
// known from the disk; those elsewhere ("untouched") from the registry. For each file that either has fresh
// sightings or may have lost its counted one:
//
//   none fresh, an untouched one counted    it may have been written through a name that has gone: if its
//                                           size has changed, read its folder
//   none fresh, none counted                read the folder of an untouched one, which is fresh then
//   some fresh, an untouched one counted    the fresh ones are not; if the size has changed, read the folder
//                                           of the counted one
//   some fresh, none counted elsewhere      count one of them: the one that was counted before, if it is
//                                           there
//
// A file that is not in the registry may have had one name until now, counted like any file: the folder of
// that name is searched for (NameSearch) and read as well. So may one that a scan has put there: a file that
// gets its second name after the scan has listed the first one's folder. Only the folder of the second has an
// event, so as long as such events may come, every name that is missing is searched for. When all fresh names
// have vanished meanwhile, their folders will be read again; until then the file is kept out of the registry,
// so that it is searched for then.
#include "LinkResolver.h"

#include <algorithm>
#include <optional>

#include "NameSearch.h"
#include "base/Path.h"
#include "platform/Files.h"
#include "store/StoreError.h"

namespace quon::Refresh {
namespace {

const LinkSighting* countedOf(const std::vector<LinkSighting>& sightings) {
  const auto found = std::ranges::find_if(sightings, &LinkSighting::counted);
  return found == sightings.end() ? nullptr : &*found;
}

bool containsName(const FileBatch& files, std::string_view name) {
  for (std::size_t index = 0; index < files.size(); ++index) {
    if (files[index].name == name) return true;
  }
  return false;
}

}  // namespace

LinkResolver::LinkResolver(BatchBuilder& owner)
    : builder(owner), registryMayLackNames(owner.patcher.mayLackLinks()) {}

void LinkResolver::collectListed(const ListedFolder& folder) {
  for (const FileEntry& entry : folder.listing.files) {
    const auto link = folder.listing.linkIDs.find(entry.name);
    if (link == folder.listing.linkIDs.end()) continue;
    const bool wasCounted = std::ranges::any_of(folder.formerLinks, [&](const LinkSighting& former) {
      return former.counted && former.fileID == link->second && former.name == entry.name;
    });
    freshByFile[link->second].push_back(
        {.folder = folder.path, .name = entry.name, .entry = entry, .wasCounted = wasCounted});
  }
}

void LinkResolver::collectWalked(const WalkedSubtree& subtree) {
  for (const WalkedLink& link : subtree.links) {
    Fresh fresh{.folder = link.node->path(subtree.path),
                .name = link.name,
                .entry = {},
                .node = link.node,
                .walkCounted = link.counted};
    const FileBatch& files = builder.batch.listings.at(link.node);
    for (std::size_t index = 0; link.counted && index < files.size(); ++index) {
      const FileBatch::File file = files[index];
      if (file.name == link.name) fresh.entry = {link.name, file.logical, file.physical, file.mtime};
    }
    freshByFile[link.fileID].push_back(std::move(fresh));
  }
}

void LinkResolver::collectFresh() {
  freshByFile.clear();
  for (const auto& [path, folder] : builder.listed) collectListed(folder);
  for (const auto& [path, subtree] : builder.walked) collectWalked(subtree);
}

std::set<std::uint64_t> LinkResolver::affected() const {
  std::set<std::uint64_t> files = builder.releasedLinks;
  for (const auto& [fileID, fresh] : freshByFile) files.insert(fileID);
  return files;
}

LinkResolver::Linked LinkResolver::gather(std::uint64_t fileID) {
  Linked linked;
  if (const auto found = freshByFile.find(fileID); found != freshByFile.end()) linked.fresh = found->second;
  for (LinkSighting& sighting : builder.patcher.linkSightings(fileID)) {
    linked.wasKnown = true;
    const std::optional<std::string> folder = builder.patcher.path(sighting.dirId);
    const bool read = !folder || builder.listed.contains(*folder) || builder.isCovered(*folder);
    if (!read) linked.untouched.push_back(std::move(sighting));
  }
  return linked;
}

std::optional<PathFacts> LinkResolver::presentFacts(std::uint64_t fileID, const Linked& linked) const {
  builder.patcher.releaseLock();
  for (const Fresh& fresh : linked.fresh) {
    std::error_code gone;
    const auto facts = builder.platform.files.ownFacts(joinPath(pathPrefix(fresh.folder), fresh.name), gone);
    if (facts && facts->fileID == fileID) return facts;
  }
  return std::nullopt;
}

bool LinkResolver::isStale(const LinkSighting& counted, const Linked& linked) const {
  const auto present = std::ranges::find_if(
      linked.fresh, [](const Fresh& fresh) { return fresh.node == nullptr || fresh.walkCounted; });
  if (present == linked.fresh.end()) return false;
  const std::optional<FileEntry> stored = builder.patcher.file(counted.dirId, counted.name);
  return !stored || stored->logical != present->entry.logical ||
         stored->physical != present->entry.physical || stored->mtime != present->entry.mtime;
}

bool LinkResolver::isRewritten(std::uint64_t fileID, const LinkSighting& counted) const {
  const std::optional<std::string> folder = builder.patcher.path(counted.dirId);
  const std::optional<FileEntry> stored = builder.patcher.file(counted.dirId, counted.name);
  builder.patcher.releaseLock();
  if (!folder || !stored) return false;
  std::error_code gone;
  const auto facts = builder.platform.files.ownFacts(joinPath(pathPrefix(*folder), counted.name), gone);
  return facts && facts->fileID == fileID &&
         (facts->logical != stored->logical || facts->mtime != stored->mtime);
}

void LinkResolver::settle() {
  collectFresh();
  std::map<std::uint64_t, WantedNames> unknown;
  for (const std::uint64_t fileID : affected()) {
    const Linked linked = gather(fileID);
    const LinkSighting* counted = countedOf(linked.untouched);
    const LinkSighting* needed = nullptr;
    if (linked.fresh.empty() && counted == nullptr && !linked.untouched.empty())
      needed = &linked.untouched.front();
    if (counted != nullptr &&
        (linked.fresh.empty() ? isRewritten(fileID, *counted) : isStale(*counted, linked)))
      needed = counted;
    if (needed != nullptr) {
      const std::optional<std::string> folder = builder.patcher.path(needed->dirId);
      if (!folder) throw StoreError::superseded();  // the registry contained it a moment ago
      builder.addFolder(*folder);
      builder.batch.promotedDirs.push_back(*folder);
    }
    const bool isComplete = linked.wasKnown && !registryMayLackNames;
    if (isComplete || linked.fresh.empty() || searched.contains(fileID)) continue;
    const std::optional<PathFacts> present = presentFacts(fileID, linked);
    vanished.erase(fileID);
    if (!present && !linked.wasKnown) vanished.insert(fileID);
    // Some of the others may be in the tree.
    const std::size_t names = linked.fresh.size() + linked.untouched.size();
    if (present && present->linkCount > names) {
      WantedNames& wanted = unknown[fileID];
      wanted = {.present = *present, .known = {}, .missing = present->linkCount - names};
      for (const Fresh& fresh : linked.fresh) wanted.known.emplace(fresh.folder, fresh.name);
      for (const LinkSighting& other : linked.untouched) {
        const std::optional<std::string> folder = builder.patcher.path(other.dirId);
        if (folder) wanted.known.emplace(*folder, other.name);
      }
      searched.insert(fileID);
    }
  }
  if (unknown.empty()) return;
  for (const FoundName& found :
       findNames(std::move(unknown), builder.platform, builder.patcher, builder.index)) {
    addName(found);
  }
}

/// The walked subtree that contains the folder.
std::map<std::string, WalkedSubtree, std::less<>>::iterator LinkResolver::walkAround(
    std::string_view folder) {
  auto found = builder.walked.find(folder);
  while (found == builder.walked.end() && folder.size() > 1) {
    folder = parentPath(folder);
    found = builder.walked.find(folder);
  }
  return found;
}

/// A name that the search found. Its folder is read, or, when the batch has read it before the file got its
/// second name, what was read is corrected.
void LinkResolver::addName(const FoundName& found) {
  if (const auto listed = builder.listed.find(found.folder); listed != builder.listed.end()) {
    const auto& files = listed->second.listing.files;
    if (std::ranges::find(files, found.name, &FileEntry::name) != files.end()) {
      listed->second.listing.linkIDs.emplace(found.name, found.fileID);
    }
    return;
  }
  const auto walked = walkAround(found.folder);
  if (walked == builder.walked.end()) return builder.addFolder(found.folder);
  WalkedSubtree& subtree = walked->second;
  const RefPtr<DirNode> node = folderAt(subtree.node, *relativeTo(found.folder, subtree.path));
  const auto files = node ? builder.batch.listings.find(node.get()) : builder.batch.listings.end();
  if (files == builder.batch.listings.end() || !containsName(files->second, found.name)) return;
  const bool known = std::ranges::any_of(subtree.links, [&](const WalkedLink& link) {
    return link.node == node.get() && link.name == found.name;
  });
  if (!known) subtree.links.push_back({found.fileID, node.get(), found.name, true});
}

void LinkResolver::decide() {
  collectFresh();
  for (const std::uint64_t fileID : affected()) decideOne(fileID);
  forgetVanished();
}

void LinkResolver::decideOne(std::uint64_t fileID) {
  Linked linked = gather(fileID);
  const bool countedElsewhere = countedOf(linked.untouched) != nullptr;
  if (linked.fresh.empty()) {
    if (linked.untouched.size() == 1) forgetLastName(linked.untouched.front());
    return;
  }
  if (isLastName(fileID, linked)) {
    // Counted like any file; forgetVanished deletes its rows in the registry.
    const Fresh& last = linked.fresh.front();
    if (last.node == nullptr) builder.listed.at(last.folder).listing.linkIDs.erase(last.name);
    return;
  }
  // Listed names carry the file's size, and of each walk's names the one that it counted.
  const auto rank = [](const Fresh& fresh) {
    if (fresh.node != nullptr && !fresh.walkCounted) return 3;
    if (fresh.wasCounted) return 0;
    return fresh.node != nullptr ? 1 : 2;
  };
  std::ranges::stable_sort(linked.fresh, {}, rank);
  for (std::size_t index = 0; index < linked.fresh.size(); ++index) {
    const Fresh& fresh = linked.fresh[index];
    const bool counted = index == 0 && !countedElsewhere;
    if (!counted) drop(fresh);
    if (vanished.contains(fileID)) continue;
    builder.batch.linkWrites.push_back({fileID, fresh.folder, fresh.name, counted});
  }
}

/// Its other names went after its folder was read, which is not read again.
bool LinkResolver::isLastName(std::uint64_t fileID, const Linked& linked) const {
  if (linked.fresh.size() != 1 || !linked.untouched.empty()) return false;
  const Fresh& last = linked.fresh.front();
  if (last.node != nullptr && !last.walkCounted) return false;
  const std::optional<PathFacts> present = presentFacts(fileID, linked);
  return present && present->linkCount == 1;
}

void LinkResolver::drop(const Fresh& fresh) {
  if (fresh.node != nullptr) {
    if (fresh.walkCounted) dropFile(*fresh.node, fresh.name, builder.batch.listings);
    return;
  }
  std::erase_if(builder.listed.at(fresh.folder).listing.files,
                [&](const FileEntry& entry) { return entry.name == fresh.name; });
}

/// A file that is down to one name is like any other, and needs no row in the registry.
void LinkResolver::forgetLastName(const LinkSighting& last) {
  const std::optional<std::string> folder = builder.patcher.path(last.dirId);
  if (!folder) return;
  builder.patcher.releaseLock();
  std::error_code gone;
  const auto facts = builder.platform.files.ownFacts(joinPath(pathPrefix(*folder), last.name), gone);
  if (facts && facts->linkCount == 1) builder.batch.linkDeletes.push_back(last);
}

/// Deletes the rows in the registry whose names are no longer in the folders that were read in place.
void LinkResolver::forgetVanished() {
  for (const auto& [path, folder] : builder.listed) {
    for (const LinkSighting& former : folder.formerLinks) {
      const auto link = folder.listing.linkIDs.find(former.name);
      if (link == folder.listing.linkIDs.end() || link->second != former.fileID) {
        builder.batch.linkDeletes.push_back(former);
      }
    }
  }
}

}  // namespace quon::Refresh
