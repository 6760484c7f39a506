#include "FilePaths.h"

#include <string_view>
#include <system_error>

#include "base/Path.h"
#include "platform/Files.h"

namespace quon {

std::string withoutLinksAbove(const FileService& files, const std::string& path) {
  const std::string_view name = lastComponent(path);
  if (!path.starts_with('/') || path == "/") return path;
  std::error_code error;
  if (name == "." || name == "..") return files.canonical(path, error).value_or(path);
  const auto above = files.canonical(path.substr(0, path.size() - name.size()), error);
  return above ? joinPath(pathPrefix(*above), name) : path;
}

}  // namespace quon
