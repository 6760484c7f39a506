// The first name of a file that got a second one is in the index, with the size and time that the file had
// then. If it has not been written since, it has them still, and so is found there; a few candidates are
// compared by inode number.
//
// A file that was written since, perhaps through its new name, may have another size by now. If it still lacks
// names then, which may also lie outside the tree, the names, and nothing else, of the whole tree are read: in a
// large tree only for files whose time says that they were written. That time can be set back, and links from
// elsewhere to old files are common; so is an index that contains more files alike than are compared.
#include "NameSearch.h"

#include <memory>
#include <utility>

#include "base/Path.h"
#include "platform/Directories.h"
#include "store/ScanPatcher.h"

namespace quon::Refresh {
namespace {

/// Seconds. File systems of other machines have clocks of their own.
constexpr double kClocksDiffer = 600;

/// The names of so many folders are read within some 20 ms.
constexpr std::size_t kFewFolders = 4096;

class NameSearch {
 public:
  NameSearch(std::map<std::uint64_t, WantedNames> files, const Platform& services, const IndexedRoot& about)
      : wanted(std::move(files)), platform(services), index(about) {}

  void amongSizes(ScanPatcher& patcher) {
    std::set<ScanPatcher::SizeAndTime> sizes;
    for (const auto& [fileID, file] : wanted) sizes.emplace(file.present.logical, file.present.mtime);
    const ScanPatcher::Alike alike = patcher.filesLike(sizes);
    patcher.releaseLock();
    comparedAll = alike.hasAllOfTimes;
    for (const StoredFile& stored : alike.files) {
      std::error_code gone;
      const auto facts = platform.files.ownFacts(joinPath(pathPrefix(stored.folder), stored.name), gone);
      if (facts && wanted.contains(facts->fileID)) add(facts->fileID, stored.folder, stored.name);
    }
  }

  void amongAllNames(ScanPatcher& patcher) {
    std::erase_if(wanted, [](const auto& item) { return item.second.missing == 0; });
    if (wanted.empty()) return;
    if (comparedAll && patcher.folderCount() > kFewFolders) {
      const double earliest = patcher.writtenAt() - kClocksDiffer;
      std::erase_if(wanted, [&](const auto& item) {
        return static_cast<double>(item.second.present.mtime) < earliest;
      });
    }
    patcher.releaseLock();
    if (wanted.empty()) return;
    const std::unique_ptr<DirectoryReader> reader = platform.directories.makeReader();
    std::vector<std::string> waiting{std::string(index.root.prefix())};
    while (!waiting.empty()) {
      const std::string path = std::move(waiting.back());
      waiting.pop_back();
      list(path, *reader, waiting);
    }
  }

  [[nodiscard]] std::vector<FoundName> take() { return std::move(found); }

 private:
  void list(const std::string& path, DirectoryReader& reader, std::vector<std::string>& waiting) {
    const OpenedDirectory opened = reader.open(path);
    // Unreadable folders contain no counted file, and those that are gone none at all.
    if (!opened.directory || opened.directory->facts().device != index.rootDev) return;
    reader.start(opened.directory, Detail::identity);
    while (true) {
      const DirectoryBatch batch = reader.next();
      for (const DirEntry& entry : batch.entries) {
        if (entry.type == EntryType::directory) {
          std::string child = joinPath(path, entry.name);
          if (!index.skipPaths.contains(child)) waiting.push_back(std::move(child));
        } else if (wanted.contains(entry.fileID)) {
          add(entry.fileID, path.empty() ? index.root.path() : path, std::string(entry.name));
        }
      }
      if (batch.status != ReadStatus::more) return;
    }
  }

  void add(std::uint64_t fileID, const std::string& folder, const std::string& name) {
    WantedNames& file = wanted.at(fileID);
    if (!file.known.emplace(folder, name).second) return;
    if (file.missing > 0) --file.missing;
    found.push_back({fileID, folder, name});
  }

  std::map<std::uint64_t, WantedNames> wanted;
  const Platform& platform;
  const IndexedRoot& index;
  bool comparedAll = true;  ///< with every file of the index that has the size and time of a wanted one
  std::vector<FoundName> found;
};

}  // namespace

std::vector<FoundName> findNames(std::map<std::uint64_t, WantedNames> wanted, const Platform& platform,
                                 ScanPatcher& patcher, const IndexedRoot& index) {
  NameSearch search(std::move(wanted), platform, index);
  search.amongSizes(patcher);
  search.amongAllNames(patcher);
  return search.take();
}

}  // namespace quon::Refresh
