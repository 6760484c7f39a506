#include "FileRows.h"

#include <algorithm>

#include "IndexDatabase.h"
#include "scan/DirNode.h"
#include "store/StoreError.h"

namespace quon {
namespace {

/// Small enough to share the work evenly, large enough that beginning one costs nothing.
constexpr std::uint64_t kRowsOfStretch = 50000;

void addChecked(std::uint64_t& sum, std::uint64_t value) {
  if (__builtin_add_overflow(sum, value, &sum)) throw StoreError::sqlite("integer overflow");
}

/// One for all where the row ids are far apart, as they may be in a damaged file: a row takes many bytes.
std::uint64_t stretchCount(std::int64_t first, std::int64_t last, std::uint64_t bytes) {
  if (last < first) return 0;
  const std::uint64_t span = static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(first);
  return span > bytes ? 1 : span / kRowsOfStretch + 1;
}

}  // namespace

FileRowsReader::FileRowsReader(Database& database, std::uint64_t keep)
    : minKeep(keep),
      first(database.number("SELECT MIN(rowid) FROM files")),
      last(database.number("SELECT MAX(rowid) FROM files", -1)),
      all(stretchCount(first, last, IndexDatabase::bytesOf(database))) {}

void FileRowsReader::read(Database& database) {
  Statement rows = database.prepare(
      "SELECT dir, name, logical, physical, mtime FROM files WHERE rowid BETWEEN ? AND ?");
  for (std::size_t index = next++; index < all.size(); index = next++) {
    const bool isLast = index + 1 == all.size();
    const auto begin = static_cast<std::int64_t>(static_cast<std::uint64_t>(first) + index * kRowsOfStretch);
    const auto end = static_cast<std::int64_t>(static_cast<std::uint64_t>(begin) + kRowsOfStretch - 1);
    rows.bind(1, begin);
    rows.bind(2, isLast ? last : end);
    readStretch(rows, all[index]);
    rows.reset();
  }
}

void FileRowsReader::readStretch(Statement& rows, FileRows& into) const {
  FileRows::Run* run = nullptr;
  while (rows.step()) {
    const std::int64_t folder = rows.integer(0);
    const std::string_view name = rows.text(1);
    const std::uint64_t logical = rows.size(2);
    const std::uint64_t physical = rows.size(3);
    const std::int64_t mtime = rows.integer(4);
    if (run == nullptr || run->folder != folder) run = &into.runs.emplace_back(FileRows::Run{folder});
    const std::uint64_t digest = fileDigest(name, logical, physical, mtime);
    into.totals.add(IndexTotals::File{folder, logical, physical, digest});
    run->files += 1;
    addChecked(run->logical, logical);
    addChecked(run->physical, physical);
    run->newest = std::max(run->newest, mtime);
    run->digest += digest;
    if (name == DirNode::kCacheTag) run->cacheTagged = true;
    if (logical >= minKeep) into.kept.push_back({folder, {std::string(name), logical, physical, mtime}});
  }
}

}  // namespace quon
