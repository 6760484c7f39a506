#pragma once

#include <stdexcept>
#include <string>

namespace quon {

/// Why SQLite could not do what it was asked. what() is SQLite's message, with the path where a file could
/// not be opened.
class DatabaseError : public std::runtime_error {
 public:
  enum class Kind {
    busy,     ///< another connection kept a lock until the busy timeout was over
    damaged,  ///< not a database, or a torn one
    foreign,  ///< a value of another type than was asked for: not a file of quon
    stopped,  ///< the flag of Database::stopWhen was set
    moved,    ///< another file has the name of the one that is open
    unwritable,  ///< the disk is full or fails, or the file may not be written
    other,
  };

  DatabaseError(Kind reason, const std::string& message);
  /// Of one of SQLite's result codes.
  [[nodiscard]] static DatabaseError ofStatus(int status, const std::string& message);

  /// Permanent: the content of the file cannot be relied on.
  [[nodiscard]] bool isUnusable() const { return kind == Kind::damaged || kind == Kind::foreign; }

  const Kind kind;
};

/// Throws the failure of a connection as the exception that whoever opened it promises.
using RaiseFailure = void (*)(const DatabaseError& failure);
[[noreturn]] void raiseAsItIs(const DatabaseError& failure);

}  // namespace quon
