#include "OwnFolders.h"

#include <algorithm>
#include <filesystem>

#include "base/Path.h"
#include "platform/Folders.h"

namespace quon {
namespace {

/// As event paths spell it: without links, as far as it exists.
std::string resolved(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
  return withoutTrailingSlashes(error ? path : real.string());
}

}  // namespace

OwnFolders::OwnFolders(const Folders& folders)
    : paths{resolved(folders.data), resolved(folders.state), resolved(folders.config)} {}

bool OwnFolders::hold(std::string_view path) const {
  return std::ranges::any_of(paths, [&](const std::string& own) { return isInside(path, own); });
}

bool OwnFolders::holdEntry(std::string_view parent, std::string_view name) const {
  return mayBeNamed(name) && hold(joinPath(pathPrefix(parent), name));
}

bool OwnFolders::mayBeNamed(std::string_view name) const {
  return std::ranges::any_of(paths, [&](const std::string& own) { return lastComponent(own) == name; });
}

}  // namespace quon
