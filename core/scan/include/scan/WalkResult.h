#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/RefPtr.h"
#include "scan/DirNode.h"
#include "scan/FileEntry.h"

namespace quon {

/// What a walk found; `Walker::Result`.
struct WalkResult {
  RefPtr<DirNode> root;
  std::vector<TopFile> topFiles;              ///< largest logical size first
  std::uint64_t errorCount = 0;               ///< folders that could not be read, or not to their end
  std::vector<std::string> errorSamples;      ///< paths of the first 50 of them
  std::vector<std::string> errorReasons;      ///< why, one for each sample; none in a saved index
  std::uint64_t hardlinksDeduped = 0;         ///< further names of files already counted
  std::vector<std::string> skippedProtected;  ///< paths skipped on request, ascending
};

}  // namespace quon
