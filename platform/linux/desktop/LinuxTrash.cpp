// GIO moves by path. That the right item was moved is therefore checked twice: before, from a descriptor of its
// folder that was reached without following a link; and after, by its inode number in the trash. What was moved by
// mistake, because a folder above was exchanged in between, is moved back.
//
// GIO takes the first name for which the trash has no record, writes one, and renames the item over whatever has that
// name: an item without a record would be lost, so nothing is moved where one is in the way. And it ignores that a full
// disk kept it from writing the record, without which nothing could be restored: the record is read back, and without
// one the item is moved back as well.
#include "linux_desktop/LinuxTrash.h"

#include <algorithm>
#include <array>
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
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>
#include <vector>

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

struct Release {
  void operator()(GFile* file) const { g_object_unref(file); }
  void operator()(GError* error) const { g_error_free(error); }
  void operator()(char* text) const { std::free(text); }
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

std::optional<InodeFacts> factsAt(const std::string& path) {
  return factsOfEntry(AT_FDCWD, path.c_str());
}

/// `withInode`: inode numbers are compared where they are known.
bool isExpected(const ExpectedItem& found, const ExpectedItem& expected, bool withInode = true) {
  if (expected.type != EntryType::unknown && found.type != expected.type) return false;
  if (expected.mtime && found.mtime != expected.mtime) return false;
  if (expected.logical && found.logical != expected.logical) return false;
  return !withInode || expected.fileID == 0 ||
         (found.fileID == expected.fileID && found.device == expected.device);
}

std::string mountPointAbove(const std::string& path, const std::vector<Mount>& mounts) {
  std::string nearest = "/";
  for (const Mount& mount : mounts) {
    if (isInside(path, mount.point) && mount.point.size() > nearest.size()) nearest = mount.point;
  }
  return nearest;
}

/// The mount that the path lies on, unless it is itself, or contains, a mount point.
std::string mountPointOf(const std::string& path, const InodeFacts& found) {
  if (found.isMountRoot) refuse("it is a mount point");
  const std::vector<Mount> mounts = readMounts(openMounts());
  for (const Mount& mount : mounts) {
    if (mount.point == path) refuse("it is a mount point");
    if (isInside(mount.point, path)) refuse("another file system is mounted in it, at " + displayText(mount.point));
  }
  return mountPointAbove(path, mounts);
}

/// Where the path leads: links are followed as far as it exists.
std::string resolved(const std::string& path) {
  if (path == "/" || path.empty()) return path;
  const std::unique_ptr<char, Release> found(::realpath(path.c_str(), nullptr));
  if (found) return found.get();
  return joinPath(pathPrefix(resolved(std::string(parentPath(path)))), lastComponent(path));
}

std::string filesOf(const std::string& trash) {
  return joinPath(trash, "files");
}

/// GIO's n-th name for an item, from 1.
std::string candidateName(const std::string& name, int number) {
  if (number == 1) return name;
  const std::size_t dot = name.find('.');
  const std::string stem = name.substr(0, dot);
  return fmt::format("{}.{}{}", stem, number, dot == std::string::npos ? "" : name.substr(dot));
}

/// A trash that an item may come to, with the first of its names that is free there.
struct Destination {
  std::string trash;
  int free = 1;
};

Destination destinationIn(const std::string& trash, const std::string& name, std::uint32_t device) {
  Destination destination{trash};
  while (::faccessat(AT_FDCWD, infoFileOf(trash, candidateName(name, destination.free)).c_str(), F_OK,
                     AT_SYMLINK_NOFOLLOW) == 0) {
    ++destination.free;
  }
  const std::string there = joinPath(filesOf(trash), candidateName(name, destination.free));
  const std::optional<InodeFacts> unrecorded = factsAt(there);
  if (unrecorded && unrecorded->device == device) {
    refuse("the trash contains an item of that name without a record of where it was, which would be lost: " +
           displayText(there));
  }
  return destination;
}

/// Where something was put into the trash.
struct Arrival {
  std::string trash;
  std::string name;
  ExpectedItem item;

