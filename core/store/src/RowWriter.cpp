#include "RowWriter.h"

#include <optional>

#include "RowSQL.h"
#include "scan/DirNode.h"

namespace quon {
namespace {

constexpr std::int64_t kRowsPerTransaction = 100000;

}  // namespace

RowWriter::RowWriter(Database& connection)
    : database(connection),
      insertDir(database.prepare(kInsertDir)),
      insertLink(database.prepare(kInsertLink)),
      markError(database.prepare(kMarkError)) {
  batch.attach(database);
  insertFiles = database.prepare(BatchTable::kInsertFiles);
}

void RowWriter::begin() {
  database.exec("BEGIN");
  rowsInTransaction = 0;
}

void RowWriter::commit() {
  database.exec("COMMIT");
}

void RowWriter::write(const QueuedRows& rows) {
  writeLinks(rows.links);
  batchFolders.clear();
  for (const FolderRows& folder : rows.folders) {
    const std::int64_t id = dirId(*folder.node);
    if (folder.node->error) {
      markError.bind(1, id);
      markError.run();
      sums.markError(id);
    }
    sumUp(id, folder.files);
    if (folder.files.size() > 0) batchFolders.push_back({id, &folder.files});
    rowsInTransaction += static_cast<std::int64_t>(folder.files.size()) + 1;
  }
  batch.fill(batchFolders);
  insertFiles.run();
  if (rowsInTransaction < kRowsPerTransaction) return;
  commit();
  begin();
}

void RowWriter::sumUp(std::int64_t folder, const FileBatch& files) {
  for (std::size_t index = 0; index < files.size(); ++index) {
    const FileBatch::File file = files[index];
    sums.add(IndexTotals::File{folder, file.logical, file.physical,
                               fileDigest(file.name, file.logical, file.physical, file.mtime)});
  }
}

void RowWriter::writeLinks(const std::vector<LinkRow>& links) {
  for (const LinkRow& link : links) {
    insertLink.bind(1, static_cast<std::int64_t>(link.fileID));
    insertLink.bind(2, dirId(*link.node));
    insertLink.bind(3, link.name);
    insertLink.bind(4, static_cast<std::int64_t>(link.counted));
    insertLink.run();
  }
  rowsInTransaction += static_cast<std::int64_t>(links.size());
}

std::int64_t RowWriter::dirId(const DirNode& node) {
  // From the node up to the first ancestor that has its row; then down again.
  std::vector<const DirNode*> missing;
  std::optional<std::int64_t> parentId;
  for (const DirNode* at = &node; at != nullptr; at = at->parent) {
    if (const auto known = dirIds.find(at); known != dirIds.end()) {
      parentId = known->second;
      break;
    }
    missing.push_back(at);
  }
  for (auto next = missing.rbegin(); next != missing.rend(); ++next) {
    if (parentId) {
      insertDir.bind(1, *parentId);
    } else {
      insertDir.bindNull(1);
    }
    insertDir.bind(2, (*next)->name);
    insertDir.bind(3, (*next)->mtime);
    insertDir.run();
    const std::int64_t id = database.lastInsertRowId();
    sums.add(IndexTotals::Folder{id, parentId.value_or(0), (*next)->name, (*next)->mtime});
    parentId = id;
    dirIds.emplace(*next, id);
  }
  return *parentId;
}

}  // namespace quon
