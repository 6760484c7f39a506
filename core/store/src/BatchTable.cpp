// An eponymous virtual table (https://www.sqlite.org/vtab.html) over the folders being written: it
// exists by its name alone, in no schema, and has a single plan, the scan from the first file of the first
// folder to the last of the last.
#include "BatchTable.h"

#include <cstddef>
#include <sqlite3.h>

#include "database/Database.h"
#include "store/StoreError.h"

namespace quon {
namespace {

struct Table : sqlite3_vtab {
  const BatchTable* batch = nullptr;
};

struct Cursor : sqlite3_vtab_cursor {
  std::size_t folder = 0;
  std::size_t file = 0;
  std::int64_t row = 0;
  FileBatch::File current;
};

std::span<const BatchTable::Folder> foldersOf(const Cursor& cursor) {
  return static_cast<const Table*>(cursor.pVtab)->batch->folders;
}

/// Moves on to the next folder with a file when the present one is at its end.
void settle(Cursor& cursor) {
  const auto folders = foldersOf(cursor);
  while (cursor.folder < folders.size() && cursor.file == folders[cursor.folder].files->size()) {
    ++cursor.folder;
    cursor.file = 0;
  }
  if (cursor.folder < folders.size()) cursor.current = (*folders[cursor.folder].files)[cursor.file];
}

int connect(sqlite3* connection, void* batch, int /*count*/, const char* const* /*arguments*/,
            sqlite3_vtab** table, char** /*error*/) {
  const int status = sqlite3_declare_vtab(connection, "CREATE TABLE x(dir, name, logical, physical, mtime)");
  if (status != SQLITE_OK) return status;
  auto* made = new Table();
  made->batch = static_cast<const BatchTable*>(batch);
  *table = made;
  return SQLITE_OK;
}

int disconnect(sqlite3_vtab* table) {
  delete static_cast<Table*>(table);
  return SQLITE_OK;
}

int bestIndex(sqlite3_vtab* /*table*/, sqlite3_index_info* info) {
  info->estimatedCost = 1;
  return SQLITE_OK;
}

int open(sqlite3_vtab* /*table*/, sqlite3_vtab_cursor** cursor) {
  *cursor = new Cursor();
  return SQLITE_OK;
}

int close(sqlite3_vtab_cursor* cursor) {
  delete static_cast<Cursor*>(cursor);
  return SQLITE_OK;
}

int filter(sqlite3_vtab_cursor* base, int /*plan*/, const char* /*name*/, int /*count*/,
           sqlite3_value** /*values*/) {
  auto& cursor = *static_cast<Cursor*>(base);
  cursor.folder = 0;
  cursor.file = 0;
  cursor.row = 0;
  settle(cursor);
  return SQLITE_OK;
}

int next(sqlite3_vtab_cursor* base) {
  auto& cursor = *static_cast<Cursor*>(base);
  ++cursor.file;
  ++cursor.row;
  settle(cursor);
  return SQLITE_OK;
}

int atEnd(sqlite3_vtab_cursor* base) {
  const auto& cursor = *static_cast<Cursor*>(base);
  return cursor.folder >= foldersOf(cursor).size() ? 1 : 0;
}

int column(sqlite3_vtab_cursor* base, sqlite3_context* context, int index) {
  const auto& cursor = *static_cast<Cursor*>(base);
  const FileBatch::File& file = cursor.current;
  switch (index) {
    case 0:
      sqlite3_result_int64(context, foldersOf(cursor)[cursor.folder].id);
      break;
    case 1:
      sqlite3_result_text64(context, file.name.data(), file.name.size(), SQLITE_STATIC, SQLITE_UTF8);
      break;
    case 2:
      sqlite3_result_int64(context, static_cast<std::int64_t>(file.logical));
      break;
    case 3:
      sqlite3_result_int64(context, static_cast<std::int64_t>(file.physical));
      break;
    case 4:
      sqlite3_result_int64(context, file.mtime);
      break;
    default:
      return SQLITE_ERROR;
  }
  return SQLITE_OK;
}

int rowId(sqlite3_vtab_cursor* base, sqlite3_int64* id) {
  *id = static_cast<Cursor*>(base)->row;
  return SQLITE_OK;
}

constexpr sqlite3_module makeModule() {
  sqlite3_module module{};
  module.xConnect = connect;
  module.xBestIndex = bestIndex;
  module.xDisconnect = disconnect;
  module.xOpen = open;
  module.xClose = close;
  module.xFilter = filter;
  module.xNext = next;
  module.xEof = atEnd;
  module.xColumn = column;
  module.xRowid = rowId;
  return module;
}
constexpr sqlite3_module kModule = makeModule();

}  // namespace

void BatchTable::attach(Database& database) {
  if (sqlite3_create_module(database.raw(), "batch", &kModule, this) != SQLITE_OK) {
    throw StoreError::sqlite(sqlite3_errmsg(database.raw()));
  }
}

}  // namespace quon
