#include "live/ScanPatcher.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <utility>

#include "base/Path.h"
#include "store/DirPathResolver.h"
#include "store/IndexDatabase.h"
#include "store/IndexMeta.h"
#include "store/ScanStore.h"

namespace quon {
namespace {

std::int64_t asRow(std::uint64_t value) {
  return static_cast<std::int64_t>(value);
}

/// A folder and all below it.
#define QUON_SUBTREE              \
  "WITH RECURSIVE sub(id) AS (\n" \
  "  SELECT ? UNION ALL SELECT d.id FROM dirs d JOIN sub ON d.parent = sub.id)\n"

}  // namespace

/// Prepared once a batch: a batch of 1,000 folders runs most of them 1,000 times.
struct ScanPatcher::Statements {
  explicit Statements(Database& db)
      : root(db.prepare("SELECT id FROM dirs WHERE parent IS NULL")),
        child(db.prepare("SELECT id FROM dirs WHERE parent = ? AND name = ?")),
        up(db.prepare("SELECT parent, name FROM dirs WHERE id = ?")),
        childNames(db.prepare("SELECT name FROM dirs WHERE parent = ?")),
        children(db.prepare("SELECT id, name, mtime FROM dirs WHERE parent = ?")),
        file(db.prepare("SELECT logical, physical, mtime FROM files WHERE dir = ? AND name = ?")),
        deleteFiles(db.prepare("DELETE FROM files WHERE dir = ?")),
        insertFile(
            db.prepare("INSERT INTO files (dir, name, logical, physical, mtime) VALUES (?, ?, ?, ?, ?)")),
        updateDir(db.prepare("UPDATE dirs SET mtime = ?, error = ? WHERE id = ?")),
        insertDir(db.prepare("INSERT INTO dirs (parent, name, mtime) VALUES (?, ?, ?)")),
        markError(db.prepare("UPDATE dirs SET error = 1 WHERE id = ?")),
        linksIn(db.prepare("SELECT fileid, name, counted FROM links WHERE dir = ?")),
        linkSightings(db.prepare("SELECT dir, name, counted FROM links WHERE fileid = ?")),
        setLink(db.prepare("INSERT OR REPLACE INTO links (fileid, dir, name, counted) VALUES (?, ?, ?, ?)")),
        deleteLink(db.prepare("DELETE FROM links WHERE fileid = ? AND dir = ? AND name = ?")),
        deleteLinks(db.prepare("DELETE FROM links WHERE dir = ?")),
        setMeta(db.prepare("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)")) {}

