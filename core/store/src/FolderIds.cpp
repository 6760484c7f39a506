#include "FolderIds.h"

#include "base/Path.h"

namespace quon {
namespace {

/// The id in the first row; the statement is ready for the next use, and no longer keeps its transaction
/// open.
std::optional<std::int64_t> firstId(Statement& query) {
  const std::optional<std::int64_t> id = query.step() ? std::optional(query.integer(0)) : std::nullopt;
  query.reset();
  return id;
}

}  // namespace

FolderIds::FolderIds(Database& database)
    : rootRow(database.prepare("SELECT id FROM dirs WHERE parent IS NULL")),
      child(database.prepare("SELECT id FROM dirs WHERE parent = ? AND name = ?")) {}

std::optional<std::int64_t> FolderIds::root() {
  return firstId(rootRow);
}

std::optional<std::int64_t> FolderIds::below(std::int64_t from, std::string_view path) {
  std::optional<std::int64_t> id = from;
  for (std::string_view name = takeComponent(path); id && !name.empty(); name = takeComponent(path)) {
    child.bind(1, *id);
    child.bind(2, name);
    id = firstId(child);
  }
  return id;
}

}  // namespace quon
