#pragma once

#include <cstdint>
#include <string>

namespace quon {

/// One file of a folder.
struct FileEntry {
  std::string name;  ///< bytes, without path
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;

  friend bool operator==(const FileEntry&, const FileEntry&) = default;
};

/// One of the largest files of a scan.
struct TopFile {
  std::string path;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;

  friend bool operator==(const TopFile&, const TopFile&) = default;
};

}  // namespace quon
