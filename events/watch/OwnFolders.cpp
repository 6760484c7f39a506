#include "watch/OwnFolders.h"

#include <algorithm>
#include <filesystem>

#include "base/Path.h"
#include "platform/Folders.h"

namespace quon {
namespace {

/// As the paths of events are: without links, as far as it exists.
std::string resolved(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
  return withoutTrailingSlashes(error ? path : real.string());
}

}  // namespace

OwnFolders::OwnFolders(const Folders& folders)
    : paths{resolved(folders.data), resolved(folders.state), resolved(folders.config)} {}

bool OwnFolders::contain(std::string_view path) const {
  return std::ranges::any_of(paths, [&](const std::string& own) { return isInside(path, own); });
}

bool OwnFolders::containEntry(std::string_view parent, std::string_view name) const {
  return mayBeNamed(name) && contain(joinPath(pathPrefix(parent), name));
}

bool OwnFolders::mayBeNamed(std::string_view name) const {
  return std::ranges::any_of(paths, [&](const std::string& own) { return lastComponent(own) == name; });
}

}  // namespace quon
