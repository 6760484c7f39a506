#include "Subtree.h"

#include <optional>
#include <string>

#include "IndexDatabase.h"
#include "store/StoreError.h"

namespace quon {
namespace {

/// A row takes more bytes than that. Pages of a damaged file can refer to one another, and make any number.
constexpr std::uint64_t kLeastBytesOfRow = 4;

}  // namespace

IndexTotals::File fileOf(const Statement& row) {
  const std::uint64_t logical = row.size(2);
  const std::uint64_t physical = row.size(3);
  return {row.integer(0), logical, physical, fileDigest(row.text(1), logical, physical, row.integer(4))};
}

IndexTotals::Folder folderOf(const Statement& row) {
  return {row.integer(0), row.isNull(1) ? 0 : row.integer(1), row.text(2), row.integer(3),
          row.integer(4) != 0};
}

IndexTotals readTotals(Database& database) {
  Statement stored = database.prepare("SELECT value FROM meta WHERE key = 'totals'");
  if (stored.step()) {
    // A text that cannot be one fails the next load, as do totals that do not fit the rows.
    return IndexTotals::decode(stored.text(0)).value_or(IndexTotals());
  }
  IndexTotals totals;
  std::uint64_t rowsLeft = IndexDatabase::bytesOf(database) / kLeastBytesOfRow;
  const auto next = [&](Statement& rows) {
    if (!rows.step()) return false;
    if (rowsLeft-- == 0) throw StoreError::incompatible("the index contains more rows than its file can");
    return true;
  };
  Statement folders = database.prepare("SELECT id, parent, name, mtime, error FROM dirs");
  while (next(folders)) totals.add(folderOf(folders));
  Statement files = database.prepare("SELECT dir, name, logical, physical, mtime FROM files");
  while (next(files)) totals.add(fileOf(files));
  return totals;
}

SubtreeDeletion::SubtreeDeletion(Database& database)
    : links(database.prepare(std::string(kSubtreeSQL) + "DELETE FROM links WHERE dir IN (SELECT id FROM sub)")),
      files(database.prepare(std::string(kSubtreeSQL) +
                             "DELETE FROM files WHERE dir IN (SELECT id FROM sub)\n"
                             "RETURNING dir, name, logical, physical, mtime")),
      folders(database.prepare(std::string(kSubtreeSQL) +
                               "DELETE FROM dirs WHERE id IN (SELECT id FROM sub)\n"
                               "RETURNING id, parent, name, mtime, error")) {}

void SubtreeDeletion::run(std::int64_t folder, IndexTotals& totals) {
  links.bind(1, folder);
  links.run();
  files.bind(1, folder);
  while (files.step()) totals.subtract(fileOf(files));
  files.reset();
  folders.bind(1, folder);
  while (folders.step()) totals.subtract(folderOf(folders));
  folders.reset();
}

}  // namespace quon
