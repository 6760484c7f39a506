// Listing: getdents64 fills the 256 KiB buffer; the records in it are handed out in batches, each entry
// looked up with one statx relative to the open folder, so that no path is walked per file.
//
// Folders are opened relative to their parent's descriptor where the caller has one. A path of any length is
// reached by stepping down in pieces that each fit one system call.
//
// The access time of a folder is a write to the user's disk too: folders are opened with O_NOATIME where the
// kernel allows it (to their owner and to root), and without elsewhere.
#include "platform_linux/LinuxDirectories.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "DeviceNumber.h"
#include "platform_linux/Descriptor.h"

namespace quon {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
/// Few enough that a caller who checks for cancellation between batches stops at once even on a slow disk.
constexpr std::size_t kBatchEntries = 128;
constexpr std::uint64_t kBlockBytes =
    512;  // the unit of stx_blocks, whatever the file system's block size is
/// No file is larger; the index stores sizes as signed 64-bit integers.
constexpr std::uint64_t kLargestSize = std::numeric_limits<std::int64_t>::max();
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

/// The kernel's linux_dirent64 up to its name, which follows.
struct DirentHeader {
  std::uint64_t inode;
  std::int64_t offset;
  std::uint16_t recordBytes;
  std::uint8_t type;
};
constexpr std::size_t kNameOffset = offsetof(DirentHeader, type) + 1;

class LinuxDirectory final : public OpenDirectory {
 public:
  explicit LinuxDirectory(int number) : descriptor(number) {}
  [[nodiscard]] int number() const { return descriptor.get(); }
  [[nodiscard]] FolderFacts facts() const override;

