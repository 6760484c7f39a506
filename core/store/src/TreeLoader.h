#pragma once

#include <cstdint>
#include <string>

#include "LoadProbe.h"
#include "store/ScanStore.h"
#include "store/Sqlite.h"

namespace quon {

/// Rebuilds a scan tree from an index that was opened for reading, and refuses what no scan could have written.
/// Serves one load. Threads: confined to one.
class TreeLoader {
 public:
  TreeLoader(Database& database, std::string url, const std::string& rootPath, std::uint64_t minKeep);
  /// StoreError as ScanStore::load.
  [[nodiscard]] Loaded load();

 private:
  void acceptMeta();
  void readDirs();
  void addDir(const Statement& row);
  void readAggregates();
  void readKeptFiles();
  void rollUp();
  void readFigures();
  [[nodiscard]] DirNode& folderOf(std::int64_t id) const;
  [[noreturn]] void refuse() const;

  Database& database;
  const std::string url;
  const std::string rootPath;
  const std::uint64_t minKeep;
  std::map<std::string, std::string> meta;
  Loaded loaded;
  LoadProbe probe;
};

}  // namespace quon
