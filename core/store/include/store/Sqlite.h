#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace quon {

/// A prepared statement, finalised by its destructor. Failures are StoreError (sqlite) with SQLite's message.
/// Threads: that of its connection.
class Statement {
 public:
  Statement() = default;

  /// Parameters count from 1. Text is bytes and must live until the statement is reset or stepped to its end.
  void bind(int parameter, std::int64_t value);
  void bind(int parameter, std::string_view bytes);
  void bindNull(int parameter);

  /// True with a row, false at the end.
  [[nodiscard]] bool step();
  /// Steps a statement that yields no row and makes it ready for the next.
  void run();
  void reset();

  /// Columns count from 0. A column of another type than asked for is a StoreError (incompatible): the schema
  /// does not hold such a thing, so the file is not ours.
  [[nodiscard]] std::int64_t integer(int column) const;
  /// A size or count: an integer that is not negative.
  [[nodiscard]] std::uint64_t size(int column) const;
  /// Valid until the next step.
  [[nodiscard]] std::string_view text(int column) const;
  [[nodiscard]] bool isNull(int column) const;

 private:
  friend class Database;
  struct Finalise {
    void operator()(sqlite3_stmt* statement) const;
  };
  explicit Statement(sqlite3_stmt* prepared) : statement(prepared) {}
  std::unique_ptr<sqlite3_stmt, Finalise> statement;
};

/// A connection, closed by its destructor; an open transaction is rolled back by that.
/// Threads: one at a time.
class Database {
 public:
  Database() = default;

  /// An existing index, for reading. A file that holds more than the tables and indexes of an index (a view,
  /// a trigger, another schema) is refused before anything of it runs. StoreError: missing "no index at
  /// PATH", sqlite "cannot open PATH", incompatible.
  /// Rolls back first what a killed writer left unfinished. Meant for one question: when its statements have
  /// taken many times the steps that a sound file of this size could ask for, they fail.
  [[nodiscard]] static Database openRead(const std::string& path);
  /// The same, for changing it. StoreError: sqlite "cannot open PATH" + purpose.
  [[nodiscard]] static Database openWrite(const std::string& path, const std::string& purpose);
  /// A new file. StoreError: sqlite "cannot open PATH: " + SQLite's message.
  [[nodiscard]] static Database create(const std::string& path);

  void exec(const char* script);
  [[nodiscard]] Statement prepare(std::string_view sql);
  [[nodiscard]] std::int64_t lastInsertRowId() const;
  /// Rows changed by the statement that ran last.
  [[nodiscard]] std::int64_t changes() const;
  /// From now on every statement fails soon after the flag, which outlives the connection, is set.
  void stopWhen(const std::atomic<bool>& flag);
  void close() { connection.reset(); }
  /// For sources of this module that extend the connection.
  [[nodiscard]] sqlite3* raw() { return connection.get(); }

  /// Begins a transaction that sees one state of the file until it ends. StoreError when a writer that is
  /// about to commit is not done in time, `waitMs` milliseconds.
  void beginRead(int waitMs);

 private:
  struct Close {
    void operator()(sqlite3* connection) const;
  };
  static std::unique_ptr<sqlite3, Close> open(const std::string& path, int flags);
  static void rollBack(const std::string& path);
  void limitWork(std::uint64_t fileBytes);

  std::unique_ptr<std::uint64_t> looksLeft;  ///< until the work is too much
  std::unique_ptr<sqlite3, Close> connection;
};

}  // namespace quon
