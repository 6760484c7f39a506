#include "store/Sqlite.h"

#include <filesystem>
#include <limits>
#include <sqlite3.h>

#include "ExactSum.h"
#include "IndexSchema.h"
#include "base/Text.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr int kBusyTimeoutMs = 2000;
constexpr int kStepsBetweenLooks = 100000;  // virtual machine instructions: some milliseconds
/// A row takes at least a dozen bytes, and the most laborious question some 80 steps a row; ten times that.
constexpr std::uint64_t kMostStepsPerByte = 64;
constexpr std::uint64_t kMostStepsOfAnyFile = 5'000'000;

[[noreturn]] void raise(sqlite3* connection) {
  const char* message = connection == nullptr ? nullptr : sqlite3_errmsg(connection);
  throw StoreError::sqlite(message == nullptr ? "step failed" : message);
}

void check(int status, sqlite3_stmt* statement) {
  if (status != SQLITE_OK) raise(sqlite3_db_handle(statement));
}

/// An index comes from a folder that others may have written to by accident or malice: nothing that its
/// schema could hold besides tables and plain indexes may run.
void distrust(sqlite3* connection) {
  sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

}  // namespace

void Statement::Finalise::operator()(sqlite3_stmt* prepared) const {
  sqlite3_finalize(prepared);
}
void Database::Close::operator()(sqlite3* opened) const {
  sqlite3_close_v2(opened);
}

void Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_bind_int64(statement.get(), parameter, value), statement.get());
}

void Statement::bind(int parameter, std::string_view bytes) {
  check(
      sqlite3_bind_text64(statement.get(), parameter, bytes.data(), bytes.size(), SQLITE_STATIC, SQLITE_UTF8),
      statement.get());
}

void Statement::bindNull(int parameter) {
  check(sqlite3_bind_null(statement.get(), parameter), statement.get());
}

bool Statement::step() {
  const int status = sqlite3_step(statement.get());
  if (status == SQLITE_ROW) return true;
  if (status == SQLITE_DONE) return false;
  raise(sqlite3_db_handle(statement.get()));
}

void Statement::run() {
  (void)step();
  reset();
}

void Statement::reset() {
  sqlite3_reset(statement.get());
}

std::int64_t Statement::integer(int column) const {
  if (sqlite3_column_type(statement.get(), column) != SQLITE_INTEGER) {
    throw StoreError::incompatible("the index holds something else where a number belongs");
  }
  return sqlite3_column_int64(statement.get(), column);
}

std::uint64_t Statement::size(int column) const {
  const std::int64_t value = integer(column);
  if (value < 0) throw StoreError::incompatible("the index holds a negative size or count");
  return static_cast<std::uint64_t>(value);
}

std::string_view Statement::text(int column) const {
  if (sqlite3_column_type(statement.get(), column) != SQLITE_TEXT) {
    throw StoreError::incompatible("the index holds something else where text belongs");
  }
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column))};
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement.get(), column) == SQLITE_NULL;
}

std::unique_ptr<sqlite3, Database::Close> Database::open(const std::string& path, int flags) {
  // Counting SQLite's own allocations takes a lock for each; nobody reads the counts. Refused, and harmless,
  // when another part of the program uses SQLite already.
  static const int kConfigured = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  (void)kConfigured;
  sqlite3* opened = nullptr;
  const int status = sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  std::unique_ptr<sqlite3, Close> connection(opened);
  if (status != SQLITE_OK) {
    const std::string reason = opened == nullptr ? "out of memory" : sqlite3_errmsg(opened);
    throw StoreError::sqlite("cannot open " + displayText(path) + ": " + reason);
  }
  sqlite3_busy_timeout(opened, kBusyTimeoutMs);
  return connection;
}

/// A connection that only reads is refused a file whose last writer was killed.
void Database::rollBack(const std::string& path) {
  try {
    (void)openWrite(path, "");
  } catch (const StoreError&) {
    // Not to be written by this user, or damaged: reading tells.
  }
}

Database Database::openRead(const std::string& path) {
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) throw StoreError::missing("no index at " + displayText(path));
  Database database;
  if (std::filesystem::exists(path + "-journal", ignored)) rollBack(path);
  database.connection = open(path, SQLITE_OPEN_READONLY);
  const auto bytes = std::filesystem::file_size(path, ignored);
  database.limitWork(ignored ? 0 : bytes);
  distrust(database.connection.get());
  registerExactSum(database.connection.get());
  checkSchema(database, path);
  return database;
}

Database Database::openWrite(const std::string& path, const std::string& purpose) {
  Database database;
  try {
    database.connection = open(path, SQLITE_OPEN_READWRITE);
  } catch (const StoreError&) {
    throw StoreError::sqlite("cannot open " + displayText(path) + purpose);
  }
  distrust(database.connection.get());
  checkSchema(database, path);
  return database;
}

Database Database::create(const std::string& path) {
  Database database;
  database.connection = open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  return database;
}

/// Pages of a damaged file can lead to one another over and over: a few of them stand for more rows than anyone
/// can wait for.
void Database::limitWork(std::uint64_t fileBytes) {
  looksLeft = std::make_unique<std::uint64_t>(
      (kMostStepsOfAnyFile + fileBytes * kMostStepsPerByte) / kStepsBetweenLooks);
  sqlite3_progress_handler(
      connection.get(), kStepsBetweenLooks,
      [](void* left) {
        auto& looks = *static_cast<std::uint64_t*>(left);
        if (looks == 0) return 1;
        --looks;
        return 0;
      },
      looksLeft.get());
}

void Database::exec(const char* script) {
  if (sqlite3_exec(connection.get(), script, nullptr, nullptr, nullptr) != SQLITE_OK) raise(connection.get());
}

Statement Database::prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  const int status =
      sqlite3_prepare_v2(connection.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  if (status != SQLITE_OK) raise(connection.get());
  return Statement(statement);
}

void Database::beginRead(int waitMs) {
  exec("BEGIN");
  sqlite3_busy_timeout(connection.get(), waitMs);
  try {
    (void)prepare("SELECT 1 FROM meta").step();  // takes the lock
  } catch (const StoreError&) {
    exec("ROLLBACK");
    sqlite3_busy_timeout(connection.get(), kBusyTimeoutMs);
    throw;
  }
  sqlite3_busy_timeout(connection.get(), kBusyTimeoutMs);
}

std::int64_t Database::lastInsertRowId() const {
  return sqlite3_last_insert_rowid(connection.get());
}
std::int64_t Database::changes() const {
  return sqlite3_changes64(connection.get());
}

void Database::stopWhen(const std::atomic<bool>& flag) {
  // The handler only reads; SQLite takes the pointer back without const.
  sqlite3_progress_handler(
      connection.get(), kStepsBetweenLooks,
      [](void* watched) { return static_cast<const std::atomic<bool>*>(watched)->load() ? 1 : 0; },
      const_cast<std::atomic<bool>*>(&flag));
}

}  // namespace quon
