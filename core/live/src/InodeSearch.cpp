#include "InodeSearch.h"

#include <memory>
#include <utility>

#include "base/Path.h"
#include "platform/Directories.h"

namespace quon::Refresh {

std::vector<FoundName> namesOf(const std::set<std::uint64_t>& fileIDs, const Platform& platform,
                               const IndexedRoot& index) {
  const std::unique_ptr<DirectoryReader> reader = platform.directories.makeReader();
  std::vector<FoundName> found;
  std::vector<std::string> waiting{std::string(index.root.prefix())};
  while (!waiting.empty()) {
    const std::string path = std::move(waiting.back());
    waiting.pop_back();
    const OpenedDirectory opened = reader->open(path);
    // Unreadable folders contain no counted file, and those that are gone none at all.
    if (!opened.directory || opened.directory->facts().device != index.rootDev) continue;
    reader->start(opened.directory, Detail::identity);
    while (true) {
      const DirectoryBatch batch = reader->next();
      for (const DirEntry& entry : batch.entries) {
        if (entry.type == EntryType::directory) {
          std::string child = joinPath(path, entry.name);
          if (!index.skipPaths.contains(child)) waiting.push_back(std::move(child));
        } else if (fileIDs.contains(entry.fileID)) {
          found.push_back({entry.fileID, path.empty() ? index.root.path() : path, std::string(entry.name)});
        }
      }
      if (batch.status != ReadStatus::more) break;
    }
  }
  return found;
}

}  // namespace quon::Refresh
