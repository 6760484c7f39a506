#include "InodeSearch.h"

#include <memory>
#include <utility>

#include "base/Path.h"
#include "platform/Directories.h"

namespace quon::Refresh {

std::vector<std::string> foldersHolding(const Platform& platform, const std::set<std::uint64_t>& fileIDs,
                                        const Scope& scope) {
  const std::unique_ptr<DirectoryReader> reader = platform.directories.makeReader();
  std::vector<std::string> holding;
  std::vector<std::string> waiting{std::string(pathPrefix(scope.rootPath))};
  while (!waiting.empty()) {
    const std::string path = std::move(waiting.back());
    waiting.pop_back();
    const OpenedDirectory opened = reader->open(path);
    // Unreadable folders hold no counted file, and those that are gone none at all.
    if (!opened.directory || opened.directory->facts().device != scope.rootDev) continue;
    bool holds = false;
    reader->start(opened.directory, Detail::identity);
    while (true) {
      const DirectoryBatch batch = reader->next();
      for (const DirEntry& entry : batch.entries) {
        if (entry.type == EntryType::directory) {
          std::string child = joinPath(path, entry.name);
          if (!scope.skipPaths.contains(child)) waiting.push_back(std::move(child));
        } else {
          holds = holds || fileIDs.contains(entry.fileID);
        }
      }
      if (batch.status != ReadStatus::more) break;
    }
    if (holds) holding.push_back(path.empty() ? scope.rootPath : path);
  }
  return holding;
}

}  // namespace quon::Refresh
