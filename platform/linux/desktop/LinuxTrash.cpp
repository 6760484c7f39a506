// GIO moves by path. That the right item was moved is therefore checked twice: before, from a descriptor of its
// folder that was reached without following a link; and after, by its inode number in the trash. What was moved by
// mistake, because a folder above was exchanged in between, is moved back.
//
// GIO ignores that a full disk kept it from recording where the item was; nothing could be restored then. The
// record is read back, and without one the item is moved back as well.
#include "linux_desktop/LinuxTrash.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fmt/format.h>
#include <gio/gio.h>
#include <linux/magic.h>
#include <memory>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "TrashInfo.h"
#include "base/MainThread.h"
#include "base/Path.h"
#include "base/Reason.h"
#include "base/Text.h"
#include "linux_fs/Descriptor.h"
#include "linux_fs/InodeFacts.h"
#include "linux_fs/Mounts.h"
#include "linux_fs/NameListing.h"
#include "linux_fs/OpenFolder.h"

namespace quon {
namespace {

constexpr std::size_t kListingBytes = 65536;
constexpr const char* kChanged = "it changed since it was shown";

struct Unref {
  void operator()(GFile* file) const { g_object_unref(file); }
  void operator()(GError* error) const { g_error_free(error); }
};

[[noreturn]] void refuse(const std::string& reason) {
  throw TrashFailure(reason);
}

/// An item, and the folder that it lies in.
struct Place {
  Descriptor folder;
  std::string name;
};

Place placeOf(const std::string& path) {
  const std::string above(parentPath(path));
  const std::string name(lastComponent(path));
  if (!path.starts_with('/') || name.empty() || path == "/" || name == "." || name == "..") {
    refuse("it is no folder or file of a folder");
  }
  Place place{openFolder(AT_FDCWD, above), name};
  if (!place.folder.isOpen()) refuse("its folder cannot be opened: " + reasonOf(errno));
  return place;
}

InodeFacts factsIn(const Place& place, const char* whenMissing) {
  const std::optional<InodeFacts> found = factsOfEntry(place.folder.get(), place.name.c_str());
  if (found) return *found;
  refuse(errno == ENOENT ? whenMissing : reasonOf(errno));
}

ExpectedItem itemOf(const InodeFacts& found) {
  ExpectedItem item{.type = found.type,
                    .device = found.device,
                    .fileID = found.identity.inode,
                    .mtime = floor<std::chrono::seconds>(std::chrono::microseconds(found.modifiedMicros)).count()};
  if (!found.isFolder()) item.logical = found.size;
  return item;
}

/// `withInode`: inode numbers are compared where they are known.
bool isExpected(const ExpectedItem& found, const ExpectedItem& expected, bool withInode = true) {
  if (expected.type != EntryType::unknown && found.type != expected.type) return false;
  if (expected.mtime && found.mtime != expected.mtime) return false;
  if (expected.logical && found.logical != expected.logical) return false;
  return !withInode || expected.fileID == 0 ||
         (found.fileID == expected.fileID && found.device == expected.device);
}

/// The mount that the path lies on, unless it is itself, or contains, a mount point.
std::string mountPointOf(const std::string& path, const InodeFacts& found) {
  if (found.isMountRoot) refuse("it is a mount point");
  std::string nearest = "/";
  for (const Mount& mount : readMounts(openMounts())) {
    if (mount.point == path) refuse("it is a mount point");
    if (isInside(mount.point, path)) refuse("another file system is mounted in it, at " + displayText(mount.point));
    if (isInside(path, mount.point) && mount.point.size() > nearest.size()) nearest = mount.point;
  }
  return nearest;
}

std::string filesOf(const std::string& trash) {
  return joinPath(trash, "files");
}

/// None when the folder cannot be listed.
std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  const Descriptor opened = openFolder(AT_FDCWD, folder);
  if (!opened.isOpen()) return names;
  NameListing listing(kListingBytes);
  listing.start(opened.get());
  for (ListedName entry; listing.next(entry);) names.emplace(entry.name);
  return names;
}

/// Where something was put into the trash.
struct Arrival {
  std::string trash;
  std::string name;
  ExpectedItem item;

  [[nodiscard]] std::string path() const { return joinPath(filesOf(trash), name); }
};

std::vector<Arrival> arrivalsIn(const std::string& trash, const std::set<std::string>& before) {
  std::vector<Arrival> arrivals;
  for (const std::string& name : namesIn(filesOf(trash))) {
    if (before.contains(name)) continue;
    const std::optional<InodeFacts> found = factsOfEntry(AT_FDCWD, joinPath(filesOf(trash), name).c_str());
    if (found) arrivals.push_back({trash, name, itemOf(*found)});
  }
  return arrivals;
}

/// Moves the item back to where it was. Returns why it could not; "" when it did.
std::string putBack(const Arrival& arrival, const std::string& path) {
  if (::renameat2(AT_FDCWD, arrival.path().c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) != 0) {
    return reasonOf(errno);
  }
  (void)::unlink(infoFileOf(arrival.trash, arrival.name).c_str());
  return "";
}

[[noreturn]] void undo(const Arrival& arrival, const std::string& path, const std::string& reason) {
  const std::string failure = putBack(arrival, path);
  if (failure.empty()) refuse(reason);
  refuse(fmt::format("{}, and could not be moved back ({}): it is at {}", reason, failure,
                     displayText(arrival.path())));
}

/// Where inodes have no numbers on the disk, they may have others after they are renamed.
bool mayRenumberInodes(int folder) {
  struct statfs found {};
  if (::fstatfs(folder, &found) != 0) return false;
  return found.f_type == FUSE_SUPER_MAGIC || found.f_type == MSDOS_SUPER_MAGIC ||
         found.f_type == EXFAT_SUPER_MAGIC || found.f_type == SMB2_SUPER_MAGIC;
}

bool isFolderOf(const std::string& path, std::uint32_t user) {
  struct stat found {};
  return ::lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode) && found.st_uid == user;
}

}  // namespace

