// One stack of folders to visit, last in, first out, so that few parents are open at a time. A folder is
// opened relative to its parent's descriptor: a parent that is renamed meanwhile stays the same folder.
// Beyond a bound a child is opened by its path and must lie in the parent that it was found in.
//
// Order in enter(): open, let the visitor place its watch, read the times. What happens before the watch
// shows in the times, what happens after it reaches the watch.
#include "watch/FolderWalk.h"

#include <cerrno>
#include <fcntl.h>
#include <utility>

#include "base/Path.h"
#include "linux_fs/OpenFolder.h"

namespace quon {
namespace {

constexpr int kMostOpenParents = 512;

}  // namespace

void FolderWalk::begin(const std::string& path, int parentToken) {
  const MutexLock held(lock);
  stack.push_back({.parent = nullptr, .path = path, .parentToken = parentToken, .isFirst = true});
}

bool FolderWalk::take(Item& item) {
  const MutexLock held(lock);
  while (stack.empty() && busy > 0 && !cancelled) changed.wait(lock);
  if (stack.empty() || cancelled) return false;
  item = std::move(stack.back());
  stack.pop_back();
  ++busy;
  return true;
}

void FolderWalk::put(std::vector<Item>& found) {
  if (found.empty()) return;
  const MutexLock held(lock);
  for (Item& item : found) stack.push_back(std::move(item));
  changed.broadcast();
}

void FolderWalk::finished() {
  const MutexLock held(lock);
  --busy;
  if (busy == 0 && stack.empty()) changed.broadcast();
}

bool FolderWalk::step(Worker& worker) {
  Item item;
  if (!take(item)) return false;
  visit(item, worker);
  finished();
  return true;
}

void FolderWalk::work(Worker& worker) {
  while (step(worker)) {
  }
}

void FolderWalk::cancel() {
  cancelled = true;
  const MutexLock held(lock);
  changed.broadcast();
}

Descriptor FolderWalk::open(const Item& item) const {
  if (item.parent) return openChildFolder(item.parent->get(), std::string(lastComponent(item.path)).c_str());
  Descriptor folder = openFolder(AT_FDCWD, item.path);
  if (item.isFirst || !folder.isOpen()) return folder;
  const auto parent = factsOfEntry(folder.get(), "..");
  if (!parent || parent->identity.inode != item.parentInode) return {};
  return folder;
}

FolderWalk::SharedFolder FolderWalk::share(Descriptor folder) {
  ++*openFolders;
  return {new Descriptor(std::move(folder)), [count = openFolders](const Descriptor* last) {
            delete last;
            --*count;
          }};
}

std::optional<FolderWalk::Opened> FolderWalk::enter(const Item& item) {
  Descriptor folder = open(item);
  const std::string_view name = lastComponent(item.path);
  if (!folder.isOpen()) {
    // Else it vanished, was renamed, or was replaced by a file.
    if (errno == EACCES && !item.isFirst && settings.visitor != nullptr) {
      settings.visitor->refuse(item.parentToken, name);
    }
    return std::nullopt;
  }
  auto facts = factsOf(folder.get());
  if (!facts || facts->device != settings.device) return std::nullopt;
  Opened opened;
  if (settings.visitor != nullptr) {
    const auto token = settings.visitor->enter(folder.get(), item.parentToken, name, facts->identity);
    if (!token) return std::nullopt;
    opened.token = *token;
  }
  if (settings.changeTimes != nullptr) {
    facts = factsOf(folder.get());
    if (!facts) return std::nullopt;
    opened.times = settings.changeTimes->enter(item.isFirst, *facts, item.parentTimes);
  }
  opened.facts = *facts;
  opened.folder = share(std::move(folder));
  return opened;
}

std::vector<FolderWalk::Item> FolderWalk::list(const Item& item, Opened& opened, NameListing& listing) const {
  const SharedFolder parent = *openFolders <= kMostOpenParents ? opened.folder : nullptr;
  const int descriptor = opened.folder->get();
  std::vector<Item> found;
  listing.start(descriptor);
  ListedName entry;
  while (listing.next(entry)) {
    if (entry.type == EntryType::unknown) {
      const auto facts = factsOfEntry(descriptor, entry.name);
      if (facts) entry.type = facts->type;
    }
    if (entry.type == EntryType::directory) {
      if (settings.own.containEntry(item.path, entry.name)) continue;
      found.push_back({.parent = parent,
                       .path = joinPath(pathPrefix(item.path), entry.name),
                       .parentInode = opened.facts.identity.inode,
                       .parentToken = opened.token,
                       .parentTimes = opened.times});
    } else if (settings.changeTimes != nullptr) {
      settings.changeTimes->compareEntry(descriptor, entry.name, opened.times);
    }
  }
  return found;
}

void FolderWalk::visit(const Item& item, Worker& worker) {
  auto opened = enter(item);
  if (!opened) return;
  std::vector<Item> found = list(item, *opened, worker.listing);
  if (settings.changeTimes != nullptr) {
    settings.changeTimes->leave(item.path, opened->times, !worker.listing.error());
  }
  opened.reset();
  put(found);
}

}  // namespace quon
