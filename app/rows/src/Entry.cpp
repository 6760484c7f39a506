#include "rows/Entry.h"

#include <utility>

namespace quon {
namespace {

/// Searches make rows by the ten thousand, so an id is one allocation, with room for what follows the path.
std::string idOf(std::string_view prefix, std::string_view path, std::size_t room = 0) {
  std::string id;
  id.reserve(prefix.size() + path.size() + room);
  id.append(prefix).append(path);
  return id;
}

}  // namespace

std::uint64_t Entry::size(Metric metric) const {
  return metric == Metric::logical ? logical : physical;
}

std::int64_t Entry::mtime() const {
  if (const auto* node = std::get_if<RefPtr<DirNode>>(&payload)) return (*node)->mtime;
  if (const auto* file = std::get_if<File>(&payload)) return file->file.mtime;
  return 0;
}

Entry Entry::ofFolder(const RefPtr<DirNode>& node, std::string_view folderPath) {
  return {node, node->name, node->totalLogical, node->totalPhysical, idOf("d:", folderPath)};
}

Entry Entry::ofFile(const FileEntry& file, const RefPtr<DirNode>& container, std::string_view containerPath) {
  std::string id = idOf("f:", containerPath, 1 + file.name.size());
  id.append(1, '/').append(file.name);
  return {File{file, container}, file.name, file.logical, file.physical, std::move(id)};
}

}  // namespace quon
