#include "snapshot/SnapshotBuilder.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

#include "base/Path.h"
#include "base/Text.h"

namespace quon {
namespace {

constexpr std::size_t kMostFolders = 10;
constexpr std::size_t kMostKinds = 6;
constexpr std::size_t kMostAreas = 6;
constexpr std::size_t kMostFoldersOfArea = 5;

std::uint64_t sizeOf(const DirNode& folder, Metric metric) {
  return metric == Metric::logical ? folder.totalLogical : folder.totalPhysical;
}

std::vector<RefPtr<DirNode>> largestFolders(const DirNode& parent, Metric metric, std::size_t most) {
  std::vector<RefPtr<DirNode>> folders = parent.subdirs;
  std::ranges::stable_sort(folders, [metric](const RefPtr<DirNode>& a, const RefPtr<DirNode>& b) {
    return sizeOf(*a, metric) > sizeOf(*b, metric);
  });
  folders.resize(std::min(folders.size(), most));
  return folders;
}

std::vector<QuonSnapshot::Item> itemsOf(const std::vector<RefPtr<DirNode>>& folders, Metric metric) {
  std::vector<QuonSnapshot::Item> items;
  items.reserve(folders.size());
  for (const RefPtr<DirNode>& folder : folders) {
    items.push_back({displayText(folder->name), signedBytes(sizeOf(*folder, metric))});
  }
  return items;
}

std::optional<std::vector<QuonSnapshot::Item>> kindsOf(const RefPtr<DirNode>& folder, std::string_view rootPath,
                                                       Metric metric, const KindOverrides& overrides,
                                                       FunctionRef<bool()> cancelled) {
  const auto kinds = Kinds::aggregate(folder, rootPath, metric, overrides, cancelled);
  if (!kinds) return std::nullopt;
  std::vector<QuonSnapshot::Item> items;
  for (const Kinds::Row& row : kinds->rows) {
    if (items.size() == kMostKinds) break;
    items.push_back({std::string(row.kind.label),
                     signedBytes(metric == Metric::logical ? row.logical : row.physical)});
  }
  return items;
}

}  // namespace

std::int64_t signedBytes(std::uint64_t bytes) {
  constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return static_cast<std::int64_t>(std::min(bytes, kMost));
}

std::string volumeNameOrGeneric(const std::string& name) {
  return name.empty() ? "Disk" : displayText(name);
}

std::optional<QuonSnapshot> snapshotOf(const RefPtr<DirNode>& root, std::string_view rootPath, Metric metric,
                                       const KindOverrides& overrides, FunctionRef<bool()> cancelled) {
  QuonSnapshot snapshot;
  const std::vector<RefPtr<DirNode>> folders = largestFolders(*root, metric, kMostFolders);
  snapshot.topFolders = itemsOf(folders, metric);
  auto kinds = kindsOf(root, rootPath, metric, overrides, cancelled);
  if (!kinds) return std::nullopt;
  snapshot.topKinds = *std::move(kinds);
  for (std::size_t at = 0; at < std::min(folders.size(), kMostAreas); ++at) {
    const RefPtr<DirNode>& folder = folders[at];
    auto kindsOfArea = kindsOf(folder, rootPath, metric, overrides, cancelled);
    if (!kindsOfArea) return std::nullopt;
    snapshot.areas.push_back({displayText(folder->name), signedBytes(sizeOf(*folder, metric)),
                              itemsOf(largestFolders(*folder, metric, kMostFoldersOfArea), metric),
                              *std::move(kindsOfArea)});
  }
  snapshot.rootName = displayText(rootPath.empty() ? "/" : lastComponent(rootPath));
  return snapshot;
}

void complete(QuonSnapshot& snapshot, const std::optional<VolumeCapacity>& volume, std::int64_t now) {
  snapshot.generatedAt = static_cast<double>(now - QuonSnapshot::kEpoch);
  snapshot.volumeName = volumeNameOrGeneric(volume ? volume->name : "");
  if (!volume) return;
  snapshot.usedFraction = volume->usedFraction();
  snapshot.used = signedBytes(volume->used());
  snapshot.free = signedBytes(volume->free());
  snapshot.total = signedBytes(volume->total);
}

}  // namespace quon
