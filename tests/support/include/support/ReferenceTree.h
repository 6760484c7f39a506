#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "scan/FileEntry.h"

namespace quon::test {

/// The contents of a tree, as one thread finds them with lstat and full paths: shares no code with a scan.
struct ReferenceTree {
  struct File {
    FileEntry entry;
    std::pair<std::uint64_t, std::uint64_t> identity;  ///< device and inode number
    bool linked = false;                               ///< regular, with two or more names
  };
  struct Folder {
    std::int64_t mtime = 0;
    std::vector<File> files;
  };
  std::string root;
  std::map<std::string, Folder> folders;  ///< by full path, the root among them

  [[nodiscard]] static ReferenceTree of(const std::string& root, bool oneFileSystem = true);
};

/// Fills a folder with entries of all kinds; see TreeEditor.
void makeRandomTree(const std::string& root, std::mt19937_64& random);

}  // namespace quon::test
