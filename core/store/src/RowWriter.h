#pragma once

#include <cstdint>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include "BatchTable.h"
#include "IndexTotals.h"
#include "RowQueue.h"
#include "database/Database.h"

namespace quon {

/// Turns what was queued into the rows of a new index, inside large transactions. A folder's row is inserted
/// when it is first needed, its parent's before it, so that a parent always has the smaller id. Failures are
/// StoreError. Threads: that of the connection.
class RowWriter {
 public:
  /// The connection outlives it, and has the tables of an index.
  explicit RowWriter(Database& connection);

  void begin();
  void write(const QueuedRows& rows);
  void commit();
  /// Of all rows that were written.
  [[nodiscard]] const IndexTotals& totals() const { return sums; }

 private:
  void sumUp(std::int64_t folder, const FileBatch& files);
  void writeLinks(const std::vector<LinkRow>& links);
  [[nodiscard]] std::int64_t dirId(const DirNode& node);

  Database& database;
  BatchTable batch;
  std::vector<BatchTable::Folder> batchFolders;
  Statement insertDir;
  Statement insertFiles;
  Statement insertLink;
  Statement markError;
  boost::unordered_flat_map<const DirNode*, std::int64_t> dirIds;
  std::int64_t rowsInTransaction = 0;
  IndexTotals sums;
};

}  // namespace quon
