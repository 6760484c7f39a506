#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "live/Refresh.h"
#include "platform/Files.h"
#include "platform/Platform.h"

namespace quon::Refresh {

struct FoundName {
  std::uint64_t fileID = 0;
  std::string folder;
  std::string name;
};

/// A file of which names are missing.
struct WantedNames {
  PathFacts present;
  std::set<std::pair<std::string, std::string>> known;  ///< folders and names
  std::uint64_t missing = 0;                            ///< how many others; they need not be in the tree
};

/// Names of these files, by their inode numbers, in the tree. The index keeps no inode numbers of files with
/// one name: when such a file gets a second one, its first is found by its size. See the .cpp. Threads: any.
[[nodiscard]] std::vector<FoundName> findNames(std::map<std::uint64_t, WantedNames> wanted,
                                               const Platform& platform, ScanPatcher& patcher,
                                               const IndexedRoot& index);

}  // namespace quon::Refresh
