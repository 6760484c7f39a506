#include "store/ScanPatcher.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include <boost/unordered/unordered_flat_map.hpp>

#include "DirPathResolver.h"
#include "FolderIds.h"
#include "IndexDatabase.h"
#include "IndexMeta.h"
#include "IndexSchema.h"
#include "IndexTotals.h"
#include "RowSQL.h"
#include "Subtree.h"
#include "base/Path.h"
#include "base/PathRange.h"
#include "store/StoreError.h"

namespace quon {
namespace {

std::int64_t asRow(std::uint64_t value) {
  return static_cast<std::int64_t>(value);
}
std::uint64_t fileIdentifier(const Statement& row, int column) {
  return static_cast<std::uint64_t>(row.integer(column));
}

/// What `make` makes of each row. The statement is reset: an open one would keep its transaction open.
template <typename Make>
auto all(Statement& rows, Make make) {
  std::vector<decltype(make(rows))> made;
  while (rows.step()) made.push_back(make(rows));
  rows.reset();
  return made;
}

Database openForPatching(const std::string& indexURL) {
  Database database = IndexDatabase::openWrite(indexURL, " for patching");
  database.exec(patchIndexScript().c_str());
  return database;
}

}  // namespace

/// Prepared once a batch: a batch of 1,000 folders runs most of them 1,000 times. Closing the connection
/// rolls back what was not committed.
struct ScanPatcher::Statements {
  Statements(const std::string& indexURL, const RootPath& rootPath)
      : db(openForPatching(indexURL)), folders(db), paths(db, rootPath) {}

  void addFile(std::int64_t dir, std::string_view name, std::uint64_t logical, std::uint64_t physical,
               std::int64_t mtime) {
    changed = true;
    totals.add(IndexTotals::File{dir, logical, physical, fileDigest(name, logical, physical, mtime)});
    insertFile.bind(1, dir);
    insertFile.bind(2, name);
    insertFile.bind(3, asRow(logical));
    insertFile.bind(4, asRow(physical));
    insertFile.bind(5, mtime);
    insertFile.run();
  }

  /// Takes the rows that a deletion returns out of the totals.
  void subtractFiles(Statement& deletion) {
    while (deletion.step()) {
      changed = true;
      totals.subtract(fileOf(deletion));
    }
    deletion.reset();
  }

  /// One transaction for the reads that follow each other: each by itself would lock the file, look for what
  /// a killed writer left, and read its first page.
  void read() {
    if (isWriting || isReading) return;
    beginReading.run();
    isReading = true;
  }
  void endReading() {
    if (std::exchange(isReading, false)) endRead.run();
  }

