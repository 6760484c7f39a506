#include "FolderIds.h"

#include "base/Text.h"
#include "store/StoreError.h"

namespace quon {
namespace {

StoreError notHeld(const std::string& path) {
  return StoreError::missing("the index holds no " + displayText(path));
}

std::int64_t rootId(Database& database, const std::string& path) {
  Statement root = database.prepare("SELECT id FROM dirs WHERE parent IS NULL");
  if (!root.step()) throw notHeld(path);
  return root.integer(0);
}

}  // namespace

std::int64_t folderId(Database& database, std::string_view below, const std::string& path) {
  std::int64_t id = rootId(database, path);
  Statement child = database.prepare("SELECT id FROM dirs WHERE parent = ? AND name = ?");
  while (!below.empty()) {
    const std::size_t slash = below.find('/');
    child.bind(1, id);
    child.bind(2, below.substr(0, slash));
    if (!child.step()) throw notHeld(path);
    id = child.integer(0);
    child.reset();
    below = slash == std::string_view::npos ? std::string_view() : below.substr(slash + 1);
  }
  return id;
}

}  // namespace quon
