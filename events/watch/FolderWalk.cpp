// One stack of folders to visit, last in, first out, so that few parents are open at a time. A folder is
// opened relative to its parent's descriptor: a parent that is renamed meanwhile stays the same folder.
// Beyond a bound, and once descriptors have run out, a child is opened by its path and must lie in the parent
// that it was found in.
#include "watch/FolderWalk.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/resource.h>
#include <utility>

#include "base/Path.h"
#include "linux_fs/OpenFolder.h"

namespace quon {
namespace {

constexpr int kMostOpenParents = 512;
/// Of the descriptors that the process may have, so many parts are not the walk's.
constexpr int kShare = 8;

int openParentsAllowed() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
  return static_cast<int>(std::min<rlim_t>(limit.rlim_cur / kShare, kMostOpenParents));
}

/// May succeed when less is open.
bool isShortage(int reason) {
  return reason == EMFILE || reason == ENFILE || reason == ENOMEM;
}

}  // namespace

FolderWalk::FolderWalk(const Settings& how) : settings(how), mostOpenParents(openParentsAllowed()) {}

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
  if (parent && parent->identity.inode == item.parentInode) return folder;
  // One that may be listed but not entered does not even show what is above it.
  if (!parent && errno == EACCES) return folder;
  errno = ENOENT;
  return {};
}

FolderWalk::SharedFolder FolderWalk::share(Descriptor folder) {
  ++*openFolders;
  return {new Descriptor(std::move(folder)), [count = openFolders](const Descriptor* last) {
            delete last;
            --*count;
          }};
}

/// Closes what the walk has open for later.
void FolderWalk::letGo() {
  mostOpenParents = 0;
  const MutexLock held(lock);
  for (Item& item : stack) item.parent.reset();
}

std::optional<FolderWalk::Opened> FolderWalk::enter(Item& item) {
  Descriptor folder = open(item);
  if (!folder.isOpen() && isShortage(errno)) {
    letGo();
    item.parent.reset();
    folder = open(item);
  }
  const std::string_view name = lastComponent(item.path);
  if (!folder.isOpen()) {
    // Else it vanished, was renamed, or was replaced by a file.
    if (errno == EACCES && !item.isFirst) settings.visitor->refuse(item.parentToken, name);
    if (isShortage(errno)) settings.visitor->fail({errno, std::generic_category()});
    return std::nullopt;
  }
  const auto facts = factsOf(folder.get());
  if (!facts || facts->device != settings.device) return std::nullopt;
  const auto token = settings.visitor->enter(folder.get(), item.parentToken, name, facts->identity);
  if (!token) return std::nullopt;
  return Opened{.folder = share(std::move(folder)), .facts = *facts, .token = *token};
}

std::vector<FolderWalk::Item> FolderWalk::list(const Item& item, const Opened& opened,
                                               NameListing& listing) const {
  const SharedFolder parent = *openFolders <= mostOpenParents ? opened.folder : nullptr;
  const int descriptor = opened.folder->get();
  std::vector<Item> found;
  listing.start(descriptor);
  ListedName entry;
  while (listing.next(entry)) {
    if (entry.type == EntryType::unknown) {
      const auto facts = factsOfEntry(descriptor, entry.name);
      if (facts) entry.type = facts->type;
    }
    if (entry.type != EntryType::directory || settings.own.containEntry(item.path, entry.name)) continue;
    found.push_back({.parent = parent,
                     .path = joinPath(pathPrefix(item.path), entry.name),
                     .parentInode = opened.facts.identity.inode,
                     .parentToken = opened.token});
  }
  if (isShortage(listing.error().value())) settings.visitor->fail(listing.error());
  return found;
}

void FolderWalk::visit(Item& item, Worker& worker) {
  auto opened = enter(item);
  if (!opened) return;
  std::vector<Item> found = list(item, *opened, worker.listing);
  opened.reset();
  put(found);
}

}  // namespace quon
