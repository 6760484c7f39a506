// An event has the handle of the folder in which something changed; the kernel merges events on the same
// folder. Handles are gathered, and resolved once a batch: the folder is opened by its handle, which takes
// privilege, its path read from /proc/self/fd, and that path opened once more with the user's own rights. A
// path of which some folder may not be listed by the user is dropped, as is what lies outside the root.
//
// A folder that was moved has an event of its own and is deep. One that was created has not, only its parent;
// the parent's children that were born since the batch before are deep. Every folder of the file system is
// marked from the beginning, so nothing has to be placed, and nothing that happens in a new folder is missed.
#include "watch/FanotifyWatch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "base/Path.h"
#include "base/Text.h"
#include "linux_fs/InodeFacts.h"
#include "linux_fs/OpenFolder.h"
#include "watch/Privilege.h"

namespace quon {
namespace {

constexpr std::uint64_t kMask = FAN_CREATE | FAN_DELETE | FAN_MODIFY | FAN_CLOSE_WRITE | FAN_ATTRIB |
                                FAN_MOVED_FROM | FAN_MOVED_TO | FAN_DELETE_SELF | FAN_MOVE_SELF | FAN_ONDIR;
constexpr std::size_t kBufferBytes = 65536;
constexpr int kMostReads = 64;
/// The kernel's clock for files is behind by one tick of its timer.
constexpr std::int64_t kClockLag = 100'000;

[[noreturn]] void raise(const std::string& root) {
  throw std::system_error(errno, std::generic_category(),
                          "cannot watch the file system of " + displayText(root));
}

/// The files' clock, in microseconds since 1970.
std::int64_t wallNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

/// The path of an open folder as this process sees it; "" when it has none or one longer than readlink
/// returns.
std::string pathOf(const Descriptor& folder, bool& tooLong) {
  std::array<char, PATH_MAX + 1> path{};
  const std::string link = fmt::format("/proc/self/fd/{}", folder.get());
  const ssize_t length = ::readlink(link.c_str(), path.data(), path.size());
  tooLong = length < 0 && errno == ENAMETOOLONG;
  struct stat found {};
  if (length <= 0 || path[0] != '/') return {};
  // A file here is one without a folder: open, but removed.
  if (::fstat(folder.get(), &found) != 0 || found.st_nlink == 0 || !S_ISDIR(found.st_mode)) return {};
  return {path.data(), static_cast<std::size_t>(length)};
}

}  // namespace

std::unique_ptr<RootWatch> makeFanotifyWatch(RootWatchSettings settings) {
  return std::make_unique<FanotifyWatch>(std::move(settings));
}

FanotifyWatch::FanotifyWatch(RootWatchSettings how)
    : settings(std::move(how)), listing(kBufferBytes), gatheredSince(wallNow()) {
  const Descriptor rootFolder = openFolder(AT_FDCWD, settings.root);
  if (!rootFolder.isOpen()) {
    throw std::system_error(errno, std::generic_category(), "cannot open " + displayText(settings.root));
  }
  const Privilege privilege;
  group = Descriptor(::fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DIR_FID,
                                     O_RDONLY | O_CLOEXEC));
  if (!group.isOpen()) raise(settings.root);
  if (::fanotify_mark(group.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, kMask, rootFolder.get(), ".") != 0) {
    raise(settings.root);
  }
}

std::optional<int> FanotifyWatch::enter(int, int, std::string_view, const InodeIdentity&) {
  return 0;
}

bool FanotifyWatch::drain() {
  alignas(fanotify_event_metadata) std::array<char, kBufferBytes> buffer;
  for (int reads = 0; reads < kMostReads; ++reads) {
    const ssize_t bytes = ::read(group.get(), buffer.data(), buffer.size());
    if (bytes <= 0) return true;
    auto left = static_cast<std::size_t>(bytes);
    const char* at = buffer.data();
    while (left >= FAN_EVENT_METADATA_LEN) {
      // The records are packed; only what follows this part of one is as aligned as it has to be.
      fanotify_event_metadata event{};
      std::memcpy(&event, at, sizeof event);
      if (event.event_len < FAN_EVENT_METADATA_LEN || event.event_len > left) break;
      gather(event, at);
      at += event.event_len;
      left -= event.event_len;
    }
  }
  return false;
}

void FanotifyWatch::gather(const fanotify_event_metadata& event, const char* record) {
  if ((event.mask & FAN_Q_OVERFLOW) != 0) {
    found.overflowed = true;
    return;
  }
  // Whether it concerns the root or a folder above it shows when the root's place is checked.
  constexpr std::uint64_t kMayBeRoot = FAN_MOVE_SELF | FAN_DELETE_SELF | FAN_DELETE;
  if ((event.mask & kMayBeRoot) != 0 && (event.mask & FAN_ONDIR) != 0) found.rootMoved = true;
  const auto* info = reinterpret_cast<const fanotify_event_info_fid*>(record + event.metadata_len);
  if (event.event_len < event.metadata_len + sizeof(fanotify_event_info_fid)) return;
  // The kernel calls it the handle of a file when it is that of the folder of one that was written to.
  if (info->hdr.info_type != FAN_EVENT_INFO_TYPE_DFID && info->hdr.info_type != FAN_EVENT_INFO_TYPE_FID)
    return;
  const auto* handle = reinterpret_cast<const file_handle*>(info->handle);
  const std::size_t bytes = sizeof(file_handle) + handle->handle_bytes;
  Change& change = changed[std::string(reinterpret_cast<const char*>(handle), bytes)];
  if ((event.mask & FAN_ONDIR) == 0) return;
  if ((event.mask & FAN_MOVE_SELF) != 0) change.moved = true;
  if ((event.mask & FAN_CREATE) != 0) change.gotFolder = true;
  if ((event.mask & FAN_ATTRIB) != 0) change.attributes = true;
}

