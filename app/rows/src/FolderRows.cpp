#include "rows/FolderRows.h"

#include <algorithm>
#include <utility>

#include "base/Checked.h"
#include "base/Path.h"

namespace quon {
namespace {

struct KeptFile {
  const FileEntry* file;
  DirNode* container;
};

std::uint64_t sizeOf(const FileEntry& file, Metric metric) {
  return metric == Metric::logical ? file.logical : file.physical;
}

}  // namespace

std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::string_view rootPath, Metric metric,
                                std::size_t cap) {
  const std::string path = node->path(rootPath);
  std::vector<Entry> rows;
  rows.reserve(node->subdirs.size() + node->keptFiles.size() + 1);
  for (const RefPtr<DirNode>& child : node->subdirs) {
    rows.push_back(Entry::ofFolder(child, joinPath(path, child->name)));
  }
  for (const FileEntry& file : node->keptFiles) rows.push_back(Entry::ofFile(file, node, path));
  std::ranges::stable_sort(rows,
                           [&](const Entry& a, const Entry& b) { return a.size(metric) > b.size(metric); });

  std::uint64_t logical = node->totalLogical;
  std::uint64_t physical = node->totalPhysical;
  for (const Entry& row : rows) {
    logical = saturatingSub(logical, row.logical);
    physical = saturatingSub(physical, row.physical);
  }
  while (rows.size() > cap) {
    logical = checkedAdd(logical, rows.back().logical);
    physical = checkedAdd(physical, rows.back().physical);
    rows.pop_back();
  }
  if (logical != 0 || physical != 0) {
    rows.push_back({Entry::Rest(), Entry::kRestName, logical, physical, "r:" + path});
  }
  return rows;
}

std::vector<Entry> largestFiles(const RefPtr<DirNode>& node, std::string_view rootPath, Metric metric,
                                std::size_t cap) {
  std::vector<KeptFile> files;
  std::vector<DirNode*> folders{node.get()};
  while (!folders.empty()) {
    DirNode* const folder = folders.back();
    folders.pop_back();
    for (const FileEntry& file : folder->keptFiles) files.push_back({&file, folder});
    for (const RefPtr<DirNode>& child : folder->subdirs) folders.push_back(child.get());
  }
  const auto middle = files.begin() + static_cast<std::ptrdiff_t>(std::min(cap, files.size()));
  std::ranges::partial_sort(files, middle, [&](const KeptFile& a, const KeptFile& b) {
    return sizeOf(*a.file, metric) > sizeOf(*b.file, metric);
  });
  std::vector<Entry> rows;
  for (auto at = files.begin(); at != middle; ++at) {
    rows.push_back(Entry::ofFile(*at->file, RefPtr<DirNode>(at->container), at->container->path(rootPath)));
  }
  return rows;
}

}  // namespace quon
