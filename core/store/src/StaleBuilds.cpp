#include "StaleBuilds.h"

#include <chrono>

#include "base/Path.h"

namespace quon {
namespace {

constexpr std::int64_t kStaleSeconds = 3600;

/// By what follows the last ".sqlite": the root's name stands before it, and may hold anything.
bool isBuild(std::string_view name) {
  constexpr std::string_view kEnding = ".sqlite";
  const std::size_t at = name.rfind(kEnding);
  return at != std::string_view::npos && name.substr(at + kEnding.size()).starts_with(".building");
}

}  // namespace

std::uint64_t removeStaleBuilds(const FileService& files, const std::string& folder,
                                std::string_view prefix) {
  const std::int64_t now =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
          .count();
  std::uint64_t freed = 0;
  for (const FolderItem& item : files.list(folder)) {
    if (!item.name.starts_with(prefix) || !isBuild(item.name) || now - item.mtime <= kStaleSeconds) continue;
    const std::string path = joinPath(folder, item.name);
    std::error_code vanished;
    const auto facts = files.ownFacts(path, vanished);
    if (files.remove(path) && facts) freed += facts->logical;
  }
  return freed;
}

}  // namespace quon
