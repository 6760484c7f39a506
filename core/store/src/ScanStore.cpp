// Writing an index.
//
// Walker threads queue what they found; one thread, the only one to touch the connection, drains both queues
// whole and turns them into rows inside large transactions. A folder's row is inserted when it is first
// needed, its parent's before it, so a parent always has the smaller id. The first failure is kept; from then
// on the queues are drained without writing, so that no walker blocks, and `finish` tells.
#include "store/ScanStore.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

#include <boost/unordered/unordered_flat_map.hpp>

#include "BatchTable.h"
#include "IndexSchema.h"
#include "StaleBuilds.h"
#include "base/Mutex.h"
#include "base/Path.h"
#include "base/Sha256.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "platform/Files.h"
#include "platform/Threads.h"
#include "scan/DirNode.h"
#include "store/IndexCatalog.h"
#include "store/IndexDatabase.h"
#include "store/IndexMeta.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::size_t kMostQueued = 32768;
/// The bound by size, for trees of few folders with very many files each.
/// Small, too, so that little is left to write when the walk ends and only one processor has work.
constexpr std::size_t kMostQueuedBytes = std::size_t{4} * 1024 * 1024;
/// The writer is woken for so many folders at a time: waking it for each costs more than writing it.
constexpr std::size_t kWakeAt = 256;
constexpr std::size_t kWakeAtBytes = std::size_t{512} * 1024;
constexpr std::int64_t kRowsPerTransaction = 100000;
constexpr std::size_t kWriterStack = std::size_t{1024} * 1024;
/// What file systems allow (NAME_MAX), and what is added to the last component: "-" + digest + ".sqlite" +
/// ".building-" + UUID, the longest name built from it.
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kAddedToName = 1 + 64 + 7 + 10 + 36;

double secondsSince1970() {
  const std::chrono::duration<double> since = std::chrono::system_clock::now().time_since_epoch();
  return since.count();
}

/// Rolls back what a patch of the earlier index left unfinished when it was killed, and writes what another
/// program left in a write-ahead log. Either would otherwise be taken for one of the new file that is about
/// to bear its name.
void settleEarlier(const Platform& platform, const std::string& finalURL) {
  const std::array<std::string, 2> leftovers{finalURL + "-journal", finalURL + "-wal"};
  const auto isThere = [&](const std::string& path) {
    std::error_code absent;
    return platform.files.facts(path, absent).has_value();
  };
  if (std::ranges::none_of(leftovers, isThere)) return;
  try {
    Database earlier = IndexDatabase::openWrite(finalURL, " for patching");
    earlier.exec("BEGIN IMMEDIATE");
    earlier.exec("ROLLBACK");
  } catch (const StoreError&) {
    // Not an index any more; it is about to be replaced.
  }
  for (const std::string& leftover : leftovers) platform.files.remove(leftover);
  platform.files.remove(finalURL + "-shm");
}

}  // namespace

class ScanStore::Writer {
 public:
  Writer(const Platform& platform, std::string finalURL);
  ~Writer() { abort(); }

  void record(const DirNode& node, FileBatch files) QUON_EXCLUDES(lock);
  void recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted)
      QUON_EXCLUDES(lock);
  void finish(std::string_view rootPath, std::int64_t elapsedMs, const WalkResult& result,
              std::uint64_t lastEventId, std::uint32_t rootDev);
  void abort();
  void interrupt() { interrupted.store(true); }

  const std::string finalURL;
  const std::string buildingURL;

 private:
  struct Folder {
    const DirNode* node;
    FileBatch files;
  };
  struct Link {
    const DirNode* node;
    std::string name;
    std::uint64_t fileID;
    bool counted;
  };
  struct Drained {
    std::vector<Folder> folders;
    std::vector<Link> links;
  };

  void write();
  [[nodiscard]] bool take(Drained& drained) QUON_EXCLUDES(lock);
  void writeRows(const Drained& drained);
  void writeLinks(const std::vector<Link>& links);
  std::int64_t dirId(const DirNode& node);
  void drain() QUON_EXCLUDES(lock);
  void complete(std::string_view rootPath, std::int64_t elapsedMs, const WalkResult& result,
                std::uint64_t lastEventId, std::uint32_t rootDev);

  const Platform& platform;
  std::atomic<bool> interrupted{false};

  // Writer thread, and the owner once that has ended.
  BatchTable batch;
  std::vector<BatchTable::Folder> batchFolders;
  Database database;
  Statement insertDir;
  Statement insertFile;
  Statement insertLink;
  Statement markError;
  boost::unordered_flat_map<const DirNode*, std::int64_t> dirIds;
  std::int64_t rowsInTransaction = 0;
  std::optional<StoreError> failure;

  Mutex lock;
  Condition cond;
  std::vector<Folder> queue QUON_GUARDED_BY(lock);
  std::size_t queuedBytes QUON_GUARDED_BY(lock) = 0;
  std::vector<Link> linkQueue QUON_GUARDED_BY(lock);
  bool finished QUON_GUARDED_BY(lock) = false;

  std::unique_ptr<RunningThread> thread;
};

