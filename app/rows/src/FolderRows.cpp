#include "rows/FolderRows.h"

#include <algorithm>
#include <span>
#include <utility>

#include "base/Checked.h"
#include "base/Path.h"
#include "rows/Cancellation.h"

namespace quon {
namespace {

/// What may become a row. A folder may have 100,000 children, of which a few hundred are shown, so only those
/// get names and paths of their own.
struct Candidate {
  DirNode* folder;        // that is the row, or contains the file
  const FileEntry* file;  // none for a folder
  std::uint64_t logical;
  std::uint64_t physical;
  std::size_t order;  // in the tree

  [[nodiscard]] std::uint64_t size(Metric metric) const {
    return metric == Metric::logical ? logical : physical;
  }
};

/// Brings the `cap` largest to the front, and those of them that have the least size into order before the
/// others; returns how many these are. Equal ones keep the tree's order.
std::size_t sortLargest(std::vector<Candidate>& all, std::size_t cap, Metric metric,
                        std::uint64_t least = 0) {
  const auto isBefore = [metric](const Candidate& a, const Candidate& b) {
    return a.size(metric) != b.size(metric) ? a.size(metric) > b.size(metric) : a.order < b.order;
  };
  auto end = all.begin() + static_cast<std::ptrdiff_t>(std::min(cap, all.size()));
  if (end != all.end()) std::ranges::nth_element(all, end, isBefore);
  if (least > 0) {
    end = std::partition(all.begin(), end, [&](const Candidate& each) { return each.size(metric) >= least; });
  }
  std::sort(all.begin(), end, isBefore);
  return static_cast<std::size_t>(end - all.begin());
}

/// What of a folder's totals is not in the first `listed` candidates.
Entry restOf(const DirNode& node, std::span<const Candidate> all, std::size_t listed, std::string_view path) {
  Entry rest{Entry::Rest(), Entry::kRestName, node.totalLogical, node.totalPhysical, "r:"};
  for (const Candidate& each : all) {
    rest.logical = saturatingSub(rest.logical, each.logical);
    rest.physical = saturatingSub(rest.physical, each.physical);
  }
  for (const Candidate& each : all.subspan(listed)) {
    rest.logical = checkedAdd(rest.logical, each.logical);
    rest.physical = checkedAdd(rest.physical, each.physical);
  }
  rest.id += path;
  return rest;
}

}  // namespace

std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::string_view rootPath, Metric metric,
                                std::size_t cap, std::uint64_t least) {
  std::vector<Candidate> all;
  all.reserve(node->subdirs.size() + node->keptFiles.size());
  for (const RefPtr<DirNode>& child : node->subdirs) {
    all.push_back({child.get(), nullptr, child->totalLogical, child->totalPhysical, all.size()});
  }
  for (const FileEntry& file : node->keptFiles) {
    all.push_back({node.get(), &file, file.logical, file.physical, all.size()});
  }
  const std::size_t shown = sortLargest(all, cap, metric, least);

  const std::string path = node->path(rootPath);
  std::vector<Entry> rows;
  rows.reserve(shown + 1);
  for (const Candidate& each : std::span(all).first(shown)) {
    rows.push_back(each.file == nullptr
                       ? Entry::ofFolder(RefPtr<DirNode>(each.folder), joinPath(path, each.folder->name))
                       : Entry::ofFile(*each.file, node, path));
  }
  Entry rest = restOf(*node, all, std::min(cap, all.size()), path);
  if (rest.logical != 0 || rest.physical != 0) rows.push_back(std::move(rest));
  return rows;
}

std::optional<LargestFiles> largestFiles(const RefPtr<DirNode>& node, std::string_view rootPath,
                                         Metric metric, std::size_t cap, FunctionRef<bool()> cancelled) {
  Cancellation cancellation(cancelled);
  std::vector<Candidate> files;
  std::vector<DirNode*> folders{node.get()};
  while (!folders.empty()) {
    DirNode* const folder = folders.back();
    folders.pop_back();
    if (cancellation.afterRows(1 + folder->keptFiles.size())) return std::nullopt;
    for (const FileEntry& file : folder->keptFiles) {
      files.push_back({folder, &file, file.logical, file.physical, files.size()});
    }
    for (const RefPtr<DirNode>& child : folder->subdirs) folders.push_back(child.get());
  }
  LargestFiles largest{.rows = {}, .found = files.size()};
  (void)sortLargest(files, cap, metric);
  files.resize(std::min(cap, files.size()));
  largest.rows.reserve(files.size());
  for (const Candidate& each : files) {
    largest.rows.push_back(
        Entry::ofFile(*each.file, RefPtr<DirNode>(each.folder), each.folder->path(rootPath)));
  }
  return largest;
}

}  // namespace quon
