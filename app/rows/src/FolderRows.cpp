#include "rows/FolderRows.h"

#include <algorithm>
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

/// Brings the `cap` largest to the front, in order; equal ones keep the tree's order.
void sortLargest(std::vector<Candidate>& all, std::size_t cap, Metric metric) {
  const auto isBefore = [metric](const Candidate& a, const Candidate& b) {
    return a.size(metric) != b.size(metric) ? a.size(metric) > b.size(metric) : a.order < b.order;
  };
  const auto end = all.begin() + static_cast<std::ptrdiff_t>(std::min(cap, all.size()));
  if (end != all.end()) std::ranges::nth_element(all, end, isBefore);
  std::sort(all.begin(), end, isBefore);
}

}  // namespace

std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::string_view rootPath, Metric metric,
                                std::size_t cap) {
  std::vector<Candidate> all;
  all.reserve(node->subdirs.size() + node->keptFiles.size());
  for (const RefPtr<DirNode>& child : node->subdirs) {
    all.push_back({child.get(), nullptr, child->totalLogical, child->totalPhysical, all.size()});
  }
  for (const FileEntry& file : node->keptFiles) {
    all.push_back({node.get(), &file, file.logical, file.physical, all.size()});
  }
  sortLargest(all, cap, metric);

  const std::string path = node->path(rootPath);
  std::vector<Entry> rows;
  rows.reserve(std::min(cap, all.size()) + 1);
  std::uint64_t logical = node->totalLogical;
  std::uint64_t physical = node->totalPhysical;
  for (const Candidate& each : all) {
    logical = saturatingSub(logical, each.logical);
    physical = saturatingSub(physical, each.physical);
  }
  for (const Candidate& each : all) {
    if (rows.size() == cap) {
      logical = checkedAdd(logical, each.logical);
      physical = checkedAdd(physical, each.physical);
    } else if (each.file == nullptr) {
      rows.push_back(Entry::ofFolder(RefPtr<DirNode>(each.folder), joinPath(path, each.folder->name)));
    } else {
      rows.push_back(Entry::ofFile(*each.file, node, path));
    }
  }
  if (logical != 0 || physical != 0) {
    rows.push_back({Entry::Rest(), Entry::kRestName, logical, physical, "r:" + path});
  }
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
  sortLargest(files, cap, metric);
  files.resize(std::min(cap, files.size()));
  largest.rows.reserve(files.size());
  for (const Candidate& each : files) {
    largest.rows.push_back(
        Entry::ofFile(*each.file, RefPtr<DirNode>(each.folder), each.folder->path(rootPath)));
  }
  return largest;
}

}  // namespace quon