std::string ScanStore::canonicalURL(const std::string& indexDirectory, std::string_view root) {
  std::string name(lastComponent(root));
  if (name.empty() || name == "/") name = "root";
  if (name.size() + kAddedToName > kLongestName) name.resize(kLongestName - kAddedToName);
  return indexDirectory + "/" + name + "-" + sha256Hex(root) + ".sqlite";
}

ScanStore::ScanStore(const Platform& platform, std::string finalURL)
    : writer(std::make_unique<Writer>(platform, std::move(finalURL))) {}
ScanStore::~ScanStore() = default;

void ScanStore::record(const DirNode& node, FileBatch files) {
  writer->record(node, std::move(files));
}
void ScanStore::recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) {
  writer->recordLink(fileID, node, name, counted);
}
void ScanStore::finish(std::string_view rootPath, std::int64_t elapsedMs, const WalkResult& result,
                       std::uint64_t lastEventId, std::uint32_t rootDev) {
  writer->finish(rootPath, elapsedMs, result, lastEventId, rootDev);
}
void ScanStore::abort() {
  writer->abort();
}
void ScanStore::interrupt() {
  writer->interrupt();
}
const std::string& ScanStore::finalURL() const {
  return writer->finalURL;
}
const std::string& ScanStore::buildingURL() const {
  return writer->buildingURL;
}
const char* ScanStore::patchIndexSQL() {
  return kPatchIndexScript;
}

ScanStore::Writer::Writer(const Platform& services, std::string url)
    : finalURL(std::move(url)), buildingURL(finalURL + ".building-" + freshUuid()), platform(services) {
  try {
    const std::size_t slash = finalURL.rfind('/');
    platform.files.makePrivateFolder(finalURL.substr(0, slash));
    removeStaleBuilds(platform.files, finalURL.substr(0, slash),
                      std::string_view(finalURL).substr(slash + 1));
    platform.files.createPrivateFile(buildingURL);
  } catch (const std::system_error& reason) {
    throw StoreError::sqlite("cannot open " + displayText(buildingURL) + ": " + reason.what());
  }
  try {
    database = IndexDatabase::create(buildingURL);
    database.exec(kBuildScript);
    database.stopWhen(interrupted);
    insertDir = database.prepare("INSERT INTO dirs (parent, name, mtime) VALUES (?, ?, ?)");
    batch.attach(database);
    insertFile = database.prepare(BatchTable::kInsertFiles);
    insertLink =
        database.prepare("INSERT OR REPLACE INTO links (fileid, dir, name, counted) VALUES (?, ?, ?, ?)");
    markError = database.prepare("UPDATE dirs SET error = 1 WHERE id = ?");
    thread = platform.threads.start("scanstore-writer", kWriterStack, [this] { write(); });
  } catch (const std::system_error& reason) {
    platform.files.remove(buildingURL);
    throw StoreError::sqlite("cannot open " + displayText(buildingURL) + ": " + reason.what());
  } catch (...) {
    platform.files.remove(buildingURL);
    throw;
  }
}

void ScanStore::Writer::record(const DirNode& node, FileBatch files) {
  const MutexLock held(lock);
  while (!finished && (queue.size() >= kMostQueued || queuedBytes >= kMostQueuedBytes)) cond.wait(lock);
  if (finished) return;
  queuedBytes += files.bytes();
  queue.push_back({&node, std::move(files)});
  if (queue.size() % kWakeAt == 0 || queuedBytes >= kWakeAtBytes) cond.broadcast();
}

void ScanStore::Writer::recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name,
                                   bool counted) {
  const MutexLock held(lock);
  if (!finished) linkQueue.push_back({&node, std::string(name), fileID, counted});
}

void ScanStore::Writer::write() {
  try {
    database.exec("BEGIN");
  } catch (const StoreError& error) {
    failure.emplace(error);
  }
  Drained drained;
  while (take(drained)) {
    if (failure) continue;
    try {
      writeRows(drained);
    } catch (const StoreError& error) {
      failure.emplace(error);
    }
  }
  try {
    if (!failure) database.exec("COMMIT");
  } catch (const StoreError& error) {
    failure.emplace(error);
  }
}

