#pragma once

#include <stdexcept>
#include <string>

namespace quon {

/// Why an index could not be written, read or changed. what() is the line a user sees.
class StoreError : public std::runtime_error {
 public:
  enum class Kind {
    sqlite,        ///< SQLite's own message; shown with the prefix "sqlite: "
    missing,       ///< there is no index, or it does not contain what was asked for
    incompatible,  ///< an index that cannot be trusted: unfinished, damaged, or of another format or root
    superseded,    ///< another program has changed or replaced the index since it was read
    busy,          ///< another program has kept it locked for too long
    unwritable,    ///< the disk is full or fails, or the file may not be written
  };

  [[nodiscard]] static StoreError sqlite(const std::string& message);
  [[nodiscard]] static StoreError missing(const std::string& message);
  [[nodiscard]] static StoreError incompatible(const std::string& message);
  [[nodiscard]] static StoreError superseded();
  /// With SQLite's message.
  [[nodiscard]] static StoreError busy(const std::string& message);
  [[nodiscard]] static StoreError unwritable(const std::string& message);

  const Kind kind;
  const std::string message;

 private:
  StoreError(Kind kind, const std::string& message);
};

}  // namespace quon