 private:
  Descriptor descriptor;
};

int openAt(int parent, const char* name) {
  const int opened = ::openat(parent, name, kOpenFlags | O_NOATIME);
  if (opened >= 0 || errno != EPERM) return opened;
  return ::openat(parent, name, kOpenFlags);
}

/// Opens a path none of whose components may be a link: a folder that was replaced by one must not lead out
/// of the tree. In a sandbox that lacks the call, only the last component is held to that.
int openWithoutLinks(int parent, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<std::uint64_t>(flags);
  how.resolve = RESOLVE_NO_SYMLINKS;
  const auto opened = static_cast<int>(::syscall(SYS_openat2, parent, path, &how, sizeof how));
  if (opened >= 0 || (errno != ENOSYS && errno != EPERM)) return opened;
  if (errno == EPERM && (flags & O_NOATIME) != 0) return openWithoutLinks(parent, path, flags & ~O_NOATIME);
  return ::openat(parent, path, flags);
}

/// Opens a path of any length, stepping down where it is too long for one call: each piece is as many whole
/// components as fit.
int openPath(const std::string& path) {
  Descriptor at(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::size_t begin = path.find_first_not_of('/');
  while (at.isOpen() && begin != std::string::npos && path.size() - begin >= PATH_MAX) {
    const std::size_t slash = path.rfind('/', begin + PATH_MAX - 2);
    if (slash == std::string::npos || slash <= begin) {
      errno = ENAMETOOLONG;
      return -1;
    }
    const std::string piece = path.substr(begin, slash - begin);
    at = Descriptor(openWithoutLinks(at.get(), piece.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    begin = path.find_first_not_of('/', slash);  // a piece that began with a slash would lead back to "/"
  }
  if (!at.isOpen()) return -1;
  return openWithoutLinks(at.get(), begin == std::string::npos ? "." : path.c_str() + begin,
                          kOpenFlags | O_NOATIME);
}

FolderFacts LinuxDirectory::facts() const {
  struct statx found;
  if (::statx(descriptor.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS, &found) != 0) return {};
  return {deviceNumber(found.stx_dev_major, found.stx_dev_minor), found.stx_ino, found.stx_mtime.tv_sec};
}

EntryType typeOfMode(std::uint16_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return EntryType::regular;
    case S_IFDIR:
      return EntryType::directory;
    case S_IFLNK:
      return EntryType::symlink;
    default:
      return EntryType::other;
  }
}

EntryType typeOfListing(std::uint8_t type) {
  switch (type) {
    case DT_REG:
      return EntryType::regular;
    case DT_DIR:
      return EntryType::directory;
    case DT_LNK:
      return EntryType::symlink;
    case DT_UNKNOWN:
      return EntryType::unknown;
    default:
      return EntryType::other;
  }
}

class LinuxDirectoryReader final : public DirectoryReader {
 public:
  LinuxDirectoryReader() : buffer(std::make_unique_for_overwrite<std::byte[]>(kBufferBytes)) {}

  OpenedDirectory open(const std::string& path) override { return opened(openPath(path)); }

  OpenedDirectory openChild(const OpenDirectory& parent, const std::string& name) override {
    return opened(openAt(static_cast<const LinuxDirectory&>(parent).number(), name.c_str()));
  }

  using DirectoryReader::start;
  void start(const OpenDirectoryRef& directory, Detail wanted) override {
    current = directory;
    detail = wanted;
    descriptor = static_cast<const LinuxDirectory&>(*directory).number();
    position = 0;
    filled = 0;
  }

  DirectoryBatch next() override {
    DirectoryBatch batch;
    std::size_t count = 0;
    while (count == 0) {
      if (position == filled && !fill(batch)) return batch;
      while (position < filled && count < kBatchEntries) {
        if (take(entries[count], batch)) ++count;
      }
    }
    batch.entries = {entries.data(), count};
    batch.status = ReadStatus::more;
    return batch;
  }

 private:
  static OpenedDirectory opened(int number) {
    if (number < 0) return {nullptr, {errno, std::generic_category()}};
    return {std::make_shared<LinuxDirectory>(number), {}};
  }

  /// False at the end of the folder and on failure, which the batch then tells.
  bool fill(DirectoryBatch& batch) {
    const long bytes = ::syscall(SYS_getdents64, descriptor, buffer.get(), kBufferBytes);
    if (bytes > 0) {
      position = 0;
      filled = static_cast<std::size_t>(bytes);
      return true;
    }
    batch.status = bytes == 0 ? ReadStatus::end : ReadStatus::failed;
    // A folder that was removed while it was open has simply come to its end.
    if (bytes < 0 && errno == ENOENT) batch.status = ReadStatus::end;
    if (batch.status == ReadStatus::failed) batch.error = {errno, std::generic_category()};
    current.reset();
    return false;
  }

  /// Reads one record into the entry; false for those that are no entries of the folder.
  bool take(DirEntry& entry, DirectoryBatch& batch) {
    DirentHeader header{};
    const std::byte* record = buffer.get() + position;
    std::memcpy(&header, record, kNameOffset);
    position += header.recordBytes;
    const char* name = reinterpret_cast<const char*>(record) + kNameOffset;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) return false;

    entry = DirEntry{.name = name, .type = typeOfListing(header.type)};
    if (detail == Detail::identity && entry.type != EntryType::unknown) {
      entry.fileID = header.inode;
      return true;
    }
    struct statx found;
    if (::statx(descriptor, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS, &found) != 0) {
      if (errno == ENOENT) return false;
      batch.attributesRefused = true;
      batch.error = {errno, std::generic_category()};
      return true;
    }
    entry.type = typeOfMode(found.stx_mode);
    entry.device = deviceNumber(found.stx_dev_major, found.stx_dev_minor);
    entry.fileID = found.stx_ino;
    entry.linkCount = found.stx_nlink;
    entry.logical = std::min(found.stx_size, static_cast<__u64>(kLargestSize));
    entry.physical =
        found.stx_blocks > kLargestSize / kBlockBytes ? kLargestSize : found.stx_blocks * kBlockBytes;
    entry.mtime = found.stx_mtime.tv_sec;
    return true;
  }

  std::unique_ptr<std::byte[]> buffer;
  std::array<DirEntry, kBatchEntries> entries;
  OpenDirectoryRef current;
  int descriptor = -1;
  Detail detail = Detail::full;
  std::size_t position = 0;
  std::size_t filled = 0;
};

}  // namespace

std::unique_ptr<DirectoryReader> LinuxDirectories::makeReader() const {
  return std::make_unique<LinuxDirectoryReader>();
}

}  // namespace quon
