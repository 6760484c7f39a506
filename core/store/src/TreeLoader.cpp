// Loading runs three flat queries: the folders by ascending id, so that a parent comes before its children;
// the files' sums by folder; the files large enough to be kept. Their results are checked: an index may be
// damaged or forged, and a wrong tree is worse than none.
#include "TreeLoader.h"

#include <algorithm>
#include <future>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "EntryName.h"
#include "IndexDatabase.h"
#include "IndexSchema.h"
#include "base/Text.h"
#include "scan/DirNode.h"
#include "store/StoreError.h"

namespace quon {
namespace {

bool addOverflows(std::uint64_t& total, std::uint64_t value) {
  return __builtin_add_overflow(total, value, &total);
}

}  // namespace

TreeLoader::TreeLoader(std::string path, RootPath root, std::uint64_t keep)
    : url(std::move(path)), rootPath(std::move(root)), minKeep(keep) {
  loaded.idByPath = DirIds(rootPath);
}

Loaded TreeLoader::load() {
  open();
  try {
    acceptMeta();
    probe.mark("meta");
    std::future<std::vector<FolderSums>> sums =
        // On this thread, when the system has no other to give.
        std::async(std::launch::async | std::launch::deferred, [this] { return readAggregates(); });
    readDirs();
    probe.mark("dirs");
    readKeptFiles();
    probe.mark("keptFiles");
    applyAggregates(sums.get());
    checkKeptFiles();
    probe.mark("aggregates");
    loaded.result.root->rollup();
    probe.mark("rollup");
    readFigures();
    probe.mark("topFiles");
  } catch (const std::invalid_argument&) {  // a figure of the metadata
    refuse();
  }
  return std::move(loaded);
}

/// While both connections have their read locks nobody can commit, so both see the same. A writer that is
/// about to commit lets no second reader in and waits for the first: then the first gives way, and both try
/// again.
void TreeLoader::open() {
  constexpr int kTries = 20;
  constexpr int kWaitMs = 2000;
  database = IndexDatabase::openRead(url);
  second = IndexDatabase::openRead(url);
  for (int left = kTries; true; --left) {
    IndexDatabase::beginRead(database, kWaitMs);
    try {
      IndexDatabase::beginRead(second, 0);
      return;
    } catch (const StoreError&) {
      if (left == 0) throw;
      database.exec("ROLLBACK");
    }
  }
}

void TreeLoader::refuse() const {
  throw StoreError::incompatible(incompleteMessage(url));
}

void TreeLoader::acceptMeta() {
  meta = readMeta(database);
  if (meta["complete"] != "1" || meta["format"] != std::to_string(ScanStore::formatVersion)) refuse();
  if (meta["root"] != rootPath.path()) {
    throw StoreError::incompatible("index is for " + displayText(meta["root"]) + ", not " +
                                   displayText(rootPath.path()));
  }
}

void TreeLoader::readDirs() {
  Statement rows = database.prepare("SELECT id, parent, name, mtime, error FROM dirs ORDER BY id");
  while (rows.step()) addDir(rows);
  if (!loaded.result.root) throw StoreError::incompatible("index has no root dir");
}

void TreeLoader::addDir(const Statement& row) {
  RefPtr<DirNode> node(new DirNode(std::string(row.text(2))));
  node->mtime = row.integer(3);
  node->error = row.integer(4) != 0;
  const std::int64_t id = row.integer(0);
  if (row.isNull(1)) {
    // A root that comes later would have children before it, which are refused below for want of a parent.
    if (loaded.result.root) refuse();
    (void)loaded.idByPath.add(id, 0, *node);  // the first is never refused
    loaded.result.root = std::move(node);
    return;
  }
  const auto parent = loaded.idByPath.indexOf(row.integer(1));
  if (!parent || !isEntryName(node->name)) refuse();
  if (loaded.idByPath.size() >= std::numeric_limits<std::uint32_t>::max()) refuse();
  if (!loaded.idByPath.add(id, *parent, *node)) refuse();
  DirNode& above = loaded.idByPath.node(*parent);
  node->parent = &above;
  above.subdirs.push_back(std::move(node));
}

DirNode& TreeLoader::folderOf(std::int64_t id) const {
  const auto index = loaded.idByPath.indexOf(id);
  if (!index) refuse();
  return loaded.idByPath.node(*index);
}

/// On a thread of its own: uses nothing but the second connection.
std::vector<TreeLoader::FolderSums> TreeLoader::readAggregates() {
  Statement rows =
      second.prepare("SELECT dir, COUNT(*), SUM(logical), SUM(physical), MAX(mtime) FROM files GROUP BY dir");
  std::vector<FolderSums> sums;
  while (rows.step()) {
    // sum() yields the bits of an unsigned total.
    sums.push_back({rows.integer(0), rows.size(1), static_cast<std::uint64_t>(rows.integer(2)),
                    static_cast<std::uint64_t>(rows.integer(3)), rows.integer(4)});
  }
  return sums;
}

void TreeLoader::applyAggregates(const std::vector<FolderSums>& sums) {
  std::uint64_t allLogical = 0;
  std::uint64_t allPhysical = 0;
  std::optional<std::int64_t> before;
  for (const FolderSums& sum : sums) {
    if (before && sum.folder <= *before)
      refuse();  // one group a folder, unless the file's own index is damaged
    before = sum.folder;
    DirNode& node = folderOf(sum.folder);
    node.directFiles = sum.files;
    node.directLogical = sum.logical;
    node.directPhysical = sum.physical;
    node.directNewest = std::max<std::int64_t>(0, sum.newest);  // as the walk counts, from 0 upwards
    // The root's totals are these sums: if they fit, every total does.
    if (addOverflows(allLogical, sum.logical) || addOverflows(allPhysical, sum.physical)) refuse();
  }
}

void TreeLoader::readKeptFiles() {
  Statement rows = database.prepare(
      "SELECT dir, name, logical, physical, mtime FROM files WHERE logical >= ? OR name = ?");
  const auto leastKept =
      static_cast<std::int64_t>(std::min<std::uint64_t>(minKeep, std::numeric_limits<std::int64_t>::max()));
  rows.bind(1, leastKept);
  rows.bind(2, DirNode::kCacheTag);
  while (rows.step()) {
    if (!isEntryName(rows.text(1))) refuse();
    DirNode& node = folderOf(rows.integer(0));
    if (rows.text(1) == DirNode::kCacheTag) node.cacheTagged = true;
    if (rows.integer(2) < leastKept) continue;
    if (node.keptFiles.empty()) keeping.push_back(&node);
    node.keptFiles.push_back({std::string(rows.text(1)), rows.size(2), rows.size(3), rows.integer(4)});
  }
}

/// The sums may have been read through the file's own index, the kept files were not: a file in which the two
/// disagree is damaged.
void TreeLoader::checkKeptFiles() const {
  for (const DirNode* node : keeping) {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    for (const FileEntry& file : node->keptFiles) {
      if (addOverflows(logical, file.logical) || addOverflows(physical, file.physical)) refuse();
    }
    const bool fits = logical <= node->directLogical && physical <= node->directPhysical &&
                      node->keptFiles.size() <= node->directFiles;
    if (!fits) refuse();
  }
}

void TreeLoader::readFigures() {
  WalkResult& result = loaded.result;
  result.topFiles = decodeTopFiles(meta);
  result.errorCount = decodeCount(meta, "errorCount");
  result.errorSamples = decodePaths(meta, "errorSamples");
  result.hardlinksDeduped = decodeCount(meta, "hardlinksDeduped");
  result.skippedProtected = decodePaths(meta, "skippedProtected");
  loaded.scannedAt = decodeSeconds(meta, "scannedAt");
  const std::uint64_t elapsedMs = decodeCount(meta, "elapsedMs");
  if (elapsedMs > std::numeric_limits<std::int64_t>::max()) refuse();
  loaded.scanElapsedMs = static_cast<std::int64_t>(elapsedMs);
  // Absent from an index that cannot be caught up; the catch-up reports it.
  loaded.lastEventId = decodeCountOr(meta, "lastEventId", 0);
  loaded.hasLinkRegistry = meta.contains("linksVersion") && meta["linksVersion"] == "1";
  const std::uint64_t device = decodeCountOr(meta, "rootDev", 0);
  if (device > std::numeric_limits<std::uint32_t>::max()) refuse();
  loaded.rootDev = static_cast<std::uint32_t>(device);
}

Loaded ScanStore::load(const std::string& url, const RootPath& root, std::uint64_t minKeep) {
  return TreeLoader(url, root, minKeep).load();
}

}  // namespace quon
