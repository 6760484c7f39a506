#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/RootPath.h"
#include "database/Database.h"

namespace quon {

/// Full paths of folders by row id. What it read it remembers: for the length of one query, or until
/// `forget`.
class DirPathResolver {
 public:
  DirPathResolver(Database& database, RootPath root);

  /// Nullopt when the index has no such folder. StoreError (incompatible) for a folder that lies in itself,
  /// in none, or has a name that leads elsewhere.
  [[nodiscard]] std::optional<std::string> find(std::int64_t id);
  /// The full path of a file in the folder. StoreError (incompatible), also when there is no such folder or
  /// no folder can contain a file of that name.
  [[nodiscard]] std::string filePath(std::int64_t id, std::string_view name);
  /// To be called when folders are deleted.
  void forget();

 private:
  /// What paths below the folder are joined to; false when there is no such folder.
  [[nodiscard]] bool resolve(std::int64_t id);

  Statement lookUp;
  const RootPath root;
  std::unordered_map<std::int64_t, std::string> known;  ///< prefixes by id
  std::string found;                                    ///< what resolve found last
  std::optional<std::int64_t> foundId;                  ///< whose it is
};

}  // namespace quon
