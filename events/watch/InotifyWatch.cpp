// Events have the number of a watch; WatchTree knows where that folder lies. They arrive after the fact, and
// several renames may have happened when the first is read, so an event on a folder never says where the
// folder is: it only calls for a check of a place (parent, name). The check opens the folder that is at the
// place now and adds a watch: if the folder has one already, wherever it was before, the kernel returns that
// number. So a folder that was moved keeps its watch under the new path, two that were exchanged get each
// other's place, and one that was replaced gets a watch of its own. A folder that left its place and has no
// other by the time the queue is empty has left the root.
//
// A folder that appeared is walked: watch first, then list, to the bottom, in slices between which events
// are read. Only then is it reported, deep: whoever lists it from then on misses nothing that the watches do
// not see.
//
// A folder that may not be opened is remembered: it may lie below another one that was closed for a moment,
// and no event names it when that is opened again.
//
// A folder that lies at several places of the root, by bind mounts, has one watch. It is walked at one place;
// the others are its aliases, at which its changes are reported as well. When its place is unmounted, it gets
// that of an alias.
//
// Nothing stays open between batches: that would keep the file system from being unmounted.
//
// The watch is added through /proc/self/fd, so it is on the folder that is open, whatever its path means
// meanwhile and however long that is.
#include "watch/InotifyWatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <sys/inotify.h>
#include <system_error>
#include <unistd.h>

#include "base/Path.h"
#include "base/Text.h"
#include "linux_fs/OpenFolder.h"

