// Listing: the 256 KiB buffer is filled by the kernel; the records in it are handed out in batches, each
// entry looked up with one statx relative to the open folder, so that no path is walked per file.
//
// Folders are opened relative to their parent's descriptor where the caller has one.
#include "linux_fs/LinuxDirectories.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <sys/resource.h>

#include "Statx.h"
#include "base/MainThread.h"
#include "linux_fs/Descriptor.h"
#include "linux_fs/NameListing.h"
#include "linux_fs/OpenFolder.h"

namespace quon {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;
/// Few enough that a caller who checks for cancellation between batches stops at once even on a slow disk.
constexpr std::size_t kBatchEntries = 128;
/// The unit of stx_blocks, whatever the file system's block size is.
constexpr std::uint64_t kBlockBytes = 512;
/// No file is larger; the index stores sizes as signed 64-bit integers.
constexpr std::uint64_t kLargestSize = std::numeric_limits<std::int64_t>::max();

class LinuxDirectory final : public OpenDirectory {
 public:
  explicit LinuxDirectory(Descriptor opened) : descriptor(std::move(opened)) {}
  [[nodiscard]] int number() const { return descriptor.get(); }
  [[nodiscard]] FolderFacts facts() const override;

 private:
  Descriptor descriptor;
};

FolderFacts LinuxDirectory::facts() const {
  struct statx found;
  if (::statx(descriptor.get(), "", AT_EMPTY_PATH, STATX_BASIC_STATS, &found) != 0) return {};
  return {.device = deviceOf(found), .fileID = found.stx_ino, .mtime = found.stx_mtime.tv_sec};
}

void copyAttributes(const struct statx& found, DirEntry& entry) {
  entry.type = typeOfMode(found.stx_mode);
  entry.device = deviceOf(found);
  entry.fileID = found.stx_ino;
  entry.linkCount = found.stx_nlink;
  entry.logical = std::min(found.stx_size, static_cast<__u64>(kLargestSize));
  entry.physical =
      found.stx_blocks > kLargestSize / kBlockBytes ? kLargestSize : found.stx_blocks * kBlockBytes;
  entry.mtime = found.stx_mtime.tv_sec;
}

class LinuxDirectoryReader final : public DirectoryReader {
 public:
  OpenedDirectory open(const std::string& path) override {
    return opened(openFolder(AT_FDCWD, path.empty() ? "/" : path));
  }

  OpenedDirectory openChild(const OpenDirectory& parent, const std::string& name) override {
    return opened(openChildFolder(static_cast<const LinuxDirectory&>(parent).number(), name.c_str()));
  }

  using DirectoryReader::start;
  void start(const OpenDirectoryRef& directory, Detail wanted) override {
    current = directory;
    detail = wanted;
    descriptor = static_cast<const LinuxDirectory&>(*directory).number();
    listing.start(descriptor);
  }

  DirectoryBatch next() override {
    DirectoryBatch batch;
    std::size_t count = 0;
    ListedName listed;
    while (count == 0) {
      while (count < kBatchEntries && listing.nextBuffered(listed)) {
        if (take(listed, entries[count], batch)) ++count;
      }
      if (count == 0 && !listing.fill()) return ended(batch);
    }
    batch.entries = {entries.data(), count};
    batch.status = ReadStatus::more;
    return batch;
  }

 private:
  static OpenedDirectory opened(Descriptor folder) {
    if (!folder.isOpen()) return {nullptr, {errno, std::generic_category()}};
    return {std::make_shared<LinuxDirectory>(std::move(folder)), {}};
  }

  DirectoryBatch ended(DirectoryBatch batch) {
    batch.status = listing.error() ? ReadStatus::failed : ReadStatus::end;
    if (listing.error()) batch.error = listing.error();
    current.reset();
    return batch;
  }

  /// Completes one entry; false for one that has vanished since it was listed.
  bool take(const ListedName& listed, DirEntry& entry, DirectoryBatch& batch) const {
    entry = DirEntry{.name = listed.name, .type = listed.type};
    if (detail == Detail::identity && entry.type != EntryType::unknown) {
      entry.fileID = listed.inode;
      return true;
    }
    struct statx found;
    if (::statx(descriptor, listed.name, kEntryItself, STATX_BASIC_STATS, &found) == 0) {
      copyAttributes(found, entry);
      return true;
    }
    if (errno == ENOENT) return false;
    batch.attributesRefused = true;
    batch.error = {errno, std::generic_category()};
    return true;
  }

  NameListing listing{kBufferBytes};
  std::array<DirEntry, kBatchEntries> entries;
  OpenDirectoryRef current;
  int descriptor = -1;
  Detail detail = Detail::full;
};

}  // namespace

std::unique_ptr<DirectoryReader> LinuxDirectories::makeReader() const {
  requireBackground("DirectoryService::makeReader");
  return std::make_unique<LinuxDirectoryReader>();
}

std::size_t LinuxDirectories::openFileLimit() const {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : kUsualOpenFileLimit;
}

}  // namespace quon
