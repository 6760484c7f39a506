#include "Snapshot.h"

#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <sys/stat.h>

#include "platform/Events.h"

namespace quon::test {
namespace {

std::string parentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

std::int64_t nanos(const statx_timestamp& time) {
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

std::optional<struct statx> read(const std::string& path) {
  struct statx found {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &found) != 0)
    return std::nullopt;
  return found;
}

}  // namespace

Snapshot::Snapshot(const std::string& top) : root(top) {
  std::vector<std::string> left{root};
  while (!left.empty()) {
    const std::string path = left.back();
    left.pop_back();
    const auto itself = read(path);
    if (!itself) continue;
    Folder& folder = folders[path];
    folder.inode = itself->stx_ino;
    folder.born = nanos(itself->stx_btime);
    std::error_code unreadable;
    for (const auto& item : std::filesystem::directory_iterator(path, unreadable)) {
      const auto found = read(item.path());
      if (!found) continue;
      const bool isFolder = S_ISDIR(found->stx_mode);
      if (isFolder) left.push_back(item.path());
      // What changes in a folder is that folder's.
      folder.entries[item.path().filename()] = isFolder ? Entry{.isFolder = true, .inode = found->stx_ino}
                                                        : Entry{.inode = found->stx_ino,
                                                                .links = found->stx_nlink,
                                                                .bytes = found->stx_size,
                                                                .modified = nanos(found->stx_mtime)};
    }
  }
}

bool Snapshot::differ(const Folder& first, const Folder& second) {
  if (first.entries.size() != second.entries.size()) return true;
  for (const auto& [name, a] : first.entries) {
    const auto found = second.entries.find(name);
    if (found == second.entries.end()) return true;
    const Entry& b = found->second;
    if (a.isFolder != b.isFolder || a.inode != b.inode) return true;
    const bool elsewhere = a.links > 1 || b.links > 1;
    if (!elsewhere && (a.bytes != b.bytes || a.modified != b.modified)) return true;
  }
  return false;
}

std::vector<std::string> Snapshot::missedSince(const Snapshot& before,
                                               const std::map<std::string, std::uint32_t>& reported) const {
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
    } else if (!reported.contains(path) && differ(found->second, folder)) {
      missed.push_back("changed " + path);
    }
  }
  return missed;
}

}  // namespace quon::test
