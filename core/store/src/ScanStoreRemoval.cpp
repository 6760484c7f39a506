// Removing a trashed item from an index, in one transaction.
#include <optional>
#include <string>

#include "FolderIds.h"
#include "IndexDatabase.h"
#include "IndexMeta.h"
#include "Subtree.h"
#include "base/Path.h"
#include "base/Text.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

/// False when the folder has no file of that name.
bool deleteFile(Database& database, std::int64_t folder, std::string_view name, IndexTotals& totals) {
  Statement files = database.prepare(
      "DELETE FROM files WHERE dir = ? AND name = ? RETURNING dir, name, logical, physical, mtime");
  files.bind(1, folder);
  files.bind(2, name);
  bool deleted = false;
  while (files.step()) {
    totals.subtract(fileOf(files));
    deleted = true;
  }
  Statement links = database.prepare("DELETE FROM links WHERE dir = ? AND name = ?");
  links.bind(1, folder);
  links.bind(2, name);
  links.run();
  return deleted || database.changes() > 0;
}

/// False when the index does not contain it. `below` is its path below the root.
bool deleteItem(Database& database, std::string_view below, bool isDir, IndexTotals& totals) {
  FolderIds folders(database);
  const std::optional<std::int64_t> root = folders.root();
  if (!root) return false;
  const std::optional<std::int64_t> folder = folders.below(*root, isDir ? below : parentPath(below));
  if (!folder) return false;
  if (!isDir) return deleteFile(database, *folder, lastComponent(below), totals);
  SubtreeDeletion(database).run(*folder, totals);
  return true;
}

}  // namespace

void ScanStore::remove(const std::string& path, bool isDir, const std::string& url, const RootPath& root) {
  const auto missing = [&] { return StoreError::missing("the index does not contain " + displayText(path)); };
  const std::optional<std::string_view> below = root.relative(path);
  if (!below || below->empty()) throw missing();
  Database database = IndexDatabase::openWrite(url, " for writing");
  Transaction transaction(database);
  IndexTotals totals = readTotals(database);
  if (!deleteItem(database, *below, isDir, totals)) throw missing();
  writeMeta(database, "totals", totals.encode());
  raiseRevision(database);
  transaction.commit();
}

}  // namespace quon
