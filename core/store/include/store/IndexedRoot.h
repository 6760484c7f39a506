#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "base/RootPath.h"
#include "scan/KeptFiles.h"

namespace quon {

/// A root, its index, and the rules that it was scanned by and must be kept current by.
struct IndexedRoot {
  RootPath root;
  std::string indexURL;
  std::uint32_t rootDev = 0;          ///< other devices are not entered
  std::uint64_t minKeep = kMinKeep;   ///< logical bytes
  std::set<std::string> skipPaths{};  ///< full paths that are not entered
};

}  // namespace quon
