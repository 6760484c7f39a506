#include "IndexSchema.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string_view>

#include "base/Text.h"
#include "database/Database.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::string_view kBuildSettings =
    "PRAGMA journal_mode=OFF;\n"
    "PRAGMA synchronous=OFF;\n"
    "PRAGMA temp_store=MEMORY;\n"
    "PRAGMA cache_size=-65536;\n";

struct SchemaItem {
  enum class Made {
    atFirst,     ///< when the file is made; without it the file is no index
    withLinks,   ///< when the file is made, or by patching: early versions had none
    afterwards,  ///< when all rows are in, or by patching
  };
  std::string_view kind;
  std::string_view name;
  std::string_view definition;
  Made made;
};

constexpr std::array<SchemaItem, 7> kSchema{{
    {"TABLE", "meta", " (key TEXT PRIMARY KEY, value TEXT NOT NULL)", SchemaItem::Made::atFirst},
    {"TABLE", "dirs",
     " (\n  id INTEGER PRIMARY KEY,\n  parent INTEGER,\n  name TEXT NOT NULL,\n"
     "  mtime INTEGER NOT NULL,\n  error INTEGER NOT NULL DEFAULT 0\n)",
     SchemaItem::Made::atFirst},
    {"TABLE", "files",
     " (\n  dir INTEGER NOT NULL,\n  name TEXT NOT NULL,\n  logical INTEGER NOT NULL,\n"
     "  physical INTEGER NOT NULL,\n  mtime INTEGER NOT NULL\n)",
     SchemaItem::Made::atFirst},
    {"INDEX", "idx_files_dir", " ON files(dir)", SchemaItem::Made::afterwards},
    {"INDEX", "idx_dirs_parent_name", " ON dirs(parent, name)", SchemaItem::Made::afterwards},
    {"TABLE", "links",
     " (\n  fileid INTEGER NOT NULL,\n  dir INTEGER NOT NULL,\n  name TEXT NOT NULL,\n"
     "  counted INTEGER NOT NULL,\n  PRIMARY KEY (fileid, dir, name)\n)",
     SchemaItem::Made::withLinks},
    {"INDEX", "idx_links_dir", " ON links(dir)", SchemaItem::Made::withLinks},
}};

/// The item's statement; without the clause it is what SQLite keeps of it in the file.
std::string creation(const SchemaItem& item, std::string_view clause = "") {
  return fmt::format("CREATE {} {}{}{}", item.kind, clause, item.name, item.definition);
}

std::string scriptOf(SchemaItem::Made leftOut) {
  std::string script;
  for (const SchemaItem& item : kSchema) {
    if (item.made == leftOut) continue;
    script += creation(item, item.made == SchemaItem::Made::atFirst ? "" : "IF NOT EXISTS ") + ";\n";
  }
  return script;
}

bool isExpected(const Statement& row) {
  const std::string_view name = row.text(0);
  if (row.isNull(1)) return name.starts_with("sqlite_autoindex_");  // of a PRIMARY KEY
  const auto* const item = std::ranges::find(kSchema, name, &SchemaItem::name);
  return item != kSchema.end() && creation(*item) == row.text(1);
}

}  // namespace

const std::string& buildScript() {
  static const std::string kScript =
      std::string(kBuildSettings) + scriptOf(/*leftOut=*/SchemaItem::Made::afterwards);
  return kScript;
}

const std::string& patchIndexScript() {
  static const std::string kScript = scriptOf(/*leftOut=*/SchemaItem::Made::atFirst);
  return kScript;
}

std::string incompleteMessage(const std::string& path) {
  return "index at " + displayText(path) + " is incomplete or from another format";
}

void checkSchema(Database& database, const std::string& path) {
  auto missing = std::ranges::count(kSchema, SchemaItem::Made::atFirst, &SchemaItem::made);
  Statement rows = database.prepare("SELECT name, sql FROM sqlite_schema");
  while (rows.step()) {
    if (!isExpected(rows)) throw StoreError::incompatible(incompleteMessage(path));
    const auto* const item = std::ranges::find(kSchema, rows.text(0), &SchemaItem::name);
    if (item != kSchema.end() && item->made == SchemaItem::Made::atFirst) --missing;
  }
  if (missing != 0) throw StoreError::incompatible(incompleteMessage(path));
}

}  // namespace quon
