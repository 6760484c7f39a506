// One stack of folders to visit, last in, first out, so that few parents are held open. A folder is opened
// relative to its parent's descriptor: a parent that is renamed meanwhile stays the same folder. Beyond a
// bound a child is opened by its path and checked to lie in the parent that it was found in.
//
// Order in visit(): open, let the visitor place its watch, read the times, list. What happens before the
// watch shows in the times, what happens after it reaches the watch.
#include "FolderWalk.h"

#include <cerrno>
#include <fcntl.h>
#include <utility>

#include "base/Path.h"

namespace quon {
namespace {

constexpr int kMostHeldParents = 512;

}  // namespace

/// What was seen of a folder before its entries are listed.
struct FolderWalk::Look {
  SharedFolder folder;
  FolderFacts facts;
  int token = -1;
  bool covered = false;
  bool modified = false;
};

void FolderWalk::begin(const std::string& path, int parentToken) {
  MutexLock inLock(lock);
  stack.push_back({.parent = nullptr, .path = path, .parentToken = parentToken, .isFirst = true});
}

bool FolderWalk::take(Item& item) {
  MutexLock inLock(lock);
  while (stack.empty() && busy > 0 && !cancelled) changed.wait(lock);
  if (stack.empty() || cancelled) return false;
  item = std::move(stack.back());
  stack.pop_back();
  ++busy;
  return true;
}

void FolderWalk::put(std::vector<Item>& found) {
  if (found.empty()) return;
  MutexLock inLock(lock);
  for (Item& item : found) stack.push_back(std::move(item));
  changed.broadcast();
}

void FolderWalk::finished() {
  MutexLock inLock(lock);
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
  MutexLock inLock(lock);
  changed.broadcast();
}

Descriptor FolderWalk::open(const Item& item) const {
  if (item.parent) return openFolder(item.parent->get(), std::string(lastComponent(item.path)));
  Descriptor folder = openFolder(AT_FDCWD, item.path);
  FolderFacts above;
  if (item.isFirst || !folder.isOpen()) return folder;
  if (!readFacts(folder.get(), "..", above) || above.identity.inode != item.parentInode) return {};
  return folder;
}

FolderWalk::SharedFolder FolderWalk::share(Descriptor folder) {
  ++*held;
  return {new Descriptor(std::move(folder)), [count = held](const Descriptor* last) {
            delete last;
            --*count;
          }};
}

void FolderWalk::list(const Item& item, const Look& look, Worker& worker, std::vector<Item>& found,
                      bool& entryChanged) {
  const bool judge = settings.changedSince && !look.covered;
  const SharedFolder parent = *held <= kMostHeldParents ? look.folder : nullptr;
  const int descriptor = look.folder->get();
  worker.lister.start(descriptor);
  ListedName entry;
  FolderFacts facts;
  while (worker.lister.next(entry)) {
    if (!entry.typeKnown) entry.isFolder = readFacts(descriptor, entry.name, facts) && facts.isFolder;
    if (entry.isFolder) {
      if (settings.own.holdEntry(item.path, entry.name)) continue;
      found.push_back({.parent = parent,
                       .path = joinPath(pathPrefix(item.path), entry.name),
                       .parentInode = look.facts.identity.inode,
                       .parentToken = look.token,
                       .parentModified = look.modified,
                       .covered = look.covered});
    } else if (std::int64_t time = 0;
               judge && !entryChanged && readChangeTime(descriptor, entry.name, time)) {
      entryChanged = time >= *settings.changedSince;
    }
  }
  // Whoever lists it again will be told the reason.
  if (worker.lister.brokeOff()) entryChanged = true;
}

void FolderWalk::visit(const Item& item, Worker& worker) {
  Look look;
  Descriptor folder = open(item);
  if (!folder.isOpen() && errno == EACCES && !item.isFirst) {
    settings.visitor.refuse(item.parentToken, lastComponent(item.path));
  }
  // Vanished, renamed, replaced by a file, or not for this user to read.
  if (!folder.isOpen() || !readFacts(folder.get(), "", look.facts)) return;
  if (look.facts.device != settings.device) return;
  const auto token =
      settings.visitor.enter(folder.get(), item.parentToken, lastComponent(item.path), look.facts.identity);
  if (!token || !readFacts(folder.get(), "", look.facts)) return;
  look.token = *token;
  look.folder = share(std::move(folder));
  look.covered = item.covered;
  bool changedItself = false;
  bool deep = false;
  if (settings.changedSince && !item.covered) {
    const std::int64_t since = *settings.changedSince;
    const FolderFacts& facts = look.facts;
    look.modified = facts.modified >= since;
    changedItself = facts.changed >= since;
    const bool isOld = facts.identity.bornMicros != 0 && facts.identity.bornMicros < since;
    deep = changedItself && !item.isFirst && (item.parentModified || !look.modified) &&
           !(isOld && settings.visitor.wasThere(item.path, facts.identity));
    look.covered = deep;
  }
  std::vector<Item> found;
  bool entryChanged = changedItself;
  list(item, look, worker, found, entryChanged);
  if (settings.changedSince && !item.covered && entryChanged) worker.changed.push_back({item.path, deep});
  look.folder = nullptr;
  put(found);
}

}  // namespace quon
