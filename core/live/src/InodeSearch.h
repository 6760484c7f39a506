#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "live/Refresh.h"
#include "platform/Platform.h"

namespace quon::Refresh {

struct FoundName {
  std::uint64_t fileID = 0;
  std::string folder;
  std::string name;
};

/// The names of these files in the tree. The index keeps no inode numbers of files
/// with one link: when such a file gets a second one, its first name is found by reading the names, and
/// nothing else, of the whole tree. Threads: any.
[[nodiscard]] std::vector<FoundName> namesOf(const std::set<std::uint64_t>& fileIDs, const Platform& platform,
                                             const IndexedRoot& index);

}  // namespace quon::Refresh
