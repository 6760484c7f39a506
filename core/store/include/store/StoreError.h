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
  };

  [[nodiscard]] static StoreError sqlite(const std::string& message);
  [[nodiscard]] static StoreError missing(const std::string& message);
  [[nodiscard]] static StoreError incompatible(const std::string& message);

  const Kind kind;
  const std::string message;

 private:
  StoreError(Kind kind, const std::string& message);
};

}  // namespace quon
