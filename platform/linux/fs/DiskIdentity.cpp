// File systems have several ways to say their UUID, depending on their kind and on the kernel's age: one for
// all since Linux 6.9, one of their own before, or the links that the device manager makes. Those of the
// network and those in user space have none, but a source. What is left (in memory, stacked) lives no longer
// than the machine runs.
#include "linux_fs/DiskIdentity.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <linux/btrfs.h>
#include <linux/msdos_fs.h>
#include <optional>
#include <span>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <system_error>

#include "linux_fs/Descriptor.h"
#include "linux_fs/InodeFacts.h"
#include "linux_fs/Mounts.h"

namespace quon {
namespace {

constexpr std::size_t kUuidBytes = 16;
using Uuid = std::array<std::uint8_t, kUuidBytes>;

/// FS_IOC_GETFSUUID of Linux 6.9, which the headers of older systems lack.
struct AnyUuid {
  std::uint8_t length;
  Uuid uuid;
};
constexpr unsigned long kGetAnyUuid = _IOR(0x15, 0, AnyUuid);

/// EXT4_IOC_GETFSUUID, in no public header.
struct Ext4Uuid {
  std::uint32_t length;
  std::uint32_t flags;
  Uuid uuid;
};
struct Ext4UuidHead {
  std::uint32_t length;
  std::uint32_t flags;
};
constexpr unsigned long kGetExt4Uuid = _IOR('f', 44, Ext4UuidHead);

/// XFS_IOC_FSGEOMETRY_V1, in no header of the C library's.
struct XfsGeometry {
  std::array<std::uint32_t, 8> before;
  std::array<std::uint64_t, 4> blocks;
  Uuid uuid;
  std::array<std::uint32_t, 7> after;
};
constexpr unsigned long kGetXfsGeometry = _IOR('X', 100, XfsGeometry);

constexpr long kExt4 = 0xEF53;
constexpr long kXfs = 0x58465342;
constexpr long kBtrfs = 0x9123683E;
constexpr long kVfat = 0x4D44;
constexpr long kTmpfs = 0x01021994;

std::string hex(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += fmt::format("{:02x}", byte);
  return text;
}

bool isZero(const Uuid& uuid) {
  return uuid == Uuid{};
}

std::optional<Uuid> anyUuid(int folder) {
  AnyUuid found{};
  if (::ioctl(folder, kGetAnyUuid, &found) != 0 || found.length != kUuidBytes || isZero(found.uuid)) {
    return std::nullopt;
  }
  return found.uuid;
}

std::optional<Uuid> uuidByKind(int folder, long kind) {
  if (kind == kExt4) {
    Ext4Uuid found{.length = kUuidBytes, .flags = 0, .uuid = {}};
    if (::ioctl(folder, kGetExt4Uuid, &found) == 0) return found.uuid;
  } else if (kind == kXfs) {
    XfsGeometry found{};
    if (::ioctl(folder, kGetXfsGeometry, &found) == 0) return found.uuid;
  } else if (kind == kBtrfs) {
    btrfs_ioctl_fs_info_args found{};
    if (::ioctl(folder, BTRFS_IOC_FS_INFO, &found) == 0) {
      Uuid uuid{};
      std::memcpy(uuid.data(), found.fsid, uuid.size());
      return uuid;
    }
  }
  return std::nullopt;
}

/// Which subvolume of a btrfs; "" where that cannot be asked.
std::string subvolume(int folder) {
  btrfs_ioctl_get_subvol_info_args found{};
  // Of most subvolumes the kernel returns 1, which is no failure.
  if (::ioctl(folder, BTRFS_IOC_GET_SUBVOL_INFO, &found) < 0) return "";
  return fmt::format("/{}:{}", found.treeid, hex({found.uuid, kUuidBytes}));
}

/// The UUID of the block device, by the links that the device manager makes.
std::string uuidOfDevice(dev_t device) {
  std::error_code error;
  for (std::filesystem::directory_iterator at("/dev/disk/by-uuid", error), end; !error && at != end;
       at.increment(error)) {
    struct stat target {};
    if (::stat(at->path().c_str(), &target) == 0 && S_ISBLK(target.st_mode) && target.st_rdev == device) {
      return at->path().filename().string();
    }
  }
  return "";
}

std::optional<Mount> mountOf(dev_t device) {
  try {
    const std::string wanted = fmt::format("{}:{}", major(device), minor(device));
    for (Mount& mount : readMounts(openMounts())) {
      if (mount.device == wanted) return std::move(mount);
    }
  } catch (const std::system_error&) {
    // No /proc: nothing is known of sources.
  }
  return std::nullopt;
}

/// Of file systems without a UUID of their own, what they were mounted from.
std::string fromSource(const Mount& mount) {
  struct stat source {};
  if (::stat(mount.source.c_str(), &source) == 0 && S_ISBLK(source.st_mode)) {
    const std::string uuid = uuidOfDevice(source.st_rdev);
    return uuid.empty() ? "" : "device:" + uuid;
  }
  // "host:/path" of the network's, "user@host:path" or a path of those in user space, the name of a pool; but
  // those that have none mostly repeat their type ("overlay", or "portal" of the type "fuse.portal").
  const bool isName = !mount.source.empty() && mount.source != "none" && !mount.type.ends_with(mount.source);
  return isName ? "source:" + mount.type + ":" + mount.source : "";
}

std::string lastingIdentity(int folder, long kind, dev_t device) {
  std::optional<Uuid> uuid = anyUuid(folder);
  if (!uuid) uuid = uuidByKind(folder, kind);
  if (uuid) return "uuid:" + hex(*uuid) + (kind == kBtrfs ? subvolume(folder) : "");
  std::uint32_t serial = 0;
  if (kind == kVfat && ::ioctl(folder, FAT_IOCTL_GET_VOLUME_ID, &serial) == 0 && serial != 0) {
    return fmt::format("serial:{:08x}", serial);
  }
  if (const std::string ofDevice = uuidOfDevice(device); !ofDevice.empty()) return "device:" + ofDevice;
  const std::optional<Mount> mount = mountOf(device);
  return mount ? fromSource(*mount) : "";
}

}  // namespace

std::string bootIdentity() {
  std::ifstream file("/proc/sys/kernel/random/boot_id");
  std::string text;
  std::getline(file, text);
  return text.empty() ? "unknown" : text;  // in a sandbox without /proc
}

DiskIdentity diskOf(const std::string& path) {
  DiskIdentity disk;
  const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
  struct stat found {};
  struct statfs system {};
  if (!folder.isOpen() || ::fstat(folder.get(), &found) != 0 || ::fstatfs(folder.get(), &system) != 0) {
    return disk;
  }
  if (const std::optional<InodeFacts> facts = factsOf(folder.get())) {
    disk.rootInode = facts->identity.inode;
    disk.rootBorn = facts->identity.bornMicros;
  }
  const auto kind = static_cast<long>(system.f_type);
  disk.volume = lastingIdentity(folder.get(), kind, found.st_dev);
  // What is in memory may have a UUID too, made for the occasion.
  if (kind == kTmpfs || !disk.isKnown()) disk.boot = bootIdentity();
  if (disk.isKnown()) return disk;
  disk.volume = fmt::format("number:{}:{}:{:x}:{}", major(found.st_dev), minor(found.st_dev), system.f_type,
                            system.f_blocks);
  return disk;
}

}  // namespace quon
