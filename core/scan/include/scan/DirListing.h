#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "platform/Directories.h"
#include "platform/Platform.h"
#include "scan/FileEntry.h"

namespace quon {

/// The direct entries of one folder, as live updates read them: no recursion, and no de-duplication of links.
struct DirListing {
  struct Subdir {
    std::string name;
    std::int64_t mtime = 0;
  };

  std::vector<FileEntry> files;  ///< every entry that is no folder, in listing order
  std::vector<Subdir> subdirs;   ///< the folders that a scan would enter
  bool error = false;            ///< could not be opened, or not be read to its end
  /// Why it could not be opened; none when it could.
  std::error_code refusal;
  /// Why `error` is set: the refusal, or what the listing broke off for.
  std::error_code reason;
  /// True when `error` says nothing about the folder, which is as it was: a listing may succeed a moment
  /// later.
  [[nodiscard]] bool isTransient() const { return error && quon::isTransient(reason); }
  FolderFacts self;  ///< of the folder, taken before its entries; all zero when it could not be opened
  /// Identifiers (see linkIdentifier) of the regular files with two or more links, by name; of two entries of
  /// one name the later.
  std::map<std::string, std::uint64_t> linkIDs;

  /// Threads: that of the reader.
  [[nodiscard]] static DirListing read(DirectoryReader& reader, const std::string& path,
                                       std::uint32_t rootDev, bool oneFileSystem);
  /// Threads: any; allocates a buffer of its own.
  [[nodiscard]] static DirListing read(const Platform& platform, const std::string& path,
                                       std::uint32_t rootDev, bool oneFileSystem);
};

}  // namespace quon
