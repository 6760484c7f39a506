#include "DirPathResolver.h"

#include <utility>
#include <vector>

#include "EntryName.h"
#include "base/Path.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::size_t kLongestRemembered = 4096;

}  // namespace

DirPathResolver::DirPathResolver(Database& database, RootPath rootPath)
    : lookUp(database.prepare("SELECT parent, name FROM dirs WHERE id = ?")), root(std::move(rootPath)) {}

bool DirPathResolver::resolve(std::int64_t id) {
  if (foundId == id) return true;  // files of one folder mostly follow one another
  // Up to the first folder whose path is known, then down again.
  std::vector<std::pair<std::int64_t, std::string>> below;
  std::optional<std::string> at;
  for (std::int64_t up = id; !at;) {
    if (const auto hit = known.find(up); hit != known.end()) {
      at = hit->second;
      break;
    }
    lookUp.reset();
    lookUp.bind(1, up);
    if (!lookUp.step()) {
      if (up == id) return false;
      throw StoreError::incompatible("the index contains a folder whose parent is missing");
    }
    if (lookUp.isNull(0)) {
      at = root.prefix();
      known.emplace(up, *at);
    } else {
      const std::int64_t parent = lookUp.integer(0);
      // Parents are written before their children: ids that do not descend towards the root form a circle.
      if (parent >= up) throw StoreError::incompatible("the index contains a folder that lies in itself");
      if (!isEntryName(lookUp.text(1))) {
        throw StoreError::incompatible("the index contains a name that no folder can have");
      }
      below.emplace_back(up, std::string(lookUp.text(1)));
      up = parent;
    }
  }
  lookUp.reset();
  foundId.reset();
  found = *std::move(at);
  for (auto next = below.rbegin(); next != below.rend(); ++next) {
    found = joinPath(found, next->second);
    // Not below: a chain of 100,000 nested folders would fill the memory with prefixes of its own path.
    if (found.size() <= kLongestRemembered) known.emplace(next->first, found);
  }
  foundId = id;
  return true;
}

std::optional<std::string> DirPathResolver::find(std::int64_t id) {
  if (!resolve(id)) return std::nullopt;
  return found.empty() ? root.path() : found;
}

std::string DirPathResolver::filePath(std::int64_t id, std::string_view name) {
  if (!isEntryName(name)) {
    throw StoreError::incompatible("the index contains a name that no file can have");
  }
  if (!resolve(id)) throw StoreError::incompatible("the index contains a file whose folder is missing");
  return joinPath(found, name);
}

void DirPathResolver::forget() {
  known.clear();
  foundId.reset();
}

}  // namespace quon
