// The memdb file system of SQLite (https://www.sqlite.org/src/file/src/memdb.c) shares a database of a name
// that begins with "/" between all connections of the process, with the locks that files have.
#include "store/MemoryIndex.h"

#include <sqlite3.h>

#include "IndexDatabase.h"
#include "base/Uuid.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::string_view kBegin = "file:/quon-index-";
constexpr std::string_view kEnd = "?vfs=memdb";

}  // namespace

struct MemoryIndex::Connection {
  Database database;
};

MemoryIndex::MemoryIndex()
    : url(std::string(kBegin) + freshUuid() + std::string(kEnd)), connection(std::make_unique<Connection>()) {
  connection->database = IndexDatabase::create(url);
  // Nothing exists before the first page does.
  connection->database.exec("PRAGMA user_version = 1");
}
MemoryIndex::~MemoryIndex() = default;

std::shared_ptr<MemoryIndex> MemoryIndex::make() {
  return std::shared_ptr<MemoryIndex>(new MemoryIndex());
}

std::shared_ptr<MemoryIndex> MemoryIndex::copyOf(const std::string& url) {
  std::shared_ptr<MemoryIndex> made = make();
  Database from = IndexDatabase::openRead(url);
  sqlite3* const to = made->connection->database.raw();
  sqlite3_backup* const copying = sqlite3_backup_init(to, "main", from.raw(), "main");
  if (copying == nullptr) throw StoreError::sqlite(sqlite3_errmsg(to));
  const int status = sqlite3_backup_step(copying, /*all pages=*/-1);
  sqlite3_backup_finish(copying);
  if (status == SQLITE_BUSY || status == SQLITE_LOCKED) throw StoreError::busy("database is locked");
  if (status != SQLITE_DONE) throw StoreError::sqlite(sqlite3_errstr(status));
  return made;
}

bool MemoryIndex::isURL(std::string_view url) {
  return url.starts_with(kBegin) && url.ends_with(kEnd);
}

}  // namespace quon
