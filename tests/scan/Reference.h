#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "RecordingSink.h"
#include "platform/Platform.h"
#include "scan/FileEntry.h"
#include "scan/Walker.h"

namespace quon::test {

/// What a tree holds, found by one thread with lstat and full paths.
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

/// The services that the system offers.
[[nodiscard]] const Platform& systemPlatform();
/// With the device of the root filled in.
[[nodiscard]] Walker::Options optionsFor(const std::string& root, Walker::Options rest = {});

/// Walks and rolls up.
[[nodiscard]] Walker::Result walk(Walker& walker, const std::string& root, unsigned threads);

/// Walks the root and expects each figure of the tree, the largest files, and what the sink was told, to be
/// what the reference makes of it. Returns the root's node.
RefPtr<DirNode> expectWalkMatches(const ReferenceTree& tree, const Walker::Options& options,
                                  unsigned threads);

/// Fills a folder with all that a file system can hold: names of any bytes, links of both kinds, sparse
/// files, sockets and pipes, odd times.
void makeRandomTree(const std::string& root, std::mt19937_64& random);

}  // namespace quon::test