/// Waits for work and takes all there is; false when there is none and never will be.
bool ScanStore::Writer::take(Drained& drained) {
  drained.folders.clear();
  drained.links.clear();
  const MutexLock held(lock);
  while (!finished && queue.size() < kWakeAt && queuedBytes < kWakeAtBytes) cond.wait(lock);
  drained.folders.swap(queue);
  drained.links.swap(linkQueue);
  queuedBytes = 0;
  cond.broadcast();
  return !finished || !drained.folders.empty() || !drained.links.empty();
}

void ScanStore::Writer::writeRows(const Drained& drained) {
  writeLinks(drained.links);
  batchFolders.clear();
  for (const Folder& folder : drained.folders) {
    const std::int64_t id = dirId(*folder.node);
    if (folder.node->error) {
      markError.bind(1, id);
      markError.run();
    }
    if (folder.files.size() > 0) batchFolders.push_back({id, &folder.files});
    rowsInTransaction += static_cast<std::int64_t>(folder.files.size()) + 1;
  }
  batch.fill(batchFolders);
  insertFile.run();
  if (rowsInTransaction < kRowsPerTransaction) return;
  database.exec("COMMIT");
  database.exec("BEGIN");
  rowsInTransaction = 0;
}

void ScanStore::Writer::writeLinks(const std::vector<Link>& links) {
  for (const Link& link : links) {
    insertLink.bind(1, static_cast<std::int64_t>(link.fileID));
    insertLink.bind(2, dirId(*link.node));
    insertLink.bind(3, link.name);
    insertLink.bind(4, static_cast<std::int64_t>(link.counted));
    insertLink.run();
  }
  rowsInTransaction += static_cast<std::int64_t>(links.size());
}

std::int64_t ScanStore::Writer::dirId(const DirNode& node) {
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
    parentId = database.lastInsertRowId();
    dirIds.emplace(*next, *parentId);
  }
  return *parentId;
}

void ScanStore::Writer::drain() {
  {
    const MutexLock held(lock);
    finished = true;
    cond.broadcast();
  }
  if (thread) thread->join();
  thread.reset();
  boost::unordered_flat_map<const DirNode*, std::int64_t>().swap(dirIds);
}

void ScanStore::Writer::finish(std::string_view rootPath, std::int64_t elapsedMs, const WalkResult& result,
                               std::uint64_t lastEventId, std::uint32_t rootDev) {
  drain();
  if (failure) {
    const StoreError reason = *failure;
    abort();
    throw StoreError(reason);
  }
  try {
    complete(rootPath, elapsedMs, result, lastEventId, rootDev);
  } catch (const std::system_error& reason) {
    abort();
    throw StoreError::sqlite(reason.what());
  } catch (...) {
    abort();
    throw;
  }
}

void ScanStore::Writer::complete(std::string_view rootPath, std::int64_t elapsedMs, const WalkResult& result,
                                 std::uint64_t lastEventId, std::uint32_t rootDev) {
  database.exec(kPatchIndexScript);
  {
    Statement upsert = database.prepare("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)");
    auto rows = metaRows(rootPath, elapsedMs, result, lastEventId, rootDev, secondsSince1970());
    // For the catalogue: an unmounted volume is no deleted folder. A link may lead to it.
    std::error_code missing;
    const std::string place =
        platform.files.canonical(std::string(rootPath), missing).value_or(std::string(rootPath));
    rows.insert(rows.end() - 1,
                {"mountPoint", IndexCatalog::mountPointOf(place, platform.files.mountPoints())});
    for (const auto& [key, value] : rows) {
      upsert.bind(1, key);
      upsert.bind(2, value);
      upsert.run();
    }
  }
  for (Statement* statement : {&insertDir, &insertFile, &insertLink, &markError}) *statement = Statement();
  database.close();
  // A small index is complete before SQLite has looked at the flag once.
  if (interrupted) throw StoreError::sqlite("interrupted");
  settleEarlier(platform, finalURL);
  platform.files.replace(buildingURL, finalURL);
}

void ScanStore::Writer::abort() {
  drain();
  for (Statement* statement : {&insertDir, &insertFile, &insertLink, &markError}) *statement = Statement();
  database.close();
  try {
    platform.files.remove(buildingURL);
  } catch (const std::system_error&) {
    // The folder has gone or become read-only; the next scan's sweep finds what is left.
  }
}

}  // namespace quon
