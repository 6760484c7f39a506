#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform_linux/Descriptor.h"
#include "platform_linux/EventJournal.h"

namespace quon {

/// What the kernel tells of a folder or file; times in microseconds since 1970.
struct FolderFacts {
  FolderIdentity identity;
  std::uint64_t device = 0;
  std::int64_t changed = 0;   ///< ctime
  std::int64_t modified = 0;  ///< mtime
  bool isFolder = false;
};

/// Opens a folder for reading, without following a link anywhere, however long the path is. `path` is
/// absolute, or relative to the open folder `at`. Not open, with errno, on failure.
[[nodiscard]] Descriptor openFolder(int at, const std::string& path);

/// Facts of what is open, or, with a name, of an entry of it. False, with errno, on failure.
[[nodiscard]] bool readFacts(int descriptor, const char* name, FolderFacts& facts);

/// The time of the newest change of an entry, microseconds since 1970; false when it vanished.
[[nodiscard]] bool readChangeTime(int folder, const char* name, std::int64_t& changed);

/// True when the file system keeps change times that a sweep can rely on: renaming a folder changes its
/// change time and its parents' modification times, and all of it by the clock of this machine.
[[nodiscard]] bool keepsChangeTimes(int descriptor);

struct ListedName {
  const char* name = nullptr;  ///< valid until the next call
  bool isFolder = false;
  bool typeKnown = true;
};

/// Lists names through one buffer. Threads: one at a time.
class NameLister {
 public:
  NameLister();
  /// Begins the listing of an open folder from its start.
  void start(int folder);
  /// False at the end, and when the listing broke off.
  [[nodiscard]] bool next(ListedName& entry);
  /// The listing that ended was not whole.
  [[nodiscard]] bool brokeOff() const { return failed; }

 private:
  bool failed = false;
  std::unique_ptr<std::byte[]> buffer;
  int descriptor = -1;
  std::size_t position = 0;
  std::size_t filled = 0;
};

}  // namespace quon
