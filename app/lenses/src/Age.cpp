#include "lenses/Age.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <utility>

#include "base/Path.h"

namespace quon {
namespace {

constexpr std::int64_t kDay = 86'400;
constexpr std::uint64_t kVisitsBetweenChecks = 1024;

bool isOlder(std::int64_t time, std::int64_t cutoff) {
  return time >= 1 && time < cutoff;
}

/// A walk over a stack of its own, in the order in which a recursive one would list: a folder's children with
/// all that is found in them, then its files.
class AgeWalk {
 public:
  AgeWalk(const RefPtr<DirNode>& scope, std::string_view rootPath, std::int64_t listedBefore)
      : cutoff(listedBefore), path(scope->path(rootPath)), visits{{scope.get()}} {}

  /// False when the walk was abandoned.
  bool run(const std::function<bool()>& cancelled) {
    std::uint64_t visited = 1;
    while (!visits.empty()) {
      if (step() && ++visited % kVisitsBetweenChecks == 0 && cancelled()) return false;
    }
    return true;
  }

  std::vector<Entry> entries;

 private:
  struct Visit {
    DirNode* folder;
    std::size_t nextChild = 0;
    std::size_t nextFile = 0;
  };

  /// True when another folder or file was visited.
  bool step() {
    auto& [folder, nextChild, nextFile] = visits.back();
    if (nextChild < folder->subdirs.size()) {
      visit(folder->subdirs[nextChild++]);
      return true;
    }
    if (nextFile < folder->keptFiles.size()) {
      const FileEntry& file = folder->keptFiles[nextFile++];
      if (isOlder(file.mtime, cutoff)) entries.push_back(Entry::ofFile(file, RefPtr<DirNode>(folder), path));
      return true;
    }
    const std::size_t left = folder->name.size() + 1;
    visits.pop_back();
    if (!visits.empty()) path.resize(path.size() - left);
    return false;
  }

  void visit(const RefPtr<DirNode>& child) {
    if (isOlder(child->newest, cutoff)) {
      entries.push_back(Entry::ofFolder(child, joinPath(path, child->name)));
      return;
    }
    path += '/';
    path += child->name;
    visits.push_back({child.get()});
  }

  const std::int64_t cutoff;
  std::string path;  // of the last visit's folder
  std::vector<Visit> visits;
};

/// Sorts places instead of rows, which are some twenty words each.
std::vector<Entry> largestFirst(std::vector<Entry> entries, Metric metric) {
  std::vector<std::pair<std::uint64_t, std::size_t>> order;
  order.reserve(entries.size());
  for (const Entry& entry : entries) order.emplace_back(entry.size(metric), order.size());
  std::ranges::sort(order, [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  std::vector<Entry> sorted;
  sorted.reserve(entries.size());
  for (const auto& [size, at] : order) sorted.push_back(std::move(entries[at]));
  return sorted;
}

}  // namespace

std::string humanAge(std::int64_t mtime, std::int64_t now) {
  std::int64_t age = 0;
  // A damaged file system may report any time; the difference may overflow.
  if (__builtin_sub_overflow(now, mtime, &age)) {
    age = mtime < 0 ? std::numeric_limits<std::int64_t>::max() : 0;
  }
  const std::int64_t days = std::max<std::int64_t>(age, 0) / kDay;
  if (days < 60) return fmt::format("{}d", days);
  if (days < 365) return fmt::format("{} mo", days / 30);
  return fmt::format("{:.1f} yr", static_cast<double>(days) / 365.0);
}

std::optional<std::vector<Entry>> ageScan(const RefPtr<DirNode>& scope, std::string_view rootPath,
                                          std::int64_t cutoff, Metric metric,
                                          const std::function<bool()>& cancelled) {
  AgeWalk walk(scope, rootPath, cutoff);
  if (!walk.run(cancelled)) return std::nullopt;
  return largestFirst(std::move(walk.entries), metric);
}

}  // namespace quon