LinuxTrash::LinuxTrash(std::string dataHome, std::uint32_t owner, Mover mover)
    : homeTrash(joinPath(dataHome, "Trash")), user(owner), move(std::move(mover)) {}

void LinuxTrash::moveByGio(const std::string& path) {
  // The local file system's own implementation: others would wait for a session bus.
  const std::unique_ptr<GFile, Unref> file(g_vfs_get_file_for_path(g_vfs_get_local(), path.c_str()));
  GError* raised = nullptr;
  if (g_file_trash(file.get(), nullptr, &raised) != FALSE) return;
  const std::unique_ptr<GError, Unref> error(raised);
  refuse(error->message);
}

ExpectedItem LinuxTrash::inspect(const std::string& path) const {
  requireBackground("TrashService::inspect");
  const Place place = placeOf(path);
  const InodeFacts found = factsIn(place, "no such file or folder");
  (void)mountPointOf(path, found);
  return itemOf(found);
}

TrashedItem LinuxTrash::moveToTrash(const std::string& path, const ExpectedItem& expected) {
  requireBackground("TrashService::moveToTrash");
  const Place place = placeOf(path);
  std::vector<std::pair<std::string, std::set<std::string>>> before;
  const auto check = [&] {
    const InodeFacts found = factsIn(place, "it is no longer there");
    if (!isExpected(itemOf(found), expected)) refuse(kChanged);
    return found;
  };
  for (std::string& trash : foldersOf(mountPointOf(path, check()))) {
    std::set<std::string> names = namesIn(filesOf(trash));
    before.emplace_back(std::move(trash), std::move(names));
  }
  const bool renumbers = mayRenumberInodes(place.folder.get());
  const ExpectedItem item = itemOf(check());  // once more, as listing may have taken a while
  move(path);

  std::optional<Arrival> other;
  for (const auto& [trash, names] : before) {
    const std::string top = topOfTrash(trash, homeTrash);
    for (const Arrival& arrival : arrivalsIn(trash, names)) {
      const std::optional<TrashInfo> info = readTrashInfo(infoFileOf(trash, arrival.name), top);
      const bool isOurs = info ? info->originalPath == path : true;
      const bool isSame = isExpected(arrival.item, item, !renumbers || !info || !isOurs);
      if (!isSame) {
        if (info && isOurs) other = arrival;
        continue;
      }
      if (info) return {arrival.path(), path, info->trashedAt};
      const std::string failure = writeTrashInfo(infoFileOf(trash, arrival.name), top, path);
      if (!failure.empty()) undo(arrival, path, "the trash cannot record where it was: " + failure);
      return {arrival.path(), path, 0};
    }
  }
  if (other) undo(*other, path, kChanged);
  // Moved to where only the system knows, as a sandbox does; but not while it is still there.
  const std::optional<InodeFacts> still = factsOfEntry(place.folder.get(), place.name.c_str());
  if (still && isExpected(itemOf(*still), item)) refuse("the system did not move it");
  return {"", path, 0};
}

std::vector<std::string> LinuxTrash::foldersOf(const std::string& mountPoint) const {
  const std::string shared = joinPath(pathPrefix(mountPoint), ".Trash");
  return {homeTrash, joinPath(shared, std::to_string(user)), shared + "-" + std::to_string(user)};
}

std::vector<std::string> LinuxTrash::folders() const {
  requireBackground("TrashService::folders");
  std::vector<std::string> found;
  std::set<std::string> known;
  const auto add = [&](const std::string& path) {
    if (isFolderOf(path, user) && known.insert(path).second) found.push_back(path);
  };
  add(homeTrash);
  for (const Mount& mount : readMounts(openMounts())) {
    for (const std::string& path : foldersOf(mount.point)) add(path);
  }
  return found;
}

TrashFolder LinuxTrash::list(const std::string& folder) const {
  requireBackground("TrashService::list");
  TrashFolder trash{.path = folder, .items = {}};
  const std::string top = topOfTrash(folder, homeTrash);
  const Descriptor opened = openFolder(AT_FDCWD, filesOf(folder));
  if (!opened.isOpen()) {
    if (errno != ENOENT) trash.failure = reasonOf(errno);
    return trash;
  }
  NameListing listing(kListingBytes);
  listing.start(opened.get());
  for (ListedName entry; listing.next(entry);) {
    const auto info = readTrashInfo(infoFileOf(folder, entry.name), top);
    trash.items.push_back({joinPath(filesOf(folder), entry.name), info ? info->originalPath : "",
                           info ? info->trashedAt : 0});
  }
  if (listing.error()) trash.failure = reasonOf(listing.error());
  std::ranges::sort(trash.items, {}, &TrashedItem::path);
  return trash;
}

}  // namespace quon
