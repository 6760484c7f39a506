#include "store/IndexCatalog.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "BuildingFile.h"
#include "DiskIndexes.h"
#include "IndexMeta.h"
#include "base/Path.h"
#include "base/RootPath.h"
#include "platform/Files.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

/// Where desktops mount removable volumes, and how many components below name the volume: user and volume, or
/// the volume alone.
struct RemovableParent {
  std::string_view path;
  int components;
};
constexpr std::array<RemovableParent, 3> kRemovable{{{"/run/media", 2}, {"/media", 2}, {"/mnt", 1}}};

/// True when `root`, which does not exist, would lie on a removable volume that is not mounted now.
bool isUnplugged(const std::string& root, const std::vector<std::string>& mounted) {
  for (const RemovableParent& parent : kRemovable) {
    const auto below = relativeTo(root, parent.path);
    if (!below || below->empty()) continue;
    // No mount point at or above the root, up to where volumes are mounted: its volume is absent.
    return std::ranges::none_of(mounted, [&](const std::string& point) {
      const auto at = relativeTo(point, parent.path);
      return at && !at->empty() && isInside(root, point) && std::ranges::count(*at, '/') < parent.components;
    });
  }
  return false;
}

/// True when the file system that the root was scanned on is not mounted there now, or another is.
bool lostItsVolume(const Platform& platform, const MetaMap& meta, const std::vector<std::string>& mounted) {
  const auto point = meta.find("mountPoint");
  if (point == meta.end() || point->second == "/") return false;
  if (std::ranges::find(mounted, point->second) == mounted.end()) return true;
  const DiskIdentity stored = decodeDisk(meta);
  const DiskIdentity present = platform.files.disk(point->second);
  if (stored.isKnown() && present.isKnown()) return stored.volume != present.volume;
  std::error_code error;
  const auto volume = platform.files.facts(point->second, error);
  try {
    return !volume || volume->device != decodeCountOr(meta, "rootDev", volume->device);
  } catch (const std::invalid_argument&) {
    return true;  // a damaged figure: what is kept in vain costs some space
  }
}

IndexEntry::Status statusOf(const Platform& platform, const MetaMap& meta,
                            const std::vector<std::string>& mounted) {
  const std::string& root = meta.at("root");
  const DiskIdentity stored = decodeDisk(meta);
  const bool isGone = DiskIndexes::isGone(platform.files, stored);
  std::error_code error;
  const auto facts = platform.files.facts(root, error);
  if (facts && facts->isDirectory) {
    if (DiskIndexes::mayBeSame(stored, platform.files.disk(root))) return IndexEntry::Status::live;
    return isGone ? IndexEntry::Status::orphaned : IndexEntry::Status::offline;
  }
  if (!facts && error != std::errc::no_such_file_or_directory) return IndexEntry::Status::offline;
  if (isGone) return IndexEntry::Status::orphaned;
  return lostItsVolume(platform, meta, mounted) || isUnplugged(root, mounted) ? IndexEntry::Status::offline
                                                                              : IndexEntry::Status::orphaned;
}

/// The file as an entry; its root is "" and its status unusable when it is no sound index.
IndexEntry describe(const FileService& files, const std::string& url, const MetaMap& meta) {
  IndexEntry entry;
  entry.url = url;
  std::error_code ignored;
  if (const auto facts = files.facts(url, ignored)) entry.bytes = facts->logical;
  const auto value = [&](const char* key) {
    const auto found = meta.find(key);
    return found == meta.end() ? std::string() : found->second;
  };
  if (value("complete") != "1" || value("format") != std::to_string(ScanStore::formatVersion)) return entry;
  try {
    entry.scannedAt = decodeSeconds(meta, "scannedAt");
    entry.root = value("root");
  } catch (const std::invalid_argument&) {
    // A damaged figure.
  }
  return entry;
}

IndexEntry readEntry(const Platform& platform, const std::string& url,
                     const std::vector<std::string>& mounted) {
  const MetaMap meta = metaOrNone(url);
  IndexEntry entry = describe(platform.files, url, meta);
  if (!entry.root.empty()) entry.status = statusOf(platform, meta, mounted);
  return entry;
}