namespace quon {
namespace {

/// IN_MODIFY reports sizes as they grow, IN_CLOSE_WRITE the times and blocks that a file ends with.
constexpr std::uint32_t kFolderMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_ATTRIB |
                                      IN_MOVED_FROM | IN_MOVED_TO | IN_EXCL_UNLINK | IN_ONLYDIR | IN_MASK_ADD;
constexpr std::uint32_t kRootMask = kFolderMask | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t kAboveMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::size_t kBufferBytes = 65536;
constexpr int kMostReads = 16;  // about 16,000 events: the default length of the kernel's queue
constexpr int kFoldersPerSlice = 512;

/// The limit of descriptors and the limit of notifiers have the same error.
std::string adviceFor(int reason) {
  if (reason != EMFILE) return {};
  const Descriptor any(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (!any.isOpen()) return "; raise the limit with `ulimit -n`";
  return "; raise the limit with `sudo sysctl fs.inotify.max_user_instances=1024`";
}

std::string watchLimitReached() {
  constexpr std::uint64_t kUsual = 1048576;
  std::uint64_t present = 0;
  std::ifstream("/proc/sys/fs/inotify/max_user_watches") >> present;
  const std::uint64_t wanted = present < kUsual ? kUsual : present * 2;
  return fmt::format(
      "it has more folders than you may watch (fs.inotify.max_user_watches is {}); raise the limit with "
      "`sudo sysctl fs.inotify.max_user_watches={}`",
      present, wanted);
}

Descriptor newNotifier(const std::string& root) {
  Descriptor made(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!made.isOpen()) {
    const int reason = errno;
    throw std::system_error(reason, std::generic_category(),
                            "cannot watch " + displayText(root) + adviceFor(reason));
  }
  return made;
}

bool isGone(int reason) {
  return reason == ENOENT || reason == ENOTDIR || reason == ELOOP;
}

}  // namespace

std::unique_ptr<RootWatch> makeInotifyWatch(RootWatchSettings settings) {
  return std::make_unique<InotifyWatch>(std::move(settings));
}

InotifyWatch::InotifyWatch(RootWatchSettings how)
    : settings(std::move(how)), notifier(newNotifier(settings.root)) {
  watchAbove();
}

/// The root's path no longer leads to it when a folder above it is moved; one that this user may not read is
/// moved unfound. The removal of the root is reported on its parent: on the root itself only when nobody has
/// it open any more.
void InotifyWatch::watchAbove() {
  std::uint32_t mask = kAboveMask | IN_DELETE;
  for (std::size_t end = settings.root.rfind('/'); end != std::string::npos && settings.root != "/";
       end = end == 0 ? std::string::npos : settings.root.rfind('/', end - 1)) {
    const std::string path = end == 0 ? "/" : settings.root.substr(0, end);
    const int watch = ::inotify_add_watch(notifier.get(), path.c_str(), std::exchange(mask, kAboveMask));
    if (watch >= 0) above.insert(watch);
  }
}

std::optional<int> InotifyWatch::enter(int descriptor, int parentToken, std::string_view name,
                                       const InodeIdentity& identity) {
  const bool isRoot = parentToken == WatchTree::kNone;
  std::array<char, 40> link{};
  *fmt::format_to_n(link.data(), link.size() - 1, "/proc/self/fd/{}", descriptor).out = '\0';
  MutexLock held(lock);
  if (!unwatched.empty() || (!isRoot && !tree.contains(parentToken))) return std::nullopt;
  const int watch = ::inotify_add_watch(notifier.get(), link.data(), isRoot ? kRootMask : kFolderMask);
  if (watch < 0) {
    failWatch(errno, parentToken, name);
    return std::nullopt;
  }
  if (isRoot) {
    tree.setRoot(watch, settings.root, identity.inode);
    return watch;
  }
  // The root again, mounted below itself, or a folder above it.
  if (watch == tree.root() || above.contains(watch)) return std::nullopt;
  if (tree.childOf(parentToken, name) != watch && isElsewhere(watch, identity)) {
    aliases.push_back({watch, parentToken, std::string(name)});
    return std::nullopt;
  }
  const int before = tree.attach(watch, parentToken, name, identity.inode);
  if (before != WatchTree::kNone) displace(before);
  displaced.erase(watch);
  return watch;
}

void InotifyWatch::failWatch(int reason, int parentToken, std::string_view name) {
  if (reason == ENOSPC) {
    unwatched = watchLimitReached();
  } else if (reason == EACCES && parentToken != WatchTree::kNone) {
    denied.emplace(parentToken, name);
  } else {
    unwatched = "the kernel refuses to watch a folder: " + std::generic_category().message(reason);
  }
}

/// True when the folder has a place, other than the one at which it was found now, that leads to it still: it
/// was not moved, but is mounted twice.
bool InotifyWatch::isElsewhere(int watch, const InodeIdentity& identity) {
  if (!tree.contains(watch) || displaced.contains(watch)) return false;
  const auto path = tree.path(watch);
  if (!path) return false;
  const auto facts = factsOfEntry(AT_FDCWD, path->c_str());
  return facts && facts->device == settings.device && facts->identity == identity;
}

void InotifyWatch::dropAlias(int parent, std::string_view name) {
  std::erase_if(aliases, [&](const Alias& alias) { return alias.parent == parent && alias.name == name; });
}

/// The folder is not at its place any more: it is at that of an alias, or will be forgotten unless an event
/// gives it another one.
void InotifyWatch::displace(int watch) {
  for (int homeless = watch; homeless != WatchTree::kNone;) {
    const auto alias =
        std::ranges::find_if(aliases, [&](const Alias& each) { return each.watch == homeless; });
    if (alias == aliases.end()) {
      displaced.insert(homeless);
      return;
    }
    const Alias place = std::move(*alias);
    aliases.erase(alias);
    homeless = tree.attach(homeless, place.parent, place.name, tree.inode(homeless));
  }
}

void InotifyWatch::fail(std::error_code reason) {
  MutexLock held(lock);
  unwatched = "a folder could not be opened: " + reason.message();
}

void InotifyWatch::refuse(int parentToken, std::string_view name) {
  MutexLock held(lock);
  denied.emplace(parentToken, name);
}

/// The attributes of a folder changed: those at and below it that were refused may be open now.
void InotifyWatch::retryBelow(int watch) {
  const auto path = tree.path(watch);
  if (!path) return;
  for (auto place = denied.begin(); place != denied.end();) {
    const auto parent = tree.path(place->first);
    const bool gone = !tree.contains(place->first);
    const bool below = parent && isInside(*parent, *path);
    if (below) checks.push_back({.parent = place->first, .name = place->second, .appeared = true});
    place = gone || below ? denied.erase(place) : std::next(place);
  }
}

bool InotifyWatch::drain() {
  queueEmpty = readEvents();
  std::vector<Check> due;
  due.swap(checks);
  for (const Check& check : due) checkPlace(check);
  const bool allWatched = watchNewFolders();
  MutexLock held(lock);
  found.unwatched = unwatched;
  return queueEmpty && allWatched;
}

bool InotifyWatch::readEvents() {
  alignas(inotify_event) std::array<char, kBufferBytes> buffer;
  for (int reads = 0; reads < kMostReads; ++reads) {
    const ssize_t bytes = ::read(notifier.get(), buffer.data(), buffer.size());
    if (bytes <= 0) return true;
    MutexLock held(lock);
    for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
      const auto* event = reinterpret_cast<const inotify_event*>(&buffer[at]);
      at += sizeof(inotify_event) + event->len;
      handle(*event, event->len > 0 ? std::string_view(event->name) : std::string_view());
    }
  }
  return false;
}

void InotifyWatch::handle(const inotify_event& event, std::string_view name) {
  const bool isRoot = event.wd == tree.root();
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    found.overflowed = true;
  } else if (above.contains(event.wd)) {
    const bool isItself = (event.mask & (IN_MOVE_SELF | IN_DELETE_SELF)) != 0;
    if (isItself || ((event.mask & IN_DELETE) != 0 && name == lastComponent(settings.root)))
      found.rootMoved = true;
    if ((event.mask & IN_IGNORED) != 0) above.erase(event.wd);
  } else if ((event.mask & IN_UNMOUNT) != 0) {
    if (isRoot) found.unmounted = true;
  } else if ((event.mask & IN_IGNORED) != 0) {
    if (isRoot) found.rootMoved = true;
    if (tree.contains(event.wd)) forget(event.wd);
  } else if ((event.mask & (IN_MOVE_SELF | IN_DELETE_SELF)) != 0) {
    if (isRoot) found.rootMoved = true;
  } else if (!tree.contains(event.wd)) {
    return;  // left over from a watch that was taken away
  } else if ((event.mask & IN_ISDIR) != 0) {
    handleFolder(event, name);
  } else {
    changed.insert(event.wd);
  }
}

