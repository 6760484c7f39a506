#pragma once

#include <stdexcept>
#include <string>

namespace quon {
inline namespace database {

/// Why SQLite could not do what it was asked. what() is SQLite's message, with the path where a file could
/// not be opened.
class DatabaseError : public std::runtime_error {
 public:
  enum class Kind {
    busy,     ///< another connection holds a lock, and did so until the busy timeout was over
    damaged,  ///< not a database, a torn one, or one that holds another type than its schema says
    stopped,  ///< the flag of Database::stopWhen was set
    other,
  };

  DatabaseError(Kind reason, const std::string& message);
  /// Of one of SQLite's result codes.
  [[nodiscard]] static DatabaseError ofStatus(int status, const std::string& message);

  const Kind kind;
};

}  // namespace database
}  // namespace quon