bool isLive(const IndexEntry& entry) {
  return entry.status == IndexEntry::Status::live;
}

}  // namespace

std::vector<IndexEntry> IndexCatalog::list(const Platform& platform, const std::string& indexDirectory) {
  const std::vector<std::string> mounted = platform.files.mountPoints();
  std::vector<IndexEntry> entries;
  for (const FolderItem& item : platform.files.list(indexDirectory)) {
    if (!item.name.ends_with(".sqlite")) continue;
    entries.push_back(readEntry(platform, joinPath(indexDirectory, item.name), mounted));
  }
  std::ranges::sort(entries, [](const IndexEntry& a, const IndexEntry& b) {
    return a.scannedAt != b.scannedAt ? a.scannedAt > b.scannedAt : a.url < b.url;
  });
  for (IndexEntry& entry : entries) {
    entry.covered = std::ranges::any_of(entries, [&](const IndexEntry& other) {
      return isLive(other) && other.root != entry.root && !entry.root.empty() &&
             isInside(entry.root, other.root);
    });
  }
  return entries;
}

IndexCatalog::Collected IndexCatalog::collectGarbage(const Platform& platform,
                                                     const std::string& indexDirectory) {
  Collected collected;
  for (const IndexEntry& listed : list(platform, indexDirectory)) {
    if (listed.status != IndexEntry::Status::orphaned) continue;
    // Reading all the others took a while, in which the root may have come back or been scanned again.
    const IndexEntry entry = readEntry(platform, listed.url, platform.files.mountPoints());
    if (entry.status != IndexEntry::Status::orphaned || !platform.files.remove(entry.url)) continue;
    ++collected.indexes;
    collected.bytes += entry.bytes;
    for (const char* const companion : {"-journal", "-wal", "-shm"}) {
      const std::string path = entry.url + companion;
      std::error_code absent;
      const auto facts = platform.files.ownFacts(path, absent);
      if (facts && platform.files.remove(path)) collected.bytes += facts->logical;
    }
  }
  collected.bytes += removeStaleBuilds(platform.files, indexDirectory, "");
  return collected;
}

std::string IndexCatalog::indexFor(const Platform& platform, const std::string& indexDirectory,
                                   const RootPath& root) {
  std::string usual = ScanStore::canonicalURL(indexDirectory, root);
  const DiskIdentity present = platform.files.disk(root.path());
  try {
    DiskIndexes::bringBack(platform, usual, present);
    return usual;
  } catch (const std::system_error&) {
    // In a folder that cannot be written, it is read where it is. Another program may have been faster.
    const std::string waiting = DiskIndexes::waitingURL(usual, present);
    std::error_code absent;
    return platform.files.facts(waiting, absent) ? waiting : usual;
  }
}

std::string IndexCatalog::mountPointOf(std::string_view path, const std::vector<std::string>& mountPoints) {
  std::string deepest = "/";
  for (const std::string& point : mountPoints) {
    if (isInside(path, point) && point.size() > deepest.size()) deepest = point;
  }
  return deepest;
}

std::optional<IndexEntry> IndexCatalog::nearest(const Platform& platform, const std::string& indexDirectory,
                                                std::string_view path) {
  for (std::string_view at = path; !at.empty(); at = at == "/" ? std::string_view() : parentPath(at)) {
    const RootPath root(at);
    const std::string usual = ScanStore::canonicalURL(indexDirectory, root);
    const DiskIdentity disk = platform.files.disk(root.path());
    std::error_code error;
    std::string url = usual;
    MetaMap meta = metaOrNone(url);
    if (!platform.files.facts(url, error) || !DiskIndexes::mayBeSame(decodeDisk(meta), disk)) {
      url = DiskIndexes::waitingURL(usual, disk);
      if (!disk.isKnown() || !platform.files.facts(url, error)) continue;
      meta = metaOrNone(url);
    }
    IndexEntry entry = describe(platform.files, url, meta);
    const bool isSound = entry.root == root.path();
    const auto facts = platform.files.facts(root.path(), error);
    if (!facts || !facts->isDirectory) continue;
    entry.status = isSound ? IndexEntry::Status::live : IndexEntry::Status::unusable;
    entry.root = root.path();
    return entry;
  }
  return std::nullopt;
}

}  // namespace quon
