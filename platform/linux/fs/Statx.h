#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include "DeviceNumber.h"
#include "platform/Directories.h"

namespace quon {

/// Never mounts an automounter's folder, and follows no link.
constexpr int kEntryItself = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

inline EntryType typeOfMode(unsigned mode) {
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

inline std::uint32_t deviceOf(const struct statx& found) {
  return deviceNumber(found.stx_dev_major, found.stx_dev_minor);
}

}  // namespace quon
