#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "IndexMeta.h"
#include "LoadProbe.h"
#include "database/Database.h"
#include "store/ScanStore.h"

namespace quon {

/// Rebuilds a scan tree from an index, and refuses what no scan could have written. Two connections that see
/// the same state of the file are read at once: the sums of the files take longer than all the rest. Serves
/// one load. Threads: confined to one; starts another for its own time.
class TreeLoader {
 public:
  TreeLoader(std::string url, RootPath root, std::uint64_t minKeep);
  /// StoreError as ScanStore::load.
  [[nodiscard]] Loaded load();

 private:
  /// What the files of one folder sum up to.
  struct FolderSums {
    std::int64_t folder;
    std::uint64_t files;
    std::uint64_t logical;
    std::uint64_t physical;
    std::int64_t newest;
  };

  void open();
  void acceptMeta();
  void readDirs();
  void addDir(const Statement& row);
  [[nodiscard]] std::vector<FolderSums> readAggregates();
  void applyAggregates(const std::vector<FolderSums>& sums);
  void readKeptFiles();
  void checkKeptFiles() const;
  void readFigures();
  [[nodiscard]] DirNode& folderOf(std::int64_t id) const;
  [[noreturn]] void refuse() const;

  Database database;
  Database second;  ///< for the aggregates
  const std::string url;
  const RootPath rootPath;
  const std::uint64_t minKeep;
  MetaMap meta;
  Loaded loaded;
  std::vector<const DirNode*> keeping;  ///< folders with kept files
  LoadProbe probe;
};

}  // namespace quon
