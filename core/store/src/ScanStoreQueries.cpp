// Queries for more than the tree contains, which keeps only large files. Each opens the index for the length
// of one call.
#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>

#include "DirPathResolver.h"
#include "FolderIds.h"
#include "IndexDatabase.h"
#include "IndexMeta.h"
#include "IndexSchema.h"
#include "Subtree.h"
#include "base/Text.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

std::int64_t asParameter(std::uint64_t size) {
  return static_cast<std::int64_t>(std::min<std::uint64_t>(size, std::numeric_limits<std::int64_t>::max()));
}

/// What sum() yields on our connections: the 64 bits of an unsigned total.
std::uint64_t total(const Statement& row, int column) {
  return static_cast<std::uint64_t>(row.integer(column));
}

/// Limits a query over files to a folder of the index, given by its path below the root; "" limits nothing.
/// The folder's id is the first parameter.
struct Within {
  Within(Database& database, std::string_view below) {
    if (below.empty()) return;
    FolderIds ids(database);
    if (const auto top = ids.root()) folder = ids.below(*top, below);
    if (!folder) throw StoreError::missing("the index does not contain " + displayText(below));
    subtree = kSubtreeSQL;
    condition = "WHERE dir IN (SELECT id FROM sub)\n";
  }
  void bind(Statement& query) const {
    if (folder) query.bind(1, *folder);
  }

  std::string subtree;
  std::string condition;
  std::optional<std::int64_t> folder;
};

}  // namespace

std::map<std::string, std::string> ScanStore::meta(const std::string& url) {
  Database database = IndexDatabase::openRead(url);
  return readMeta(database);
}

IndexSummary ScanStore::summary(const std::string& url) {
  MetaMap figures = meta(url);
  try {
    if (figures["complete"] != "1" || figures["format"] != std::to_string(formatVersion)) {
      throw std::invalid_argument("complete");
    }
    IndexSummary summary;
    summary.lastEventId = decodeCountOr(figures, "lastEventId", 0);
    summary.hasLinkRegistry = figures["linksVersion"] == "1";
    summary.rootDev = static_cast<std::uint32_t>(decodeCountOr(figures, "rootDev", 0));
    summary.disk = decodeDisk(figures);
    summary.root = figures["root"];
    summary.scannedAt = decodeSeconds(figures, "scannedAt");
    summary.skippedProtected = decodePaths(figures, "skippedProtected");
    return summary;
  } catch (const std::invalid_argument&) {
    throw StoreError::incompatible(incompleteMessage(url));
  }
}

std::vector<RegisteredLink> ScanStore::links(const std::string& url) {
  Database database = IndexDatabase::openRead(url);
  std::vector<RegisteredLink> links;
  {
    Statement rows = database.prepare("SELECT fileid, dir, name, counted FROM links ORDER BY dir");
    while (rows.step()) {
      links.push_back({.fileID = static_cast<std::uint64_t>(rows.integer(0)),
                       .folder = rows.integer(1),
                       .name = std::string(rows.text(2)),
                       .counted = rows.integer(3) != 0});
    }
  }
  // The files of a folder are read once for all its links: one look-up a link would read each again and
  // again.
  Statement files = database.prepare("SELECT name, logical, physical, mtime FROM files WHERE dir = ?");
  for (std::size_t first = 0; first < links.size();) {
    std::size_t end = first;
    std::map<std::string_view, RegisteredLink*> counted;
    for (; end < links.size() && links[end].folder == links[first].folder; ++end) {
      if (links[end].counted) counted.emplace(links[end].name, &links[end]);
    }
    if (!counted.empty()) {
      files.bind(1, links[first].folder);
      while (files.step()) {
        const auto link = counted.find(files.text(0));
        if (link == counted.end()) continue;
        link->second->file = {std::string(files.text(0)), files.size(1), files.size(2), files.integer(3)};
      }
      files.reset();
    }
    first = end;
  }
  return links;
}

std::vector<RepeatedName> ScanStore::repeatedNames(const std::string& url, std::int64_t limit,
                                                   std::uint64_t minTotal, std::string_view below,
                                                   NamesBy by) {
  Database database = IndexDatabase::openRead(url);
  const Within within(database, below);
  const char* const size = by == NamesBy::logical ? "SUM(logical)" : "SUM(physical)";
  Statement rows = database.prepare(
      within.subtree + "SELECT name, COUNT(*), SUM(logical), SUM(physical) FROM files\n" + within.condition +
      fmt::format("GROUP BY name\n"
                  "HAVING COUNT(*) > 1 AND ({0} < 0, {0}) >= (?2 < 0, ?2)\n"
                  "ORDER BY {0} < 0 DESC, {0} DESC LIMIT ?3",
                  size));
  // Totals are unsigned, SQL's integers signed: what SQL takes for negative is the larger.
  within.bind(rows);
  rows.bind(2, static_cast<std::int64_t>(minTotal));
  rows.bind(3, limit);
  std::vector<RepeatedName> names;
  while (rows.step()) {
    names.push_back({std::string(rows.text(0)), rows.integer(1), total(rows, 2), total(rows, 3)});
  }
  return names;
}

std::vector<NamedFile> ScanStore::paths(std::string_view named, const std::string& url, const RootPath& root,
                                        std::int64_t limit, std::string_view below) {
  Database database = IndexDatabase::openRead(url);
  DirPathResolver folders(database, root);
  const Within within(database, below);
  Statement rows = database.prepare(within.subtree + "SELECT dir, logical, physical, mtime FROM files " +
                                    within.condition + (below.empty() ? "WHERE" : "AND") +
                                    " name = ?2 ORDER BY physical DESC LIMIT ?3");
  within.bind(rows);
  rows.bind(2, named);
  rows.bind(3, limit);
  std::vector<NamedFile> files;
  while (rows.step()) {
    files.push_back({folders.filePath(rows.integer(0), named), rows.size(1), rows.size(2), rows.integer(3)});
  }
  return files;
}

std::vector<DupeFile> ScanStore::dupeCandidates(const std::string& url, const RootPath& root,
                                                std::uint64_t minSize) {
  Database database = IndexDatabase::openRead(url);
  DirPathResolver folders(database, root);
  Statement rows = database.prepare(
      "SELECT dir, name, logical, physical, mtime FROM files\n"
      "WHERE logical >= ?1 AND logical IN (\n"
      "  SELECT logical FROM files WHERE logical >= ?1\n"
      "  GROUP BY logical HAVING COUNT(*) > 1\n"
      ")");
  rows.bind(1, asParameter(minSize));
  std::vector<DupeFile> files;
  while (rows.step()) {
    files.push_back({.path = folders.filePath(rows.integer(0), rows.text(1)),
                     .logical = rows.size(2),
                     .physical = rows.size(3),
                     .mtime = rows.integer(4)});
  }
  return files;
}

}  // namespace quon
