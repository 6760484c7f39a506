#include "model/ShownTree.h"

#include "rows/FolderRows.h"

namespace quon {

std::string ShownTree::pathOf(const DirNode& node) const {
  return node.parent == nullptr ? root.path() : node.path(root.prefix());
}

RefPtr<DirNode> ShownTree::folderAt(std::string_view path) const {
  const auto below = root.relative(path);
  return below ? quon::folderAt(rootNode(), *below) : RefPtr<DirNode>();
}

std::optional<Entry> ShownTree::entryAt(const std::string& path) const {
  if (const RefPtr<DirNode> folder = folderAt(path)) return Entry::ofFolder(folder, path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos || !root.contains(path)) return std::nullopt;
  const std::string above = slash == 0 ? "/" : path.substr(0, slash);
  const RefPtr<DirNode> container = folderAt(above);
  if (!container) return std::nullopt;
  for (const FileEntry& file : container->keptFiles) {
    if (file.name == std::string_view(path).substr(slash + 1)) {
      return Entry::ofFile(file, container, container->path(root.prefix()));
    }
  }
  return std::nullopt;
}

}  // namespace quon
