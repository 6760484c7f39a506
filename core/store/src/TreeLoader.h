#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FileRows.h"
#include "IndexMeta.h"
#include "LoadProbe.h"
#include "database/Database.h"
#include "store/ScanStore.h"

namespace quon {

/// Rebuilds a scan tree from an index, and refuses what no scan could have written. Two connections that see
/// the same state of the file are read at once: the files take longer than all the rest. Serves one load.
/// Threads: confined to one; starts another for its own time.
class TreeLoader {
 public:
  TreeLoader(std::string url, RootPath root, std::uint64_t minKeep);
  /// StoreError as ScanStore::load.
  [[nodiscard]] Loaded load();

 private:
  void open();
  void acceptMeta();
  void readDirs();
  void addDir(const Statement& row);
  void readFiles();
  void applyRuns(const FileRowsReader& files);
  void applyKept(const FileRowsReader& files);
  void checkTotals(const FileRowsReader& files);
  void readFigures();
  [[nodiscard]] std::uint32_t indexOf(std::int64_t id) const;
  [[noreturn]] void refuse() const;

  Database database;
  Database second;  ///< for some of the files
  const std::string url;
  const RootPath rootPath;
  const std::uint64_t minKeep;
  MetaMap meta;
  Loaded loaded;
  IndexTotals totals;
  LoadProbe probe;
};

}  // namespace quon