  [[nodiscard]] std::string path() const { return joinPath(filesOf(trash), name); }
};

std::optional<Arrival> arrivalAt(const std::string& trash, const std::string& name) {
  const std::optional<InodeFacts> found = factsAt(joinPath(filesOf(trash), name));
  if (!found) return std::nullopt;
  return Arrival{trash, name, itemOf(*found)};
}

/// All that a trash contains. A trash that cannot be listed contains nothing that could be found.
std::vector<std::string> namesIn(const std::string& trash) {
  std::vector<std::string> names;
  const Descriptor opened = openFolder(AT_FDCWD, filesOf(trash));
  if (!opened.isOpen()) return names;
  NameListing listing(kListingBytes);
  listing.start(opened.get());
  for (ListedName entry; listing.next(entry);) names.emplace_back(entry.name);
  return names;
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
  if (failure.empty()) throw TrashFailure(reason, arrival.trash);
  throw TrashFailure(fmt::format("{}, and could not be moved back ({}): it is at {}", reason, failure,
                                 displayText(arrival.path())),
                     arrival.trash);
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

/// False for what has no trash of a user's, and for what may not answer: other computers, file systems in user space
/// without a disk, and places that are mounted when they are looked at.
bool mayHaveTrash(const std::string& type) {
  static constexpr std::array<std::string_view, 30> kWithout{
      "9p",        "afs",     "autofs",  "bpf",       "binfmt_misc", "ceph",   "cgroup",    "cgroup2",
      "cifs",      "configfs", "debugfs", "devpts",   "devtmpfs",    "efivarfs", "fuse",    "fusectl",
      "hugetlbfs", "mqueue",  "nfs",     "nfs4",      "nsfs",        "proc",   "pstore",    "ramfs",
      "rpc_pipefs", "securityfs", "smb3", "sysfs",    "tracefs",     "selinuxfs"};
  return std::ranges::find(kWithout, type) == kWithout.end() && !type.starts_with("fuse.");
}

}  // namespace

LinuxTrash::LinuxTrash(const std::string& dataHome, std::uint32_t owner, Mover mover)
    : homeTrash(joinPath(dataHome, "Trash")), user(owner), move(std::move(mover)) {}

void LinuxTrash::moveByGio(const std::string& path) {
  // The local implementation: others would ask a session bus, as it does itself only in a sandbox.
  const std::unique_ptr<GFile, Release> file(g_vfs_get_file_for_path(g_vfs_get_local(), path.c_str()));
  GError* raised = nullptr;
  if (g_file_trash(file.get(), nullptr, &raised) != FALSE) return;
  const std::unique_ptr<GError, Release> error(raised);
  // Its messages repeat the path; what it says of mounts is of use to nobody.
  if (g_error_matches(raised, G_IO_ERROR, G_IO_ERROR_NOT_SUPPORTED) != FALSE) {
    refuse("the desktop keeps no trash for its file system");
  }
  if (g_error_matches(raised, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED) != FALSE) refuse("permission denied");
  if (g_error_matches(raised, G_IO_ERROR, G_IO_ERROR_NO_SPACE) != FALSE) refuse("no space left on device");
  if (g_error_matches(raised, G_IO_ERROR, G_IO_ERROR_READ_ONLY) != FALSE) refuse("read-only file system");
  refuse(error->message);
}

/// By path alone, whoever owns the trash and whether it is there.
void LinuxTrash::refuseTrash(const std::string& path, const std::string& mountPoint) const {
  const std::string home = resolved(homeTrash);
  if (path == home || path == homeTrash) refuse("it is the trash");
  if (isInside(path, home)) refuse("it is in the trash already");
  if (isInside(home, path)) refuse("it contains the trash");
  std::string_view below = relativeTo(path, mountPoint).value_or("");
  const std::string_view top = takeComponent(below);
  if (top == ".Trash" || top.starts_with(".Trash-")) {
    refuse(below.empty() ? "it is the trash" : "it is in the trash already");
  }
}

ExpectedItem LinuxTrash::inspect(const std::string& path) const {
  requireBackground("TrashService::inspect");
  const Place place = placeOf(path);
  const InodeFacts found = factsIn(place, "no such file or folder");
  refuseTrash(path, mountPointOf(path, found));
  return itemOf(found);
}

TrashedItem LinuxTrash::moveToTrash(const std::string& path, const ExpectedItem& expected) {
  requireBackground("TrashService::moveToTrash");
  const Place place = placeOf(path);
  const auto check = [&] {
    const InodeFacts found = factsIn(place, "it is no longer there");
    if (!isExpected(itemOf(found), expected)) refuse(kChanged);
    return found;
  };
  const InodeFacts seen = check();
  const std::string mountPoint = mountPointOf(path, seen);
  refuseTrash(path, mountPoint);
  std::vector<Destination> destinations;
  for (const std::string& trash : foldersOf(mountPoint)) {
    destinations.push_back(destinationIn(trash, place.name, seen.device));
  }
  const bool renumbers = mayRenumberInodes(place.folder.get());
  const auto begin = std::chrono::system_clock::now();
  const ExpectedItem item = itemOf(check());
  try {
    move(path);
  } catch (const TrashFailure& failure) {
    throw TrashFailure(failure.what(), destinations.front().trash);  // a record may have come and gone
  }

  const auto isRecent = [begin](const std::string& file) {
    constexpr std::chrono::milliseconds kClockTick{20};  // of the kernel's file times
    const std::optional<InodeFacts> record = factsAt(file);
    return record && std::chrono::microseconds(record->changedMicros) >= begin.time_since_epoch() - kClockTick;
  };
  std::optional<Arrival> other;
  const auto settle = [&](const Arrival& arrival) -> std::optional<TrashedItem> {
    const std::string record = infoFileOf(arrival.trash, arrival.name);
    const std::string top = topOfTrash(arrival.trash, resolved(homeTrash));
    const std::optional<TrashInfo> info = readTrashInfo(record, top);
    const bool isOurs = info && (info->originalPath == path || info->originalPath == resolved(path)) && isRecent(record);
    if (!isExpected(arrival.item, item, !renumbers || !isOurs)) {
      if (isOurs) other = arrival;
      return std::nullopt;
    }
    if (info) return TrashedItem{arrival.path(), path, info->trashedAt};
    const std::string failure = writeTrashInfo(record, top, path);
    if (!failure.empty()) undo(arrival, path, "the trash cannot record where it was: " + failure);
    return TrashedItem{arrival.path(), path, std::chrono::system_clock::to_time_t(begin)};
  };
  // It should have the name that was free; another program may have been faster by a few.
  constexpr int kOthersMeanwhile = 8;
  for (const Destination& destination : destinations) {
    for (int number = destination.free; number < destination.free + kOthersMeanwhile; ++number) {
      const auto arrival = arrivalAt(destination.trash, candidateName(place.name, number));
      if (!arrival) break;
      if (const auto settled = settle(*arrival)) return *settled;
    }
  }
  if (other) undo(*other, path, kChanged);
  // Not where it should be. Links may lead the path elsewhere by now.
  std::vector<std::string> trashes = foldersOf(mountPoint);
  for (std::string& trash : foldersOf(mountPointAbove(resolved(path), readMounts(openMounts())))) trashes.push_back(std::move(trash));
  for (const std::string& trash : trashes) {
    for (const std::string& name : namesIn(trash)) {
      const auto arrival = arrivalAt(trash, name);
      if (!arrival) continue;
      if (const auto settled = settle(*arrival)) return *settled;
    }
  }
  if (other) undo(*other, path, kChanged);
  const std::optional<InodeFacts> still = factsOfEntry(place.folder.get(), place.name.c_str());
  if (still && isExpected(itemOf(*still), item)) refuse("the system did not move it");
  return {"", path, 0};  // to where only the system knows, as a sandbox does
}

std::vector<std::string> LinuxTrash::foldersOf(const std::string& mountPoint) const {
  const std::string shared = joinPath(pathPrefix(mountPoint), ".Trash");
  return {resolved(homeTrash), joinPath(shared, std::to_string(user)), shared + "-" + std::to_string(user)};
}

std::vector<std::string> LinuxTrash::folders() const {
  requireBackground("TrashService::folders");
  std::vector<std::string> found;
  std::set<std::pair<std::uint32_t, std::uint64_t>> known;  // one may be mounted at two places
  const auto add = [&](const std::string& path) {
    if (!isFolderOf(path, user)) return;
    const std::optional<InodeFacts> facts = factsAt(path);
    if (facts && known.emplace(facts->device, facts->identity.inode).second) found.push_back(path);
  };
  add(resolved(homeTrash));
  for (const Mount& mount : readMounts(openMounts())) {
    if (!mayHaveTrash(mount.type)) continue;
    for (const std::string& path : foldersOf(mount.point)) add(path);
  }
  return found;
}

TrashFolder LinuxTrash::list(const std::string& folder) const {
  requireBackground("TrashService::list");
  TrashFolder trash{.path = folder, .items = {}};
  const std::string top = topOfTrash(folder, resolved(homeTrash));
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
