#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "live/Refresh.h"
#include "platform/Platform.h"

namespace quon::Refresh {

/// The folders of the tree that hold a name of one of these files. The index keeps no inode numbers of files
/// with one link: when such a file gets a second one, its first name is found by reading the names, and
/// nothing else, of the whole tree. Threads: any.
[[nodiscard]] std::vector<std::string> foldersHolding(const Platform& platform,
                                                      const std::set<std::uint64_t>& fileIDs,
                                                      const Scope& scope);

}  // namespace quon::Refresh
