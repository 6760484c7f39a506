#include "database/Database.h"

#include <cstdlib>
#include <sqlite3.h>

#include "base/MainThread.h"
#include "base/Text.h"

namespace quon {
namespace {

constexpr int kStepsBetweenChecks = 100000;  // virtual machine instructions: some milliseconds

int flagsOf(Database::Mode mode) {
  switch (mode) {
    case Database::Mode::read:
      return SQLITE_OPEN_READONLY;
    case Database::Mode::write:
      return SQLITE_OPEN_READWRITE;
    case Database::Mode::create:
      return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
  }
  return SQLITE_OPEN_READONLY;
}

}  // namespace

void Database::Close::operator()(sqlite3* opened) const {
  sqlite3_close_v2(opened);
}

void Database::fail() const {
  raise(
      DatabaseError::ofStatus(sqlite3_extended_errcode(connection.get()), sqlite3_errmsg(connection.get())));
  std::abort();  // it always throws
}

Database Database::open(const std::string& path, Mode mode, RaiseFailure raise) {
  requireBackground("Database::open");
  // Counting SQLite's own allocations takes a lock for each; nobody reads the counts. Refused, and harmless,
  // when another part of the program uses SQLite already.
  static const int kConfigured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  (void)kConfigured;
  sqlite3* opened = nullptr;
  // Paths are absolute: what begins otherwise names a database by a URI.
  const int uri = path.starts_with("file:") ? SQLITE_OPEN_URI : 0;
  const int status =
      sqlite3_open_v2(path.c_str(), &opened, flagsOf(mode) | uri | SQLITE_OPEN_NOMUTEX, nullptr);
  Database database;
  database.connection.reset(opened);
  database.raise = raise;
  if (status != SQLITE_OK) {
    const std::string reason = opened == nullptr ? "out of memory" : sqlite3_errmsg(opened);
    raise(DatabaseError::ofStatus(status, "cannot open " + displayText(path) + ": " + reason));
  }
  database.setBusyTimeout(kBusyTimeoutMs);
  // What a statement sorts contains names of the user's files: none of it goes to a folder that all share.
  database.exec("PRAGMA temp_store=MEMORY");
  return database;
}

void Database::distrust() {
  sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

void Database::setBusyTimeout(int timeoutMs) {
  sqlite3_busy_timeout(connection.get(), timeoutMs);
}

void Database::keepLogOnClose() {
  sqlite3_db_config(connection.get(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void Database::stopWhen(const std::atomic<bool>& flag) {
  // The handler only reads; SQLite takes the pointer back without const.
  sqlite3_progress_handler(
      connection.get(), kStepsBetweenChecks,
      [](void* watched) { return static_cast<const std::atomic<bool>*>(watched)->load() ? 1 : 0; },
      const_cast<std::atomic<bool>*>(&flag));
}

void Database::stopAfter(std::uint64_t steps) {
  checksLeft = std::make_unique<std::uint64_t>(steps / kStepsBetweenChecks);
  sqlite3_progress_handler(
      connection.get(), kStepsBetweenChecks,
      [](void* left) {
        auto& checks = *static_cast<std::uint64_t*>(left);
        if (checks == 0) return 1;
        --checks;
        return 0;
      },
      checksLeft.get());
}

void Database::exec(const char* script) {
  if (sqlite3_exec(connection.get(), script, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

Statement Database::prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int status =
      sqlite3_prepare_v2(connection.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (status != SQLITE_OK) fail();
  return {statement, raise};
}

std::int64_t Database::number(std::string_view sql, std::int64_t missing) {
  Statement statement = prepare(sql);
  return statement.step() && !statement.isNull(0) ? statement.integer(0) : missing;
}

std::int64_t Database::lastInsertRowId() const {
  return sqlite3_last_insert_rowid(connection.get());
}
std::int64_t Database::changes() const {
  return sqlite3_changes64(connection.get());
}

Transaction::Transaction(Database& target) : database(target) {
  // Takes the write lock now: a transaction that turns from reading to writing can only fail when another
  // writer was faster.
  database.exec("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  // SQLite has rolled back by itself after some failures; that this is refused then is no loss.
  if (open) sqlite3_exec(database.raw(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database.exec("COMMIT");
  open = false;
}

}  // namespace quon
