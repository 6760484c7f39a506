#include "database/Statement.h"

#include <cstdlib>
#include <sqlite3.h>
#include <string>

namespace quon {
void Statement::fail(int status) const {
  raise(DatabaseError::ofStatus(status, sqlite3_errmsg(sqlite3_db_handle(statement.get()))));
  std::abort();  // it always throws
}

void Statement::check(int status) const {
  if (status != SQLITE_OK) fail(status);
}

void Statement::failType(const char* expected) const {
  raise({DatabaseError::Kind::foreign,
         std::string("the file contains something else where ") + expected + " belongs"});
  std::abort();  // it always throws
}

void Statement::Finalise::operator()(sqlite3_stmt* prepared) const {
  sqlite3_finalize(prepared);
}

void Statement::bind(int parameter, std::int64_t value) {
  check(sqlite3_bind_int64(statement.get(), parameter, value));
}

void Statement::bind(int parameter, std::string_view text) {
  check(
      sqlite3_bind_text64(statement.get(), parameter, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bindBlob(int parameter, std::string_view bytes) {
  // A null pointer would bind NULL, and an empty view may contain one.
  const char* data = bytes.data() == nullptr ? "" : bytes.data();
  check(sqlite3_bind_blob64(statement.get(), parameter, data, bytes.size(), SQLITE_STATIC));
}

void Statement::bindNull(int parameter) {
  check(sqlite3_bind_null(statement.get(), parameter));
}

bool Statement::step() {
  const int status = sqlite3_step(statement.get());
  if (status == SQLITE_ROW) return true;
  if (status == SQLITE_DONE) return false;
  // sqlite3_step returns the primary code; the connection has the rest. A reset clears the message.
  const DatabaseError failure =
      DatabaseError::ofStatus(sqlite3_extended_errcode(sqlite3_db_handle(statement.get())),
                              sqlite3_errmsg(sqlite3_db_handle(statement.get())));
  sqlite3_reset(statement.get());
  raise(failure);
  return false;
}

void Statement::run() {
  (void)step();
  reset();
}

void Statement::reset() {
  sqlite3_reset(statement.get());
}

std::int64_t Statement::integer(int column) const {
  if (sqlite3_column_type(statement.get(), column) != SQLITE_INTEGER) failType("a number");
  return sqlite3_column_int64(statement.get(), column);
}

std::uint64_t Statement::size(int column) const {
  const std::int64_t value = integer(column);
  if (value < 0) failType("a size or count");
  return static_cast<std::uint64_t>(value);
}

std::string_view Statement::text(int column) const {
  if (sqlite3_column_type(statement.get(), column) != SQLITE_TEXT) failType("text");
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column))};
}

std::string_view Statement::blob(int column) const {
  if (sqlite3_column_type(statement.get(), column) != SQLITE_BLOB) failType("bytes");
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement.get(), column));
  return {bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement.get(), column))};
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(statement.get(), column) == SQLITE_NULL;
}

}  // namespace quon
