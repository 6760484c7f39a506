#include "trash/TrashRules.h"

#include <system_error>

#include "base/Path.h"
#include "platform/Files.h"

namespace quon {
namespace {

/// Where the path leads; the path itself where there is nothing.
std::string resolved(const Platform& platform, const std::string& path) {
  std::error_code error;
  return platform.files.canonical(path, error).value_or(path);
}

}  // namespace

TrashRules::TrashRules(const Platform& platform, const Folders& folders)
    : home(resolved(platform, folders.home)) {
  for (const std::string& folder : {folders.data, folders.config, folders.state}) {
    own.insert(resolved(platform, folder));
  }
}

std::string TrashRules::refusalOf(const std::string& path, const std::string& root) const {
  if (path == "/") return "it is the root of the file system";
  if (path == root) return "it is the folder that was scanned";
  if (!root.empty() && isInside(root, path)) return "it contains the folder that was scanned";
  if (path == home) return "it is the home folder";
  if (isInside(home, path)) return "it contains the home folder";
  for (const std::string& folder : own) {
    if (isInside(path, folder) || isInside(folder, path)) return "quon keeps its own files there";
  }
  return "";
}

}  // namespace quon
