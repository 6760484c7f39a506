// Taking a trashed item out of an index, in one transaction.
#include <string>

#include "base/Path.h"
#include "base/Text.h"
#include "store/IndexDatabase.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

/// A folder and all below it; UNION, not UNION ALL, so that a damaged index that goes in circles comes to an
/// end.
constexpr const char* kSubtree =
    "WITH RECURSIVE sub(id) AS (\n"
    "  SELECT ? UNION SELECT d.id FROM dirs d JOIN sub ON d.parent = sub.id\n"
    ") ";

StoreError notHeld(const std::string& path) {
  return StoreError::missing("the index holds no " + displayText(path));
}

std::int64_t rootId(Database& database, const std::string& path) {
  Statement root = database.prepare("SELECT id FROM dirs WHERE parent IS NULL");
  if (!root.step()) throw notHeld(path);
  return root.integer(0);
}

/// The row of the folder at `below`, a path relative to the root; "" is the root itself.
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

void removeFolder(Database& database, std::int64_t id) {
  for (const char* deletion : {"DELETE FROM links WHERE dir IN (SELECT id FROM sub)",
                               "DELETE FROM files WHERE dir IN (SELECT id FROM sub)",
                               "DELETE FROM dirs WHERE id IN (SELECT id FROM sub)"}) {
    Statement statement = database.prepare(std::string(kSubtree) + deletion);
    statement.bind(1, id);
    statement.run();
  }
}

void removeFile(Database& database, std::int64_t folder, std::string_view name, const std::string& path) {
  Statement file = database.prepare("DELETE FROM files WHERE dir = ? AND name = ?");
  file.bind(1, folder);
  file.bind(2, name);
  file.run();
  const bool counted = database.changes() > 0;
  Statement link = database.prepare("DELETE FROM links WHERE dir = ? AND name = ?");
  link.bind(1, folder);
  link.bind(2, name);
  link.run();
  if (!counted && database.changes() == 0) throw notHeld(path);
}

}  // namespace

void ScanStore::remove(const std::string& path, bool isDir, const std::string& url,
                       const std::string& rootPath) {
  const std::optional<std::string_view> below = relativeTo(path, rootPath);
  if (!below || below->empty()) throw notHeld(path);
  Database database = IndexDatabase::openWrite(url, " for writing");
  database.exec("BEGIN IMMEDIATE");
  if (isDir) {
    removeFolder(database, folderId(database, *below, path));
  } else {
    const std::size_t slash = below->rfind('/');
    const std::string_view folder = slash == std::string_view::npos ? "" : below->substr(0, slash);
    const std::string_view name = slash == std::string_view::npos ? *below : below->substr(slash + 1);
    removeFile(database, folderId(database, folder, path), name, path);
  }
  database.exec("COMMIT");
}

}  // namespace quon
