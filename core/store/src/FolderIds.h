#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "database/Database.h"

namespace quon {

/// Row ids of folders by their names. Threads: that of the connection.
class FolderIds {
 public:
  explicit FolderIds(Database& database);

  [[nodiscard]] std::optional<std::int64_t> root();
  /// The folder at a path below the folder `from`, which is itself found by "".
  [[nodiscard]] std::optional<std::int64_t> below(std::int64_t from, std::string_view path);

 private:
  Statement rootRow;
  Statement child;
};

}  // namespace quon
