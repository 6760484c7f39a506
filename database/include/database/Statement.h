#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "database/DatabaseError.h"

struct sqlite3_stmt;

namespace quon {

/// A prepared statement, finalised by its destructor. Failures are raised as its connection's are.
/// Threads: that of its connection.
class Statement {
 public:
  Statement() = default;

  /// Parameters count from 1. Bytes must live until the statement is reset or stepped to its end.
  void bind(int parameter, std::int64_t value);
  void bind(int parameter, std::string_view text);
  void bindBlob(int parameter, std::string_view bytes);
  void bindNull(int parameter);

  /// True with a row, false at the end.
  [[nodiscard]] bool step();
  /// Steps a statement that yields no row and makes it ready for the next.
  void run();
  void reset();

  /// Columns count from 0. A column of another type than asked for is a failure (foreign): the schema has
  /// no such value.
  [[nodiscard]] std::int64_t integer(int column) const;
  /// A size, count or identifier: an integer that is not negative.
  [[nodiscard]] std::uint64_t size(int column) const;
  /// Valid until the next step.
  [[nodiscard]] std::string_view text(int column) const;
  [[nodiscard]] std::string_view blob(int column) const;
  [[nodiscard]] bool isNull(int column) const;

 private:
  friend class Database;
  struct Finalise {
    void operator()(sqlite3_stmt* statement) const;
  };
  Statement(sqlite3_stmt* prepared, RaiseFailure failing) : statement(prepared), raise(failing) {}
  void check(int status) const;
  [[noreturn]] void fail(int status) const;
  [[noreturn]] void failType(const char* expected) const;

  std::unique_ptr<sqlite3_stmt, Finalise> statement;
  RaiseFailure raise = raiseAsItIs;
};

}  // namespace quon