  Statement root;
  Statement child;
  Statement up;
  Statement childNames;
  Statement children;
  Statement file;
  Statement deleteFiles;
  Statement insertFile;
  Statement updateDir;
  Statement insertDir;
  Statement markError;
  Statement linksIn;
  Statement linkSightings;
  Statement setLink;
  Statement deleteLink;
  Statement deleteLinks;
  Statement setMeta;
};

ScanPatcher::ScanPatcher(const std::string& indexURL, std::string root)
    : db(IndexDatabase::openWrite(indexURL, " for patching")), rootPath(std::move(root)) {
  db.exec(ScanStore::patchIndexSQL());
  db.exec("BEGIN IMMEDIATE");
  statements = std::make_unique<Statements>(db);
}

/// Closing the connection rolls back what was not committed.
ScanPatcher::~ScanPatcher() = default;

std::optional<std::int64_t> ScanPatcher::dirId(const std::string& path) {
  if (const auto known = idByPath.find(path); known != idByPath.end()) return known->second;
  const std::optional<std::string_view> below = relativeTo(path, rootPath);
  if (!below) return std::nullopt;
  // The nearest ancestor in the cache, usually the parent, and down from there.
  std::int64_t id = 0;
  std::size_t done = path.size() - below->size();
  const std::size_t slash = path.rfind('/');
  const auto parent = below->empty() || slash == std::string::npos || slash < done
                          ? idByPath.end()
                          : idByPath.find(path.substr(0, slash));
  if (parent != idByPath.end()) {
    id = parent->second;
    done = slash + 1;
  } else {
    statements->root.reset();
    if (!statements->root.step()) return std::nullopt;
    id = statements->root.integer(0);
  }
  for (std::string_view rest = std::string_view(path).substr(std::min(done, path.size())); !rest.empty();) {
    const std::size_t end = rest.find('/');
    Statement& child = statements->child;
    child.reset();
    child.bind(1, id);
    child.bind(2, rest.substr(0, end));
    if (!child.step()) return std::nullopt;
    id = child.integer(0);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
  idByPath.emplace(path, id);
  return id;
}

std::optional<std::string> ScanPatcher::path(std::int64_t dir) {
  std::vector<std::string> names;
  Statement& up = statements->up;
  for (std::int64_t id = dir; true;) {
    up.reset();
    up.bind(1, id);
    if (!up.step()) return std::nullopt;
    if (up.isNull(0)) break;
    names.emplace_back(up.text(1));
    id = up.integer(0);
  }
  std::string whole(pathPrefix(rootPath));
  if (names.empty()) return rootPath;
  for (auto name = names.rbegin(); name != names.rend(); ++name) whole = joinPath(whole, *name);
  return whole;
}

std::vector<std::string> ScanPatcher::childNames(std::int64_t dir) {
  Statement& rows = statements->childNames;
  rows.reset();
  rows.bind(1, dir);
  std::vector<std::string> names;
  while (rows.step()) names.emplace_back(rows.text(0));
  return names;
}

std::vector<StoredDir> ScanPatcher::children(std::int64_t dir) {
  Statement& rows = statements->children;
  rows.reset();
  rows.bind(1, dir);
  std::vector<StoredDir> found;
  while (rows.step()) found.push_back({rows.integer(0), std::string(rows.text(1)), rows.integer(2)});
  return found;
}

std::vector<std::int64_t> ScanPatcher::dirIdsUnder(std::int64_t dir) {
  Statement rows = db.prepare(QUON_SUBTREE "SELECT id FROM sub");
  rows.bind(1, dir);
  std::vector<std::int64_t> ids;
  while (rows.step()) ids.push_back(rows.integer(0));
  return ids;
}

std::optional<FileEntry> ScanPatcher::file(std::int64_t dir, std::string_view name) {
  Statement& row = statements->file;
  row.reset();
  row.bind(1, dir);
  row.bind(2, name);
  if (!row.step()) return std::nullopt;
  return FileEntry{std::string(name), row.size(0), row.size(1), row.integer(2)};
}

void ScanPatcher::replaceFiles(std::int64_t dir, const std::vector<FileEntry>& files, std::int64_t mtime,
                               bool error) {
  statements->deleteFiles.bind(1, dir);
  statements->deleteFiles.run();
  Statement& insert = statements->insertFile;
  for (const FileEntry& entry : files) {
    insert.bind(1, dir);
    insert.bind(2, entry.name);
    insert.bind(3, asRow(entry.logical));
    insert.bind(4, asRow(entry.physical));
    insert.bind(5, entry.mtime);
    insert.run();
  }
  statements->updateDir.bind(1, mtime);
  statements->updateDir.bind(2, std::int64_t{error ? 1 : 0});
  statements->updateDir.bind(3, dir);
  statements->updateDir.run();
}

void ScanPatcher::deleteSubtree(std::int64_t dir, const std::string& path) {
  for (const char* sql : {QUON_SUBTREE "DELETE FROM links WHERE dir IN (SELECT id FROM sub)",
                          QUON_SUBTREE "DELETE FROM files WHERE dir IN (SELECT id FROM sub)",
                          QUON_SUBTREE "DELETE FROM dirs WHERE id IN (SELECT id FROM sub)"}) {
    Statement statement = db.prepare(sql);
    statement.bind(1, dir);
    statement.run();
  }
  std::erase_if(idByPath, [&](const auto& known) { return isInside(known.first, path); });
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
  const std::int64_t id = db.lastInsertRowId();
  if (node.error) {
    statements->markError.bind(1, id);
    statements->markError.run();
  }
  const auto listing = listings.find(&node);
  if (listing == listings.end()) return id;
  Statement& insert = statements->insertFile;
  for (std::size_t index = 0; index < listing->second.size(); ++index) {
    const FileBatch::File entry = listing->second[index];
    insert.bind(1, id);
    insert.bind(2, entry.name);
    insert.bind(3, asRow(entry.logical));
    insert.bind(4, asRow(entry.physical));
    insert.bind(5, entry.mtime);
    insert.run();
  }
  return id;
}

std::vector<LinkSighting> ScanPatcher::linksIn(std::int64_t dir) {
  Statement& rows = statements->linksIn;
  rows.reset();
  rows.bind(1, dir);
  std::vector<LinkSighting> found;
  while (rows.step()) {
    found.push_back(
        {static_cast<std::uint64_t>(rows.integer(0)), dir, std::string(rows.text(1)), rows.integer(2) != 0});
  }
  return found;
}

std::vector<LinkSighting> ScanPatcher::linkSightings(std::uint64_t fileID) {
  Statement& rows = statements->linkSightings;
  rows.reset();
  rows.bind(1, asRow(fileID));
  std::vector<LinkSighting> found;
  while (rows.step()) {
    found.push_back({fileID, rows.integer(0), std::string(rows.text(1)), rows.integer(2) != 0});
  }
  return found;
}

std::vector<LinkSighting> ScanPatcher::countedLinksUnder(std::int64_t dir) {
  Statement rows = db.prepare(QUON_SUBTREE
                              "SELECT fileid, dir, name FROM links\n"
                              "WHERE counted = 1 AND dir IN (SELECT id FROM sub)");
  rows.bind(1, dir);
  std::vector<LinkSighting> found;
  while (rows.step()) {
    found.push_back(
        {static_cast<std::uint64_t>(rows.integer(0)), rows.integer(1), std::string(rows.text(2)), true});
  }
  return found;
}

std::vector<std::uint64_t> ScanPatcher::linkedFilesUnder(std::int64_t dir) {
  Statement rows =
      db.prepare(QUON_SUBTREE "SELECT DISTINCT fileid FROM links WHERE dir IN (SELECT id FROM sub)");
  rows.bind(1, dir);
  std::vector<std::uint64_t> files;
  while (rows.step()) files.push_back(static_cast<std::uint64_t>(rows.integer(0)));
  return files;
}

void ScanPatcher::setLink(std::uint64_t fileID, std::int64_t dir, std::string_view name, bool counted) {
  statements->setLink.bind(1, asRow(fileID));
  statements->setLink.bind(2, dir);
  statements->setLink.bind(3, name);
  statements->setLink.bind(4, std::int64_t{counted ? 1 : 0});
  statements->setLink.run();
}

void ScanPatcher::deleteLink(std::uint64_t fileID, std::int64_t dir, std::string_view name) {
  statements->deleteLink.bind(1, asRow(fileID));
  statements->deleteLink.bind(2, dir);
  statements->deleteLink.bind(3, name);
  statements->deleteLink.run();
}

void ScanPatcher::deleteLinks(std::int64_t dir) {
  statements->deleteLinks.bind(1, dir);
  statements->deleteLinks.run();
}

std::uint64_t ScanPatcher::linkDupeCount() {
  Statement row = db.prepare("SELECT COUNT(*) FROM links WHERE counted = 0");
  return row.step() ? row.size(0) : 0;
}

std::vector<TopFile> ScanPatcher::topFiles(std::int64_t limit, std::uint64_t minKeep) {
  Statement rows = db.prepare(
      "SELECT dir, name, logical, physical, mtime FROM files\n"
      "WHERE logical >= ? ORDER BY logical DESC LIMIT ?");
  rows.bind(1, asRow(std::min<std::uint64_t>(minKeep, std::numeric_limits<std::int64_t>::max())));
  rows.bind(2, limit);
  DirPathResolver folders(db, rootPath);
  std::vector<TopFile> files;
  while (rows.step()) {
    files.push_back(
        {joinPath(folders.path(rows.integer(0)), rows.text(1)), rows.size(2), rows.size(3), rows.integer(4)});
  }
  return files;
}

void ScanPatcher::updateTopFiles(const std::vector<TopFile>& topFiles) {
  setMeta("topFiles", encodeTopFiles(topFiles));
}

void ScanPatcher::commit(std::uint64_t lastEventId, double scannedAt) {
  setMeta("lastEventId", std::to_string(lastEventId));
  setMeta("scannedAt", fmt::format("{}", scannedAt));
  setMeta("hardlinksDeduped", std::to_string(linkDupeCount()));
  for (Statement* open :
       {&statements->root, &statements->child, &statements->up, &statements->childNames,
        &statements->children, &statements->file, &statements->linksIn, &statements->linkSightings}) {
    open->reset();  // a query that was not read to its end would keep the transaction open
  }
  db.exec("COMMIT");
}

void ScanPatcher::setMeta(std::string_view key, std::string_view value) {
  statements->setMeta.bind(1, key);
  statements->setMeta.bind(2, value);
  statements->setMeta.run();
}

}  // namespace quon
