#include "BuildingFile.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "IndexDatabase.h"
#include "base/Clock.h"
#include "base/Path.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr double kStaleSeconds = 3600;

/// By what follows the last ".sqlite": the root's name stands before it, and may contain anything.
bool isBuild(std::string_view name) {
  constexpr std::string_view kEnding = ".sqlite";
  const std::size_t at = name.rfind(kEnding);
  return at != std::string_view::npos && name.substr(at + kEnding.size()).starts_with(".building");
}

}  // namespace

/// What is left would otherwise be taken for a part of whatever gets its name next.
void settle(const FileService& files, const std::string& url) {
  const std::array<std::string, 2> leftovers{url + "-journal", url + "-wal"};
  const auto isThere = [&](const std::string& path) {
    std::error_code absent;
    return files.facts(path, absent).has_value();
  };
  if (std::ranges::none_of(leftovers, isThere)) return;
  try {
    Database earlier = IndexDatabase::openWrite(url, " for patching");
    earlier.exec("BEGIN IMMEDIATE");
    earlier.exec("ROLLBACK");
  } catch (const StoreError&) {
    // Not an index any more; it is about to be replaced.
  }
  for (const std::string& leftover : leftovers) files.remove(leftover);
  files.remove(url + "-shm");
}

BuildingFile::BuildingFile(const FileService& service, std::string final)
    : finalURL(std::move(final)), url(finalURL + ".building-" + freshUuid()), files(service) {
  try {
    const std::string folder(parentPath(finalURL));
    files.makePrivateFolder(folder);
    removeStaleBuilds(files, folder, lastComponent(finalURL));
    files.createPrivateFile(url);
    exists = true;
  } catch (const std::system_error& reason) {
    throw StoreError::sqlite("cannot open " + displayText(url) + ": " + reason.what());
  }
}

BuildingFile::~BuildingFile() {
  remove();
}

void BuildingFile::moveIntoPlace() {
  settle(files, finalURL);
  files.replace(url, finalURL);
  exists = false;
}

void BuildingFile::remove() {
  if (!std::exchange(exists, false)) return;
  try {
    files.remove(url);
  } catch (const std::system_error&) {
    // The folder has gone or become read-only; the next scan's sweep finds what is left.
  }
}

std::uint64_t removeStaleBuilds(const FileService& files, const std::string& folder,
                                std::string_view prefix) {
  const double now = secondsSince1970();
  std::uint64_t freed = 0;
  for (const FolderItem& item : files.list(folder)) {
    if (!item.name.starts_with(prefix) || !isBuild(item.name)) continue;
    if (now - static_cast<double>(item.mtime) <= kStaleSeconds) continue;
    const std::string path = joinPath(folder, item.name);
    std::error_code vanished;
    const auto facts = files.ownFacts(path, vanished);
    if (files.remove(path) && facts) freed += facts->logical;
  }
  return freed;
}

}  // namespace quon
