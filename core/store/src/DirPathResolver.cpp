#include "store/DirPathResolver.h"

#include <optional>
#include <utility>
#include <vector>

#include "EntryName.h"
#include "base/Path.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::size_t kLongestRemembered = 4096;

}  // namespace

DirPathResolver::DirPathResolver(Database& database, const std::string& root)
    : lookUp(database.prepare("SELECT parent, name FROM dirs WHERE id = ?")), rootPath(pathPrefix(root)) {}

const std::string& DirPathResolver::path(std::int64_t id) {
  if (foundId == id) return found;  // files of one folder mostly follow one another
  // Up to the first folder whose path is known, then down again.
  std::vector<std::pair<std::int64_t, std::string>> below;
  std::optional<std::string> at;
  for (std::int64_t up = id; !at;) {
    if (const auto hit = known.find(up); hit != known.end()) {
      at = hit->second;
      break;
    }
    lookUp.bind(1, up);
    if (!lookUp.step()) throw StoreError::incompatible("the index names a folder that it does not hold");
    if (lookUp.isNull(0)) {
      at = rootPath;
      known.emplace(up, rootPath);
    } else {
      const std::int64_t parent = lookUp.integer(0);
      // Parents are written before their children, so a way up that does not descend is a circle.
      if (parent >= up) throw StoreError::incompatible("the index holds a folder that is its own ancestor");
      if (!isEntryName(lookUp.text(1))) {
        throw StoreError::incompatible("the index holds a name that no folder can have");
      }
      below.emplace_back(up, std::string(lookUp.text(1)));
      up = parent;
    }
    lookUp.reset();
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
  return found;
}

}  // namespace quon
