#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "database/DatabaseError.h"
#include "database/Statement.h"

struct sqlite3;

namespace quon {

/// A connection to an SQLite file, closed by its destructor; an open transaction is rolled back by that.
/// Failures are DatabaseError, or what the function it was opened with throws instead. Threads: one at a
/// time.
class Database {
 public:
  enum class Mode { read, write, create };  ///< an existing file; the same; made when it is missing

  /// No connection; only assignment, isOpen and close are allowed.
  Database() = default;
  [[nodiscard]] static Database open(const std::string& path, Mode mode, RaiseFailure raise = raiseAsItIs);

  /// For a file that others may have written to by accident or malice: nothing of its schema but tables and
  /// plain indexes may run.
  void distrust();
  static constexpr int kBusyTimeoutMs = 2000;
  /// How long a statement waits for the lock of another connection; at first kBusyTimeoutMs.
  void setBusyTimeout(int timeoutMs);
  /// Closing the last connection leaves the write-ahead log where it is, instead of waiting for the disk.
  void keepLogOnClose();
  /// From now on every statement fails soon after the flag, which outlives the connection, is set.
  void stopWhen(const std::atomic<bool>& flag);
  /// From now on all statements together may take so many steps of SQLite's virtual machine; then they fail.
  void stopAfter(std::uint64_t steps);

  void exec(const char* script);
  [[nodiscard]] Statement prepare(std::string_view sql);
  /// The number in the first column of the first row; `missing` when there is no row, or NULL in it.
  [[nodiscard]] std::int64_t number(std::string_view sql, std::int64_t missing = 0);
  [[nodiscard]] std::int64_t lastInsertRowId() const;
  /// Rows changed by the statement that ran last.
  [[nodiscard]] std::int64_t changes() const;

  [[nodiscard]] bool isOpen() const { return connection != nullptr; }
  void close() { connection.reset(); }
  /// For modules that extend the connection with functions and tables of their own.
  [[nodiscard]] sqlite3* raw() { return connection.get(); }

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
  };
  [[noreturn]] void fail() const;

  std::unique_ptr<std::uint64_t> checksLeft;  ///< until stopAfter stops
  std::unique_ptr<sqlite3, Close> connection;
  RaiseFailure raise = raiseAsItIs;
};

/// A transaction that writes, rolled back unless it is committed.
class Transaction {
 public:
  explicit Transaction(Database& target);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  Database& database;
  bool open = true;
};

}  // namespace quon