void InotifyWatch::handleFolder(const inotify_event& event, std::string_view name) {
  if (name.empty()) {
    // Attributes of a watched folder itself; its parent reports them too, but for the root.
    changed.insert(event.wd);
    retryBelow(event.wd);
    return;
  }
  if (settings.own.mayBeNamed(name)) {
    const auto parent = tree.path(event.wd);
    if (!parent || settings.own.containEntry(*parent, name)) return;
  }
  if ((event.mask & IN_ATTRIB) == 0) changed.insert(event.wd);
  Check check{.parent = event.wd,
              .name = std::string(name),
              .appeared = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0};
  if (checks.empty() || !(checks.back() == check)) checks.push_back(std::move(check));
}

void InotifyWatch::forget(int watch) {
  for (const int each : tree.remove(watch)) {
    displaced.erase(each);
    changed.erase(each);
    std::erase_if(aliases, [&](const Alias& alias) { return alias.watch == each || alias.parent == each; });
    if (each != watch) ::inotify_rm_watch(notifier.get(), each);
  }
}

std::optional<std::string> InotifyWatch::pathOf(int parent, std::string_view name) {
  MutexLock held(lock);
  if (!tree.contains(parent)) return std::nullopt;
  const auto path = tree.path(parent);
  if (!path) return std::nullopt;
  return joinPath(pathPrefix(*path), name);
}

