#include "linux_fs/NameListing.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quon {
namespace {

/// The kernel's linux_dirent64 up to its name, which follows.
struct DirentHeader {
  std::uint64_t inode;
  std::int64_t offset;
  std::uint16_t recordBytes;
  std::uint8_t type;
};
constexpr std::size_t kNameOffset = offsetof(DirentHeader, type) + 1;

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

bool isDots(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

NameListing::NameListing(std::size_t bufferBytes)
    : capacity(bufferBytes), buffer(std::make_unique_for_overwrite<std::byte[]>(bufferBytes)) {}

void NameListing::start(int folder) {
  descriptor = folder;
  position = filled = 0;
  reason.clear();
}

bool NameListing::fill() {
  const long bytes = TEMP_FAILURE_RETRY(::syscall(SYS_getdents64, descriptor, buffer.get(), capacity));
  position = 0;
  filled = bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
  // A folder that was removed while it was open has simply come to its end.
  if (bytes < 0 && errno != ENOENT) reason = {errno, std::generic_category()};
  return bytes > 0;
}

bool NameListing::nextBuffered(ListedName& entry) {
  while (position < filled) {
    const std::byte* record = buffer.get() + position;
    DirentHeader header{};
    std::memcpy(&header, record, kNameOffset);
    position += header.recordBytes;
    entry.name = reinterpret_cast<const char*>(record) + kNameOffset;
    if (isDots(entry.name)) continue;
    entry.inode = header.inode;
    entry.type = typeOfListing(header.type);
    return true;
  }
  return false;
}

bool NameListing::next(ListedName& entry) {
  while (!nextBuffered(entry)) {
    if (!fill()) return false;
  }
  return true;
}

}  // namespace quon
