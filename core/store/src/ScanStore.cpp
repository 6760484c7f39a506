// Writing an index.
//
// Walker threads queue what they found (RowQueue); one thread, the only one to touch the connection, takes
// all that is queued and turns it into rows (RowWriter) of a file beside the final one (BuildingFile). The
// first failure is kept; from then on the queue is emptied without writing, so that no walker blocks, and
// `finish` throws it.
#include "store/ScanStore.h"

#include <atomic>
#include <new>
#include <optional>
#include <system_error>
#include <utility>

#include "BuildingFile.h"
#include "DiskIndexes.h"
#include "IndexDatabase.h"
#include "IndexMeta.h"
#include "IndexSchema.h"
#include "RowQueue.h"
#include "RowWriter.h"
#include "base/Clock.h"
#include "base/Path.h"
#include "base/Sha256.h"
#include "base/Text.h"
#include "platform/Threads.h"
#include "store/IndexCatalog.h"
#include "store/MemoryIndex.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::size_t kWriterStack = std::size_t{1024} * 1024;
/// What file systems allow (NAME_MAX), and what is added to the last component: "-" + digest + "@" + disk +
/// ".sqlite" + ".building-" + UUID, the longest name built from it.
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kAddedToName = 1 + 64 + 17 + 7 + 10 + 36;

}  // namespace

class ScanStore::Writer {
 public:
  /// `final` is a file's path, or the name of an index in memory, which is written where it is.
  Writer(const Platform& platform, std::string final);
  ~Writer() { abort(); }

  void finish(const RootPath& root, std::int64_t elapsedMs, const WalkResult& result,
              std::uint64_t lastEventId, std::uint32_t rootDev);
  void abort();
  void interrupt() { interrupted.store(true); }

  const std::uint64_t revision = freshRevision();
  const std::string finalURL;
  std::optional<BuildingFile> file;
  const std::string buildingURL;
  RowQueue queue;

 private:
  void write();
  void drain();
  void writeFigures(const RootPath& root, std::int64_t elapsedMs, const WalkResult& result,
                    std::uint64_t lastEventId, std::uint32_t rootDev);

  const Platform& platform;
  std::atomic<bool> interrupted{false};

  // Writer thread, and the owner once that has ended.
  Database database;
  std::optional<RowWriter> rows;
  std::optional<StoreError> failure;
  IndexTotals totals;
  DiskIdentity disk;

  std::unique_ptr<RunningThread> thread;
};

std::string ScanStore::canonicalURL(const std::string& indexDirectory, const RootPath& root) {
  std::string name(lastComponent(root.path()));
  if (name.empty() || name == "/") name = "root";
  if (name.size() + kAddedToName > kLongestName) name.resize(kLongestName - kAddedToName);
  return indexDirectory + "/" + name + "-" + sha256Hex(root.path()) + ".sqlite";
}

ScanStore::ScanStore(const Platform& platform, std::string finalURL)
    : writer(std::make_unique<Writer>(platform, std::move(finalURL))) {}
ScanStore::~ScanStore() = default;

void ScanStore::record(const DirNode& node, FileBatch files) {
  writer->queue.push(FolderRows{&node, std::move(files)});
}
void ScanStore::recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) {
  writer->queue.push(LinkRow{&node, std::string(name), fileID, counted});
}
void ScanStore::finish(const RootPath& root, std::int64_t elapsedMs, const WalkResult& result,
                       std::uint64_t lastEventId, std::uint32_t rootDev) {
  writer->finish(root, elapsedMs, result, lastEventId, rootDev);
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
std::uint64_t ScanStore::revision() const {
  return writer->revision;
}
const char* ScanStore::patchIndexSQL() {
  return patchIndexScript().c_str();
}

ScanStore::Writer::Writer(const Platform& services, std::string final)
    : finalURL(std::move(final)),
      file(MemoryIndex::isURL(finalURL) ? std::nullopt
                                        : std::optional<BuildingFile>(std::in_place, services.files, finalURL)),
      buildingURL(file ? file->url : finalURL),
      platform(services) {
  database = IndexDatabase::create(buildingURL);
  database.exec(buildScript().c_str());
  database.stopWhen(interrupted);
  rows.emplace(database);
  try {
    thread = platform.threads.start("scanstore-writer", kWriterStack, [this] { write(); });
  } catch (const std::system_error& reason) {
    throw StoreError::sqlite("cannot open " + displayText(buildingURL) + ": " + reason.what());
  }
}

/// The writer thread's body.
void ScanStore::Writer::write() {
  const auto unlessFailed = [this](auto step) {
    if (failure) return;
    try {
      step();
    } catch (const StoreError& error) {
      failure.emplace(error);
    } catch (const std::bad_alloc&) {
      failure.emplace(StoreError::sqlite("out of memory"));
    }
  };
  unlessFailed([this] { rows->begin(); });
  QueuedRows taken;
  while (queue.take(taken)) unlessFailed([&] { rows->write(taken); });
  unlessFailed([this] { rows->commit(); });
}

void ScanStore::Writer::drain() {
  queue.close();
  if (thread) thread->join();
  thread.reset();
  if (rows) totals = rows->totals();
  rows.reset();
}

void ScanStore::Writer::finish(const RootPath& root, std::int64_t elapsedMs, const WalkResult& result,
                               std::uint64_t lastEventId, std::uint32_t rootDev) {
  drain();
  disk = platform.files.disk(root.path());
  try {
    if (failure) throw StoreError(*failure);
    writeFigures(root, elapsedMs, result, lastEventId, rootDev);
    database.close();
    // A small index is complete before SQLite has checked the flag once.
    if (interrupted) throw StoreError::sqlite("interrupted");
    if (file) {
      DiskIndexes::makeRoom(platform, finalURL, disk);
      file->moveIntoPlace();
      DiskIndexes::removeWaiting(platform.files, finalURL, disk);
    }
  } catch (const std::system_error& reason) {
    abort();
    throw StoreError::sqlite(reason.what());
  } catch (...) {
    abort();
    throw;
  }
}

void ScanStore::Writer::writeFigures(const RootPath& root, std::int64_t elapsedMs, const WalkResult& result,
                                     std::uint64_t lastEventId, std::uint32_t rootDev) {
  // The rows are in the file: what was their cache is now for sorting them.
  database.exec("PRAGMA cache_size=-8192; PRAGMA shrink_memory");
  database.exec(patchIndexScript().c_str());
  // For the catalogue: an unmounted volume is no deleted folder. A link may lead to it.
  std::error_code missing;
  const std::string place = platform.files.canonical(root.path(), missing).value_or(root.path());
  std::string mountPoint;
  try {
    mountPoint = IndexCatalog::mountPointOf(place, platform.files.mountPoints());
  } catch (const std::system_error&) {
    // In a sandbox without /proc. The catalogue does without.
  }
  const ScanFigures figures{.rootPath = root.path(),
                            .mountPoint = mountPoint,
                            .elapsedMs = elapsedMs,
                            .lastEventId = lastEventId,
                            .rootDev = rootDev,
                            .scannedAt = secondsSince1970(),
                            .disk = disk,
                            .totals = totals,
                            .revision = revision};
  for (const auto& [key, value] : metaRows(figures, result)) writeMeta(database, key, value);
}

void ScanStore::Writer::abort() {
  drain();
  database.close();
  if (file) file->remove();
}

}  // namespace quon
