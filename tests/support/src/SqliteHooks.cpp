#include "support/SqliteHooks.h"

#include <sqlite3.h>
#include <utility>

namespace quon::test {
namespace {

using Access = SqliteHooks::Access;

/// The methods of one kind of file: SQLite has others for journals, which nobody locks, than for databases.
struct Methods {
  const sqlite3_io_methods* real = nullptr;
  sqlite3_io_methods hooked{};
};

std::function<void(Access)> called;
thread_local bool isWatched = false;
sqlite3_vfs* system = nullptr;
sqlite3_vfs layer{};
Methods ofDatabases;
Methods ofJournals;

void report(Access access) {
  if (isWatched) called(access);
}

const sqlite3_io_methods& realOf(const sqlite3_file* file) {
  return *(file->pMethods == &ofDatabases.hooked ? ofDatabases : ofJournals).real;
}

int write(sqlite3_file* file, const void* bytes, int count, sqlite3_int64 offset) {
  report(Access::change);
  return realOf(file).xWrite(file, bytes, count, offset);
}
int truncate(sqlite3_file* file, sqlite3_int64 size) {
  report(Access::change);
  return realOf(file).xTruncate(file, size);
}
int sync(sqlite3_file* file, int flags) {
  report(Access::change);
  return realOf(file).xSync(file, flags);
}
int lock(sqlite3_file* file, int level) {
  if (level == SQLITE_LOCK_SHARED) report(Access::sharedLock);
  return realOf(file).xLock(file, level);
}

int open(sqlite3_vfs* /*self*/, sqlite3_filename name, sqlite3_file* file, int flags, int* opened) {
  const int status = system->xOpen(system, name, file, flags, opened);
  if (status != SQLITE_OK) return status;
  Methods& methods = (flags & SQLITE_OPEN_MAIN_DB) != 0 ? ofDatabases : ofJournals;
  methods.real = file->pMethods;
  methods.hooked = *file->pMethods;
  methods.hooked.xWrite = write;
  methods.hooked.xTruncate = truncate;
  methods.hooked.xSync = sync;
  methods.hooked.xLock = lock;
  file->pMethods = &methods.hooked;
  return status;
}
int removeFile(sqlite3_vfs* /*self*/, const char* path, int syncFolder) {
  report(Access::change);
  return system->xDelete(system, path, syncFolder);
}

}  // namespace

SqliteHooks::SqliteHooks(std::function<void(Access)> before) {
  called = std::move(before);
  system = sqlite3_vfs_find(nullptr);
  layer = *system;
  layer.zName = "hooked";
  layer.xOpen = open;
  layer.xDelete = removeFile;
  sqlite3_vfs_register(&layer, 1);
  isWatched = true;
}

SqliteHooks::~SqliteHooks() {
  isWatched = false;
  sqlite3_vfs_unregister(&layer);
  sqlite3_vfs_register(system, 1);
}

}  // namespace quon::test
