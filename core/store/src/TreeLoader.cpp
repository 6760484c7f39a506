// Loading is one pass over the folders, by ascending id, so that a parent comes before its children, and one
// over the files, which are summed up by folder; those large enough are kept. The results are checked: an
// index may be damaged or forged, and a wrong tree is worse than none.
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
    readFiles();
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
  totals.add(IndexTotals::Folder{id, row.isNull(1) ? 0 : row.integer(1), node->name, node->mtime, node->error});
  loaded.folderDigests.push_back(0);
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

std::uint32_t TreeLoader::indexOf(std::int64_t id) const {
  const auto index = loaded.idByPath.indexOf(id);
  if (!index) refuse();
  return *index;
}

/// Another thread begins with the files while this one reads the folders; then both read files.
void TreeLoader::readFiles() {
  FileRowsReader files(second, minKeep);
  std::future<void> reading =
      // On this thread, when the system has no other to give.
      std::async(std::launch::async | std::launch::deferred, [&] { files.read(second); });
  readDirs();
  probe.mark("dirs");
  files.read(database);
  reading.get();
  applyRuns(files);
  probe.mark("aggregates");
  applyKept(files);
  probe.mark("keptFiles");
  checkTotals(files);
}

void TreeLoader::applyRuns(const FileRowsReader& files) {
  std::uint64_t allLogical = 0;
  std::uint64_t allPhysical = 0;
  for (const FileRows& rows : files.stretches()) {
    for (const FileRows::Run& run : rows.runs) {
      const std::uint32_t index = indexOf(run.folder);
      DirNode& node = loaded.idByPath.node(index);
      node.directFiles += run.files;
      // The root's totals are the sums of all: if they fit, every total does.
      if (addOverflows(allLogical, run.logical) || addOverflows(allPhysical, run.physical)) refuse();
      node.directLogical += run.logical;
      node.directPhysical += run.physical;
      node.directNewest = std::max(node.directNewest, run.newest);
      if (run.cacheTagged) node.cacheTagged = true;
      loaded.folderDigests[index] += run.digest;
    }
  }
}

void TreeLoader::applyKept(const FileRowsReader& files) {
  for (const FileRows& rows : files.stretches()) {
    for (const FileRows::Kept& kept : rows.kept) {
      if (!isEntryName(kept.file.name)) refuse();
      loaded.idByPath.node(indexOf(kept.folder)).keptFiles.push_back(kept.file);
    }
  }
}

/// Whatever damage has left a readable file behind, its rows no longer add up to what was written.
void TreeLoader::checkTotals(const FileRowsReader& files) {
  for (const FileRows& rows : files.stretches()) totals.add(rows.totals);
  const auto stored = meta.find("totals");
  if (stored == meta.end()) return;  // an index of an early version
  if (IndexTotals::decode(stored->second) != totals) refuse();
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
  loaded.revision = decodeCountOr(meta, "revision", 0);
  loaded.disk = decodeDisk(meta);
  const std::uint64_t device = decodeCountOr(meta, "rootDev", 0);
  if (device > std::numeric_limits<std::uint32_t>::max()) refuse();
  loaded.rootDev = static_cast<std::uint32_t>(device);
}

Loaded ScanStore::load(const std::string& url, const RootPath& root, std::uint64_t minKeep) {
  return TreeLoader(url, root, minKeep).load();
}

}  // namespace quon
