#include "rows/Entry.h"

#include "base/Path.h"

namespace quon {

std::uint64_t Entry::size(Metric metric) const {
  return metric == Metric::logical ? logical : physical;
}

std::int64_t Entry::mtime() const {
  if (const auto* node = std::get_if<RefPtr<DirNode>>(&payload)) return (*node)->mtime;
  if (const auto* file = std::get_if<File>(&payload)) return file->file.mtime;
  return 0;
}

Entry Entry::ofFolder(const RefPtr<DirNode>& node, std::string folderPath) {
  return {node, node->name, node->totalLogical, node->totalPhysical, "d:" + std::move(folderPath)};
}

Entry Entry::ofFile(const FileEntry& file, const RefPtr<DirNode>& container, std::string_view containerPath) {
  return {File{file, container}, file.name, file.logical, file.physical,
          "f:" + joinPath(containerPath, file.name)};
}

}  // namespace quon
