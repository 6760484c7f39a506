#include "IndexSchema.h"

#include <array>
#include <string_view>

#include "base/Text.h"
#include "database/Database.h"
#include "store/StoreError.h"

#define QUON_LINKS_SQL                   \
  "CREATE TABLE IF NOT EXISTS links (\n" \
  "  fileid INTEGER NOT NULL,\n"         \
  "  dir INTEGER NOT NULL,\n"            \
  "  name TEXT NOT NULL,\n"              \
  "  counted INTEGER NOT NULL,\n"        \
  "  PRIMARY KEY (fileid, dir, name)\n"  \
  ");\n"                                 \
  "CREATE INDEX IF NOT EXISTS idx_links_dir ON links(dir);"

namespace quon {

const char* const kBuildScript =
    "PRAGMA journal_mode=OFF;\n"
    "PRAGMA synchronous=OFF;\n"
    "PRAGMA temp_store=MEMORY;\n"
    "PRAGMA cache_size=-65536;\n"
    "CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL);\n"
    "CREATE TABLE dirs (\n"
    "  id INTEGER PRIMARY KEY,\n"
    "  parent INTEGER,\n"
    "  name TEXT NOT NULL,\n"
    "  mtime INTEGER NOT NULL,\n"
    "  error INTEGER NOT NULL DEFAULT 0\n"
    ");\n"
    "CREATE TABLE files (\n"
    "  dir INTEGER NOT NULL,\n"
    "  name TEXT NOT NULL,\n"
    "  logical INTEGER NOT NULL,\n"
    "  physical INTEGER NOT NULL,\n"
    "  mtime INTEGER NOT NULL\n"
    ");\n" QUON_LINKS_SQL;

const char* const kPatchIndexScript =
    "CREATE INDEX IF NOT EXISTS idx_files_dir ON files(dir);\n"
    "CREATE INDEX IF NOT EXISTS idx_dirs_parent_name ON dirs(parent, name);\n" QUON_LINKS_SQL;

namespace {

struct SchemaItem {
  std::string_view name;
  std::string_view sql;  ///< as SQLite keeps it: without "IF NOT EXISTS"
  bool required;
};

constexpr std::array<SchemaItem, 7> kSchemaItems{{
    {"meta", "CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)", true},
    {"dirs",
     "CREATE TABLE dirs (\n  id INTEGER PRIMARY KEY,\n  parent INTEGER,\n  name TEXT NOT NULL,\n"
     "  mtime INTEGER NOT NULL,\n  error INTEGER NOT NULL DEFAULT 0\n)",
     true},
    {"files",
     "CREATE TABLE files (\n  dir INTEGER NOT NULL,\n  name TEXT NOT NULL,\n  logical INTEGER NOT NULL,\n"
     "  physical INTEGER NOT NULL,\n  mtime INTEGER NOT NULL\n)",
     true},
    {"links",
     "CREATE TABLE links (\n  fileid INTEGER NOT NULL,\n  dir INTEGER NOT NULL,\n  name TEXT NOT NULL,\n"
     "  counted INTEGER NOT NULL,\n  PRIMARY KEY (fileid, dir, name)\n)",
     false},
    {"idx_links_dir", "CREATE INDEX idx_links_dir ON links(dir)", false},
    {"idx_files_dir", "CREATE INDEX idx_files_dir ON files(dir)", false},
    {"idx_dirs_parent_name", "CREATE INDEX idx_dirs_parent_name ON dirs(parent, name)", false},
}};

bool isExpected(const Statement& row) {
  const std::string_view name = row.text(0);
  if (row.isNull(1)) return name.starts_with("sqlite_autoindex_");  // of a PRIMARY KEY
  for (const SchemaItem& item : kSchemaItems) {
    if (item.name == name) return item.sql == row.text(1);
  }
  return false;
}

}  // namespace

std::string incompleteMessage(const std::string& path) {
  return "index at " + displayText(path) + " is incomplete or from another format";
}

void checkSchema(Database& database, const std::string& path) {
  std::size_t required = 0;
  for (const SchemaItem& item : kSchemaItems) required += item.required ? 1 : 0;
  Statement rows = database.prepare("SELECT name, sql FROM sqlite_schema");
  while (rows.step()) {
    if (!isExpected(rows)) throw StoreError::incompatible(incompleteMessage(path));
    for (const SchemaItem& item : kSchemaItems) {
      if (item.required && item.name == rows.text(0)) --required;
    }
  }
  if (required != 0) throw StoreError::incompatible(incompleteMessage(path));
}

}  // namespace quon
