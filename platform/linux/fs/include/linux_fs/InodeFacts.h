#pragma once

#include <cstdint>
#include <optional>

#include "platform/Directories.h"

namespace quon {

/// What distinguishes a file or folder from another one that was given its name.
struct InodeIdentity {
  std::uint64_t inode = 0;
  std::int64_t bornMicros = 0;  ///< 0 where the file system keeps no time of birth

  friend bool operator==(const InodeIdentity&, const InodeIdentity&) = default;
};

/// What the kernel reports of a file or folder; times in microseconds since 1970.
struct InodeFacts {
  InodeIdentity identity;
  std::uint32_t device = 0;
  EntryType type = EntryType::unknown;
  std::int64_t changedMicros = 0;   ///< ctime
  std::int64_t modifiedMicros = 0;  ///< mtime
  std::uint64_t size = 0;           ///< apparent, bytes
  bool isMountRoot = false;

  [[nodiscard]] bool isFolder() const { return type == EntryType::directory; }
};

/// Facts of what is open; none, with errno, on failure. Threads: any.
[[nodiscard]] std::optional<InodeFacts> factsOf(int descriptor);

/// Facts of an entry of an open folder, a link's own; none, with errno, on failure.
[[nodiscard]] std::optional<InodeFacts> factsOfEntry(int folder, const char* name);

}  // namespace quon
