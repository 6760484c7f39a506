// The first name of a file that got a second one is in the index, with the size and time that the file had
// then. If it has not been written since, it has them still, and so is found there; a few candidates are
// compared by inode number.
//
// A file that was written since, perhaps through its new name, may have another size by now. If it still lacks
// names then, which may also lie outside the tree, the names, and nothing else, of the whole tree are read.
#include "NameSearch.h"

#include <memory>
#include <set>
#include <utility>

#include "base/Path.h"
#include "platform/Directories.h"
#include "store/ScanPatcher.h"

namespace quon::Refresh {
namespace {

/// Seconds. File systems of other machines have clocks of their own.
constexpr double kClocksDiffer = 600;

class NameSearch {
 public:
  NameSearch(std::map<std::uint64_t, WantedNames> files, const Platform& services, const IndexedRoot& about)
      : wanted(std::move(files)), platform(services), index(about) {}

  void amongSizes(ScanPatcher& patcher) {
    std::set<ScanPatcher::SizeAndTime> sizes;
    for (const auto& [fileID, file] : wanted) sizes.emplace(file.present.logical, file.present.mtime);
    for (const StoredFile& stored : patcher.filesLike(sizes)) {
      std::error_code gone;
      const auto facts = platform.files.ownFacts(joinPath(pathPrefix(stored.folder), stored.name), gone);
      if (facts && wanted.contains(facts->fileID)) add(facts->fileID, stored.folder, stored.name);
    }
  }

  /// `writtenAt` is the time of the index.
  void amongAllNames(double writtenAt) {
    std::erase_if(wanted, [&](const auto& item) {
      const WantedNames& file = item.second;
      return file.missing == 0 || static_cast<double>(file.present.mtime) < writtenAt - kClocksDiffer;
    });
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
    if (!names.emplace(folder, name).second) return;
    WantedNames& file = wanted.at(fileID);
    if (file.missing > 0) --file.missing;
    found.push_back({fileID, folder, name});
  }

  std::map<std::uint64_t, WantedNames> wanted;
  const Platform& platform;
  const IndexedRoot& index;
  std::set<std::pair<std::string, std::string>> names;
  std::vector<FoundName> found;
};

}  // namespace

std::vector<FoundName> findNames(std::map<std::uint64_t, WantedNames> wanted, const Platform& platform,
                                 ScanPatcher& patcher, const IndexedRoot& index) {
  NameSearch search(std::move(wanted), platform, index);
  search.amongSizes(patcher);
  search.amongAllNames(patcher.writtenAt());
  return search.take();
}

}  // namespace quon::Refresh