void InotifyWatch::checkPlace(const Check& check) {
  const auto path = pathOf(check.parent, check.name);
  if (!path) return;  // the events on the parent say more
  const Descriptor folder = openFolder(AT_FDCWD, *path);
  const int reason = folder.isOpen() ? 0 : errno;
  const auto facts = folder.isOpen() ? factsOf(folder.get()) : std::nullopt;
  auto parent = folder.isOpen() ? factsOfEntry(folder.get(), "..") : std::nullopt;
  // One that may be listed but not entered does not even show what is above it.
  if (folder.isOpen() && !parent && errno == EACCES)
    parent = factsOfEntry(AT_FDCWD, std::string(parentPath(*path)).c_str());
  MutexLock held(lock);
  dropAlias(check.parent, check.name);
  const int child = tree.childOf(check.parent, check.name);
  if (!facts || !parent) return notOpened(check, *path, reason);
  if (facts->device != settings.device) {
    if (check.appeared) deepPaths.push_back(*path);
    return;
  }
  // A folder above was exchanged for another: an event about that is still to come, and it will be walked
  // anew.
  if (parent->identity.inode != tree.inode(check.parent)) return;
  if (!check.appeared && child != WatchTree::kNone && tree.inode(child) == facts->identity.inode) {
    changed.insert(child);
    retryBelow(child);
    return;
  }
  // Also one that could not be opened before, and one that takes the place of one that was moved away.
  const FolderWalk::Settings walk{.own = settings.own, .visitor = this, .device = settings.device};
  newFolders.push_back({check.parent, check.name, std::make_unique<FolderWalk>(walk)});
  newFolders.back().walk->begin(*path, check.parent);
}

void InotifyWatch::notOpened(const Check& check, const std::string& path, int reason) {
  if (isGone(reason)) {
    const int child = tree.childOf(check.parent, check.name);
    if (child == WatchTree::kNone) return;
    tree.detach(child);
    displace(child);
    return;
  }
  if (reason == EMFILE || reason == ENFILE || reason == ENOMEM)
    unwatched = "a folder could not be opened: " + std::generic_category().message(reason);
  if (reason == EACCES) denied.emplace(check.parent, check.name);
  // It has no watch, but it is there; its attributes show in its parent's listing.
  if (check.appeared) {
    deepPaths.push_back(path);
  } else {
    changed.insert(check.parent);
  }
}

bool InotifyWatch::watchNewFolders() {
  for (int folders = 0; !newFolders.empty(); ++folders) {
    if (folders == kFoldersPerSlice) return false;
    NewFolder& first = newFolders.front();
    if (first.walk->step(worker)) continue;
    if (const auto path = pathOf(first.parent, first.name)) deepPaths.push_back(*path);
    newFolders.pop_front();
  }
  return true;
}

void InotifyWatch::mountChanged(const std::string& path) {
  MutexLock held(lock);
  const std::size_t slash = path.rfind('/');
  const int parent = tree.find(slash == 0 ? "/" : std::string_view(path).substr(0, slash));
  if (parent == WatchTree::kNone) return;
  changed.insert(parent);
  checks.push_back({.parent = parent, .name = path.substr(slash + 1), .appeared = true});
}

void InotifyWatch::collect(FolderChanges& into) {
  MutexLock held(lock);
  if (queueEmpty) {
    const std::vector<int> gone(displaced.begin(), displaced.end());
    for (const int watch : gone) {
      if (!tree.contains(watch)) continue;
      ::inotify_rm_watch(notifier.get(), watch);
      forget(watch);
    }
    displaced.clear();
  }
  FolderChanges own;
  for (const int watch : changed) {
    if (!tree.contains(watch)) continue;
    if (auto path = tree.path(watch)) addChange(own, std::move(*path), false);
  }
  changed.clear();
  for (std::string& path : deepPaths) addChange(own, std::move(path), true);
  deepPaths.clear();
  addAliases(own);
  for (const auto& [path, deep] : own) addChange(into, path, deep);
}

void InotifyWatch::addAliases(FolderChanges& changes) {
  for (const Alias& alias : aliases) {
    const auto place = tree.path(alias.watch);
    const auto parent = tree.path(alias.parent);
    if (!place || !parent) continue;
    const std::string other = joinPath(pathPrefix(*parent), alias.name);
    FolderChanges alike;
    for (const auto& [path, deep] : changes) {
      const auto below = relativeTo(path, *place);
      if (below) addChange(alike, below->empty() ? other : joinPath(other, *below), deep);
    }
    for (const auto& [path, deep] : alike) addChange(changes, path, deep);
  }
}

}  // namespace quon
