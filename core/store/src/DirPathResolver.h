#pragma once

#include <cstdint>
#include <string>

#include <boost/unordered/unordered_flat_map.hpp>

#include "store/Sqlite.h"

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
  boost::unordered_flat_map<std::int64_t, std::string> known;
  std::string found;
};

}  // namespace quon