std::string FanotifyWatch::resolve(const Descriptor& rootFolder, const std::string& handle,
                                   bool& beyond) {
  std::vector<char> copy(handle.begin(), handle.end());
  Descriptor folder;
  {
    const Privilege privilege;
    folder = Descriptor(::open_by_handle_at(rootFolder.get(), reinterpret_cast<file_handle*>(copy.data()),
                                            O_PATH | O_CLOEXEC));
  }
  if (!folder.isOpen()) {
    // Without descriptors or memory the change would be lost. Else the folder is gone, which its parent's event reports.
    if (isTransient({errno, std::generic_category()})) found.overflowed = true;
    return {};
  }
  std::string path = pathOf(folder, beyond);
  for (bool tooLong = beyond; tooLong;) {
    const Privilege privilege;
    folder = Descriptor(::openat(folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen()) return {};
    path = pathOf(folder, tooLong);
  }
  return isInside(path, settings.root) && !settings.own.contain(path) ? path : std::string();
}

void FanotifyWatch::reportNewFolders(const Descriptor& folder, const std::string& path, FolderChanges& into) {
  listing.start(folder.get());
  ListedName entry;
  while (listing.next(entry)) {
    if (entry.type != EntryType::directory && entry.type != EntryType::unknown) continue;
    const auto facts = factsOfEntry(folder.get(), entry.name);
    if (!facts || !facts->isFolder()) continue;
    const std::int64_t born =
        facts->identity.bornMicros != 0 ? facts->identity.bornMicros : facts->changedMicros;
    if (born < gatheredSince - kClockLag || settings.own.containEntry(path, entry.name)) continue;
    addChange(into, joinPath(pathPrefix(path), entry.name), true);
  }
}

class FanotifyWatch::UserView {
 public:
  UserView(const Descriptor& folder, const std::string& path, std::set<std::string>& notListable)
      : rootFolder(folder), root(path), closed(notListable) {}

  /// `path` is the root's or below it.
  [[nodiscard]] Descriptor open(const std::string& path) const {
    return openFolder(rootFolder.get(), std::string(*relativeTo(path, root)));
  }
  /// True when the user can come to know of a folder: each one between it and the root may be listed.
  [[nodiscard]] bool mayKnow(const std::string& path) {
    std::vector<std::string> above;
    for (std::string at = path; at != root;) {
      at = parentPath(at);
      above.push_back(at);
    }
    for (auto folder = above.rbegin(); folder != above.rend(); ++folder) {
      const auto [known, isNew] = listable.try_emplace(*folder, false);
      if (isNew) known->second = open(*folder).isOpen();
      if (known->second) continue;
      closed.insert(*folder);
      return false;
    }
    return true;
  }
  [[nodiscard]] const Descriptor& folder() const { return rootFolder; }

 private:
  const Descriptor& rootFolder;
  const std::string& root;
  std::set<std::string>& closed;
  boost::unordered_flat_map<std::string, bool> listable;
};

void FanotifyWatch::report(const std::string& handle, const Change& change, UserView& user,
                           FolderChanges& into) {
  bool beyond = false;
  std::string path = resolve(user.folder(), handle, beyond);
  if (path.empty() || !user.mayKnow(path)) return;
  const Descriptor folder = user.open(path);
  if (!folder.isOpen()) {
    // That it was closed shows in its own listing; its attributes in that of the folder above.
    if (change.attributes && errno == EACCES) {
      if (path != settings.root) addChange(into, std::string(parentPath(path)), false);
      addChange(into, path, false);
      closed.insert(std::move(path));
    }
    return;
  }
  if (change.gotFolder) reportNewFolders(folder, path, into);
  // What happened below it while it was closed was dropped.
  const bool isOpenAgain = closed.erase(path) > 0;
  const bool deep = beyond || isOpenAgain || (change.moved && path != settings.root);
  addChange(into, std::move(path), deep);
}

void FanotifyWatch::collect(FolderChanges& into) {
  const std::int64_t now = wallNow();
  boost::unordered_flat_map<std::string, Change> batch;
  batch.swap(changed);
  // Open for the batch only: that would keep the file system from being unmounted.
  const Descriptor rootFolder = openFolder(AT_FDCWD, settings.root);
  if (!rootFolder.isOpen()) found.rootMoved = true;
  UserView user(rootFolder, settings.root, closed);
  for (const auto& [handle, change] : batch) report(handle, change, user, into);
  for (const auto& [path, deep] : mounted) addChange(into, path, deep);
  mounted.clear();
  gatheredSince = now;
}

void FanotifyWatch::mountChanged(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  addChange(mounted, slash == 0 ? "/" : path.substr(0, slash), false);
  addChange(mounted, path, true);
}

}  // namespace quon