  Database db;
  Statement beginReading = db.prepare("BEGIN");
  Statement endRead = db.prepare("COMMIT");
  bool isReading = false;
  IndexTotals totals;
  std::uint64_t revision = 0;
  bool isWriting = false;
  bool changed = false;  // any row but those of the metadata
  FolderIds folders;
  DirPathResolver paths;
  Statement childNames = db.prepare("SELECT name FROM dirs WHERE parent = ?");
  Statement children = db.prepare("SELECT id, name, mtime FROM dirs WHERE parent = ?");
  Statement file = db.prepare("SELECT logical, physical, mtime FROM files WHERE dir = ? AND name = ?");
  Statement deleteFiles =
      db.prepare("DELETE FROM files WHERE dir = ? RETURNING dir, name, logical, physical, mtime");
  Statement storedDir = db.prepare("SELECT id, parent, name, mtime, error FROM dirs WHERE id = ?");
  Statement insertFile =
      db.prepare("INSERT INTO files (dir, name, logical, physical, mtime) VALUES (?, ?, ?, ?, ?)");
  Statement updateDir = db.prepare("UPDATE dirs SET mtime = ?, error = ? WHERE id = ?");
  Statement insertDir = db.prepare(kInsertDir);
  Statement markError = db.prepare(kMarkError);
  Statement linksIn = db.prepare("SELECT fileid, name, counted FROM links WHERE dir = ?");
  Statement linkedUnder = db.prepare(std::string(kSubtreeSQL) +
                                     "SELECT DISTINCT fileid FROM links WHERE dir IN (SELECT id FROM sub)");
  Statement linkSightings = db.prepare("SELECT dir, name, counted FROM links WHERE fileid = ?");
  Statement setLink = db.prepare(kInsertLink);
  Statement deleteLink = db.prepare("DELETE FROM links WHERE fileid = ? AND dir = ? AND name = ?");
  Statement deleteLinks = db.prepare("DELETE FROM links WHERE dir = ?");
  SubtreeDeletion deleteSubtree{db};
};

ScanPatcher::ScanPatcher(const std::string& indexURL, RootPath rootPath)
    : root(std::move(rootPath)), statements(std::make_unique<Statements>(indexURL, root)) {}

ScanPatcher::~ScanPatcher() = default;

std::optional<std::int64_t> ScanPatcher::dirId(const std::string& path) {
  if (const auto known = idByPath.find(path); known != idByPath.end()) return known->second;
  statements->read();
  const std::optional<std::string_view> below = root.relative(path);
  if (!below) return std::nullopt;
  std::optional<std::int64_t> id;
  // Usually the parent is known.
  const auto parent = below->empty() ? idByPath.end() : idByPath.find(std::string(parentPath(path)));
  if (parent != idByPath.end()) {
    id = statements->folders.below(parent->second, lastComponent(path));
  } else if (const std::optional<std::int64_t> top = statements->folders.root()) {
    id = statements->folders.below(*top, *below);
  }
  if (id) idByPath.emplace(path, *id);
  return id;
}

double ScanPatcher::writtenAt() {
  try {
    return decodeSeconds(readMeta(statements->db), "scannedAt");
  } catch (const std::invalid_argument&) {
    return 0;
  }
}

bool ScanPatcher::mayLackLinks() {
  const MetaMap meta = readMeta(statements->db);
  try {
    return decodeCountOr(meta, "lastEventId", 0) < decodeCountOr(meta, "linksCompleteFrom", 0);
  } catch (const std::invalid_argument&) {
    return true;
  }
}

std::uint64_t ScanPatcher::revision() {
  return readRevision(statements->db);
}

void ScanPatcher::releaseLock() {
  statements->endReading();
}

void ScanPatcher::begin(std::uint64_t expectedRevision) {
  statements->endReading();
  statements->db.exec("BEGIN IMMEDIATE");
  statements->isWriting = true;
  statements->revision = revision();
  if (statements->revision != expectedRevision) throw StoreError::superseded();
  statements->totals = readTotals(statements->db);
}

ScanPatcher::Alike ScanPatcher::filesLike(const std::set<SizeAndTime>& wanted) {
  // Of the size of an empty file, or a block, there may be any number.
  constexpr std::size_t kMostOfSize = 4096;
  constexpr std::size_t kMostOfOtherTimes = 256;
  struct Left {
    std::size_t ofTimes = kMostOfSize;
    std::size_t ofOthers = kMostOfOtherTimes;
  };
  boost::unordered_flat_map<std::uint64_t, Left> left;
  for (const SizeAndTime& file : wanted) left.try_emplace(file.first);
  Alike alike;
  std::vector<std::pair<std::int64_t, std::string>> found;
  {
    Statement rows = statements->db.prepare("SELECT logical, mtime, dir, name FROM files");
    while (rows.step()) {
      const auto ofSize = left.find(rows.size(0));
      if (ofSize == left.end()) continue;
      const bool isExact = wanted.contains({ofSize->first, rows.integer(1)});
      std::size_t& more = isExact ? ofSize->second.ofTimes : ofSize->second.ofOthers;
      if (more == 0) {
        if (isExact) alike.hasAllOfTimes = false;
        continue;
      }
      --more;
      found.emplace_back(rows.integer(2), std::string(rows.text(3)));
    }
  }
  for (auto& [dir, name] : found) {
    std::optional<std::string> folder = path(dir);
    if (folder) alike.files.push_back({*std::move(folder), std::move(name)});
  }
  return alike;
}

std::size_t ScanPatcher::folderCount() {
  Statement count = statements->db.prepare("SELECT COUNT(*) FROM dirs");
  return count.step() ? count.size(0) : 0;
}

std::optional<std::string> ScanPatcher::path(std::int64_t dir) {
  statements->read();
  return statements->paths.find(dir);
}

std::vector<std::string> ScanPatcher::childNames(std::int64_t dir) {
  statements->read();
  statements->childNames.bind(1, dir);
  return all(statements->childNames, [](const Statement& row) { return std::string(row.text(0)); });
}

std::vector<StoredDir> ScanPatcher::children(std::int64_t dir) {
  statements->read();
  statements->children.bind(1, dir);
  return all(statements->children, [](const Statement& row) {
    return StoredDir{row.integer(0), std::string(row.text(1)), row.integer(2)};
  });
}

std::vector<std::int64_t> ScanPatcher::dirIdsUnder(std::int64_t dir) {
  statements->read();
  Statement rows = statements->db.prepare(std::string(kSubtreeSQL) + "SELECT id FROM sub");
  rows.bind(1, dir);
  return all(rows, [](const Statement& row) { return row.integer(0); });
}

std::optional<FileEntry> ScanPatcher::file(std::int64_t dir, std::string_view name) {
  statements->read();
  Statement& row = statements->file;
  row.bind(1, dir);
  row.bind(2, name);
  std::optional<FileEntry> found;
  if (row.step()) found = FileEntry{std::string(name), row.size(0), row.size(1), row.integer(2)};
  row.reset();
  return found;
}

void ScanPatcher::replaceFiles(std::int64_t dir, const std::vector<FileEntry>& files, std::int64_t mtime,
                               bool error) {
  statements->deleteFiles.bind(1, dir);
  statements->subtractFiles(statements->deleteFiles);
  for (const FileEntry& entry : files) {
    statements->addFile(dir, entry.name, entry.logical, entry.physical, entry.mtime);
  }
  Statement& row = statements->storedDir;
  row.bind(1, dir);
  if (row.step()) {
    IndexTotals::Folder folder = folderOf(row);
    statements->totals.subtract(folder);
    folder.mtime = mtime;
    folder.error = error;
    statements->totals.add(folder);
  }
  row.reset();
  statements->changed = true;
  statements->updateDir.bind(1, mtime);
  statements->updateDir.bind(2, std::int64_t{error ? 1 : 0});
  statements->updateDir.bind(3, dir);
  statements->updateDir.run();
}

void ScanPatcher::deleteSubtree(std::int64_t dir, const std::string& path) {
  statements->changed = true;
  statements->deleteSubtree.run(dir, statements->totals);
  eraseInside(idByPath, path);
  statements->paths.forget();
}

void ScanPatcher::insertSubtree(std::int64_t parent, const DirNode& node, const Listings& listings) {
  // Pre-order without recursion: children are pushed in reverse, so that they come off in order.
  std::vector<std::pair<std::int64_t, const DirNode*>> waiting{{parent, &node}};
  while (!waiting.empty()) {
    const auto [above, next] = waiting.back();
    waiting.pop_back();
    const std::int64_t id = insertFolder(above, *next, listings);
    for (auto child = next->subdirs.rbegin(); child != next->subdirs.rend(); ++child) {
      waiting.emplace_back(id, child->get());
    }
  }
}

std::int64_t ScanPatcher::insertFolder(std::int64_t parent, const DirNode& node, const Listings& listings) {
  statements->insertDir.bind(1, parent);
  statements->insertDir.bind(2, node.name);
  statements->insertDir.bind(3, node.mtime);
  statements->insertDir.run();
  const std::int64_t id = statements->db.lastInsertRowId();
  statements->changed = true;
  statements->totals.add(IndexTotals::Folder{id, parent, node.name, node.mtime, node.error});
  if (node.error) {
    statements->markError.bind(1, id);
    statements->markError.run();
  }
  const auto listing = listings.find(&node);
  if (listing == listings.end()) return id;
  for (std::size_t index = 0; index < listing->second.size(); ++index) {
    const FileBatch::File entry = listing->second[index];
    statements->addFile(id, entry.name, entry.logical, entry.physical, entry.mtime);
  }
  return id;
}

std::vector<LinkSighting> ScanPatcher::linksIn(std::int64_t dir) {
  statements->read();
  statements->linksIn.bind(1, dir);
  return all(statements->linksIn, [dir](const Statement& row) {
    return LinkSighting{fileIdentifier(row, 0), dir, std::string(row.text(1)), row.integer(2) != 0};
  });
}

std::vector<LinkSighting> ScanPatcher::linkSightings(std::uint64_t fileID) {
  statements->read();
  statements->linkSightings.bind(1, asRow(fileID));
  return all(statements->linkSightings, [fileID](const Statement& row) {
    return LinkSighting{fileID, row.integer(0), std::string(row.text(1)), row.integer(2) != 0};
  });
}

std::vector<LinkSighting> ScanPatcher::countedLinksUnder(std::int64_t dir) {
  Statement rows = statements->db.prepare(std::string(kSubtreeSQL) +
                                          "SELECT fileid, dir, name FROM links\n"
                                          "WHERE counted = 1 AND dir IN (SELECT id FROM sub)");
  rows.bind(1, dir);
  return all(rows, [](const Statement& row) {
    return LinkSighting{fileIdentifier(row, 0), row.integer(1), std::string(row.text(2)), true};
  });
}

std::vector<std::uint64_t> ScanPatcher::linkedFilesUnder(std::int64_t dir) {
  statements->read();
  statements->linkedUnder.bind(1, dir);
  return all(statements->linkedUnder, [](const Statement& row) { return fileIdentifier(row, 0); });
}

void ScanPatcher::setLink(std::uint64_t fileID, std::int64_t dir, std::string_view name, bool counted) {
  statements->setLink.bind(1, asRow(fileID));
  statements->setLink.bind(2, dir);
  statements->setLink.bind(3, name);
  statements->setLink.bind(4, std::int64_t{counted ? 1 : 0});
  statements->setLink.run();
  statements->changed = true;
}

void ScanPatcher::deleteLink(std::uint64_t fileID, std::int64_t dir, std::string_view name) {
  statements->deleteLink.bind(1, asRow(fileID));
  statements->deleteLink.bind(2, dir);
  statements->deleteLink.bind(3, name);
  statements->deleteLink.run();
  statements->changed = true;
}

void ScanPatcher::deleteLinks(std::int64_t dir) {
  statements->deleteLinks.bind(1, dir);
  statements->deleteLinks.run();
  statements->changed = true;
}

std::uint64_t ScanPatcher::linkDupeCount() {
  return static_cast<std::uint64_t>(statements->db.number("SELECT COUNT(*) FROM links WHERE counted = 0"));
}

std::vector<TopFile> ScanPatcher::topFiles(std::int64_t limit, std::uint64_t minKeep) {
  Statement rows = statements->db.prepare(
      "SELECT dir, name, logical, physical, mtime FROM files\n"
      "WHERE logical >= ? ORDER BY logical DESC LIMIT ?");
  rows.bind(1, asRow(std::min<std::uint64_t>(minKeep, std::numeric_limits<std::int64_t>::max())));
  rows.bind(2, limit);
  return all(rows, [this](const Statement& row) {
    return TopFile{statements->paths.filePath(row.integer(0), row.text(1)), row.size(2), row.size(3),
                   row.integer(4)};
  });
}

void ScanPatcher::updateTopFiles(const std::vector<TopFile>& topFiles) {
  setMeta("topFiles", encodeTopFiles(topFiles));
}

std::uint64_t ScanPatcher::commit(std::uint64_t lastEventId, double scannedAt) {
  setMeta("lastEventId", std::to_string(lastEventId));
  setMeta("scannedAt", encodeSeconds(scannedAt));
  setMeta("hardlinksDeduped", std::to_string(linkDupeCount()));
  if (statements->changed) {
    setMeta("totals", statements->totals.encode());
    statements->revision = raiseRevision(statements->db);
  }
  statements->db.exec("COMMIT");
  return statements->revision;
}

void ScanPatcher::setRootDev(std::uint32_t device) {
  setMeta("rootDev", std::to_string(device));
}

void ScanPatcher::setMeta(std::string_view key, std::string_view value) {
  writeMeta(statements->db, key, value);
}

}  // namespace quon
