#include "Snapshot.h"

#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#include "base/Path.h"
#include "platform/Events.h"

namespace quon::test {
namespace {

constexpr std::int64_t kNanos = 1'000'000'000;

std::string parentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

struct CloseListing {
  void operator()(DIR* listing) const { ::closedir(listing); }
};

std::int64_t bornAt(const std::string& path) {
  struct statx found {};
  ::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &found);
  return found.stx_btime.tv_sec * kNanos + found.stx_btime.tv_nsec;
}

}  // namespace

Snapshot::Snapshot(const std::string& top) : root(top) {
  std::vector<std::string> left{root};
  while (!left.empty()) {
    const std::string path = left.back();
    left.pop_back();
    struct stat found {};
    if (::lstat(path.c_str(), &found) != 0) continue;
    Folder& folder = folders[path];
    folder.inode = found.st_ino;
    folder.born = bornAt(path);
    const std::unique_ptr<DIR, CloseListing> listing(::opendir(path.c_str()));
    while (const dirent* entry =
               listing ? ::readdir(listing.get()) : nullptr) {  // NOLINT(concurrency-mt-unsafe)
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      const std::string full = joinPath(path, name);
      if (::lstat(full.c_str(), &found) != 0) continue;
      const bool isFolder = S_ISDIR(found.st_mode);
      Entry& kept = folder.entries[name];
      kept.type = isFolder ? 'd' : 'f';
      kept.inode = found.st_ino;
      if (isFolder) {
        left.push_back(full);
        continue;
      }
      kept.links = found.st_nlink;
      kept.bytes = static_cast<std::uint64_t>(found.st_size);
      kept.modified = found.st_mtim.tv_sec * kNanos + found.st_mtim.tv_nsec;
    }
  }
}

bool Snapshot::differ(const Folder& first, const Folder& second, HardLinks links) {
  if (first.entries.size() != second.entries.size()) return true;
  for (const auto& [name, a] : first.entries) {
    const auto found = second.entries.find(name);
    if (found == second.entries.end()) return true;
    const Entry& b = found->second;
    if (a.type != b.type || a.inode != b.inode) return true;
    const bool elsewhere = links == HardLinks::ofTheirFolder && (a.links > 1 || b.links > 1);
    if (!elsewhere && (a.bytes != b.bytes || a.modified != b.modified)) return true;
  }
  return false;
}

std::vector<std::string> Snapshot::missedSince(const Snapshot& before,
                                               const std::map<std::string, std::uint32_t>& reported,
                                               HardLinks links) const {
  const auto isDeep = [&](const std::string& path) {
    const auto found = reported.find(path);
    return found != reported.end() && (found->second & EventFlag::mustScanSubdirs) != 0;
  };
  const auto isCovered = [&](const std::string& path) {
    for (std::string at = path; at.size() >= root.size(); at = parentOf(at)) {
      if (isDeep(at)) return true;
    }
    return false;
  };
  std::vector<std::string> missed;
  for (const auto& [path, folder] : folders) {
    if (isCovered(path)) continue;
    const auto found = before.folders.find(path);
    if (found == before.folders.end()) {
      missed.push_back("new " + path);
    } else if (found->second.inode != folder.inode || found->second.born != folder.born) {
      missed.push_back("replaced " + path);
    } else if (!reported.contains(path) && differ(found->second, folder, links)) {
      missed.push_back("changed " + path);
    }
  }
  return missed;
}

}  // namespace quon::test
