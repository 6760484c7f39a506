#include "FolderAccess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace quon {
namespace {

constexpr std::size_t kBufferBytes = 65536;
constexpr std::int64_t kMicrosPerSecond = 1'000'000;
constexpr std::int64_t kNanosPerMicro = 1000;
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// Not all of these are in every linux/magic.h.
constexpr std::array<std::uint64_t, 10> kTrustedFileSystems{
    EXT4_SUPER_MAGIC,  // ext2 and ext3 too
    BTRFS_SUPER_MAGIC, XFS_SUPER_MAGIC, TMPFS_MAGIC, RAMFS_MAGIC, F2FS_SUPER_MAGIC, OVERLAYFS_SUPER_MAGIC,
    0x2fc12fc1,  // ZFS
    0xca451a4e,  // bcachefs
    0x52654973,  // ReiserFS
};

/// The kernel's linux_dirent64 up to its name, which follows.
struct DirentHeader {
  std::uint64_t inode;
  std::int64_t offset;
  std::uint16_t recordBytes;
  std::uint8_t type;
};
constexpr std::size_t kNameOffset = offsetof(DirentHeader, type) + 1;

std::int64_t micros(const statx_timestamp& time) {
  return time.tv_sec * kMicrosPerSecond + time.tv_nsec / kNanosPerMicro;
}

int openPiece(int at, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(static_cast<unsigned>(flags));
  how.resolve = RESOLVE_NO_SYMLINKS;
  const long opened = ::syscall(SYS_openat2, at, path, &how, sizeof how);
  // Sandboxes that do not know the call refuse it; then only the last component is guarded.
  if (opened < 0 && (errno == ENOSYS)) return ::openat(at, path, flags);
  return static_cast<int>(opened);
}

/// The access time of a folder is a write to the user's disk: it is left alone where the kernel allows it.
int openForReading(int at, const char* path) {
  const int opened = openPiece(at, path, kOpenFlags | O_NOATIME);
  return opened < 0 && errno == EPERM ? openPiece(at, path, kOpenFlags) : opened;
}

}  // namespace

Descriptor openFolder(int at, const std::string& path) {
  if (path.size() < PATH_MAX) return Descriptor(openForReading(at, path.empty() ? "." : path.c_str()));
  Descriptor reached(path.front() == '/' ? ::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)
                                         : ::openat(at, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::size_t begin = path.front() == '/' ? 1 : 0;
  while (reached.isOpen() && path.size() - begin >= PATH_MAX) {
    const std::size_t slash = path.rfind('/', begin + PATH_MAX - 2);
    if (slash == std::string::npos || slash <= begin) {
      errno = ENAMETOOLONG;
      return {};
    }
    const std::string piece = path.substr(begin, slash - begin);
    reached =
        Descriptor(openPiece(reached.get(), piece.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    begin = slash + 1;
  }
  return reached.isOpen() ? Descriptor(openForReading(reached.get(), path.c_str() + begin)) : Descriptor();
}

bool readFacts(int descriptor, const char* name, FolderFacts& facts) {
  struct statx found {};
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | (*name == '\0' ? AT_EMPTY_PATH : 0);
  if (::statx(descriptor, name, flags, STATX_BASIC_STATS | STATX_BTIME, &found) != 0) return false;
  facts.identity.inode = found.stx_ino;
  facts.identity.bornMicros = (found.stx_mask & STATX_BTIME) != 0 ? micros(found.stx_btime) : 0;
  facts.device = makedev(found.stx_dev_major, found.stx_dev_minor);
  facts.changed = micros(found.stx_ctime);
  facts.modified = micros(found.stx_mtime);
  facts.isFolder = S_ISDIR(found.stx_mode);
  return true;
}

bool readChangeTime(int folder, const char* name, std::int64_t& changed) {
  struct statx found {};
  if (::statx(folder, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_CTIME, &found) != 0) return false;
  changed = micros(found.stx_ctime);
  return true;
}

bool keepsChangeTimes(int descriptor) {
  struct statfs found {};
  if (::fstatfs(descriptor, &found) != 0) return false;
  return std::ranges::find(kTrustedFileSystems, static_cast<std::uint64_t>(found.f_type)) !=
         kTrustedFileSystems.end();
}

NameLister::NameLister() : buffer(std::make_unique_for_overwrite<std::byte[]>(kBufferBytes)) {}

void NameLister::start(int folder) {
  descriptor = folder;
  failed = false;
  position = 0;
  filled = 0;
}

bool NameLister::next(ListedName& entry) {
  while (true) {
    if (position == filled) {
      const long bytes = ::syscall(SYS_getdents64, descriptor, buffer.get(), kBufferBytes);
      // A folder that was removed while it was open has simply come to its end.
      failed = bytes < 0 && errno != ENOENT;
      if (bytes <= 0) return false;
      position = 0;
      filled = static_cast<std::size_t>(bytes);
    }
    const auto* header = reinterpret_cast<const DirentHeader*>(&buffer[position]);
    entry.name = reinterpret_cast<const char*>(&buffer[position + kNameOffset]);
    entry.isFolder = header->type == DT_DIR;
    entry.typeKnown = header->type != DT_UNKNOWN;
    position += header->recordBytes;
    const std::string_view name = entry.name;
    if (name != "." && name != "..") return true;
  }
}

}  // namespace quon
