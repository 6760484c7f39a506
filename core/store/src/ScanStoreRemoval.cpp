// Taking a trashed item out of an index, in one transaction.
#include <string>

#include "FolderIds.h"
#include "base/Path.h"
#include "base/Text.h"
#include "store/IndexDatabase.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

StoreError notHeld(const std::string& path) {
  return StoreError::missing("the index holds no " + displayText(path));
}

void removeFolder(Database& database, std::int64_t id) {
  for (const char* deletion : {"DELETE FROM links WHERE dir IN (SELECT id FROM sub)",
                               "DELETE FROM files WHERE dir IN (SELECT id FROM sub)",
                               "DELETE FROM dirs WHERE id IN (SELECT id FROM sub)"}) {
    Statement statement = database.prepare(std::string(kSubtreeSQL) + deletion);
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
