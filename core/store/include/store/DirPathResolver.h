#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "database/Database.h"

namespace quon {

/// Full paths of folders by row id, each looked up once. For the length of one query.
class DirPathResolver {
 public:
  DirPathResolver(Database& database, const std::string& rootPath);
  /// StoreError (incompatible) for an id that is missing or that is its own ancestor.
  [[nodiscard]] const std::string& path(std::int64_t id);

 private:
  Statement lookUp;
  const std::string rootPath;
  std::unordered_map<std::int64_t, std::string> known;
  std::string found;                    ///< the path told last
  std::optional<std::int64_t> foundId;  ///< whose it is
};

}  // namespace quon
