#include "store/FolderScan.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "base/Clock.h"
#include "base/Text.h"
#include "platform/Files.h"
#include "scan/Walker.h"
#include "store/MemoryIndex.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

using std::chrono::duration_cast;
using std::chrono::steady_clock;

/// Identifiers of file-system events are times, in microseconds since 1970; so the present one needs no
/// journal.
std::uint64_t clockEventId() {
  constexpr double kMicroseconds = 1e6;
  return static_cast<std::uint64_t>(secondsSince1970() * kMicroseconds);
}

/// A disk that does not answer must not keep an interrupted program from leaving.
constexpr std::chrono::seconds kLongestOpening{2};

}  // namespace

FolderScan::FolderScan(const Platform& services, Options chosen)
    : platform(services), options(std::move(chosen)) {}
FolderScan::~FolderScan() = default;

FolderScan::Outcome FolderScan::run() {
  try {
    return scan();
  } catch (...) {
    closeStore();  // before the walker and with it the nodes go, whose rows may be queued
    throw;
  }
}

FolderScan::Outcome FolderScan::scan() {
  std::error_code error;
  const auto facts = platform.files.facts(options.root.path(), error);
  if (facts && !facts->isDirectory) error = std::make_error_code(std::errc::not_a_directory);
  if (error) throw std::system_error(error, "cannot scan " + displayText(options.root.path()));

  Outcome outcome;
  outcome.rootDev = facts->device;
  // Live updates do not leave the root's file system: what was found on others cannot be kept current.
  if (options.oneFileSystem) outcome.eventId = options.eventId.value_or(clockEventId());
  walkInto(options.saveIndex ? ScanStore::canonicalURL(options.indexDirectory, options.root) : "", outcome);
  if (!cancelled && !outcome.notSaved.empty() && options.keepsInMemory) keepInMemory(outcome);
  outcome.cancelled = cancelled && outcome.index.empty();  // too late once the index is in its place
  return outcome;
}

/// One walk and its index; none for the URL "".
void FolderScan::walkInto(const std::string& url, Outcome& outcome) {
  if (!url.empty()) openStore(url, outcome);
  const auto begin = steady_clock::now();
  outcome.result = walk(outcome.rootDev);
  if (!cancelled) {
    outcome.result.root->rollup();
    outcome.elapsedMs = duration_cast<std::chrono::milliseconds>(steady_clock::now() - begin).count();
    outcome.scannedAt = secondsSince1970();
    save(outcome);
  }
  closeStore();
}

/// What is in the half-written file is lost with it, so the index is made from a second walk.
void FolderScan::keepInMemory(Outcome& outcome) {
  Outcome again;
  again.rootDev = outcome.rootDev;
  again.eventId = outcome.eventId;
  try {
    again.inMemory = MemoryIndex::make();
  } catch (const StoreError&) {
    return;  // no memory to spare: then without an index
  }
  walkInto(again.inMemory->url, again);
  if (cancelled || again.index.empty()) return;
  again.notSaved = outcome.notSaved;
  outcome = std::move(again);
  outcome.index.clear();
}

/// Removes a building file that was not moved into place.
void FolderScan::closeStore() {
  const MutexLock held(lock);
  store.reset();
}

void FolderScan::openStore(const std::string& url, Outcome& outcome) {
  {
    const MutexLock held(lock);
    if (cancelled) return;
    isOpening = true;
  }
  std::unique_ptr<ScanStore> made;
  try {
    made = std::make_unique<ScanStore>(platform, url);
  } catch (const StoreError& reason) {
    outcome.notSaved = reason.what();
  }
  const MutexLock held(lock);
  store = std::move(made);
  isOpening = false;
  opened.broadcast();
}

WalkResult FolderScan::walk(std::uint32_t rootDev) {
  Walker* running = nullptr;
  {
    const MutexLock held(lock);
    walker = std::make_unique<Walker>(
        platform,
        Walker::Options{.rootDev = rootDev,
                        .oneFileSystem = options.oneFileSystem,
                        .skipPaths = options.skipPaths,
                        .mostThreads = options.threads != 0 ? 0 : Walker::kMostThreads},
        store.get());
    running = walker.get();
    if (cancelled) running->cancelRun();
  }
  const unsigned threads = options.threads != 0 ? options.threads : Walker::defaultThreads(platform);
  return running->run(std::string(options.root.prefix()), RefPtr<DirNode>(new DirNode(options.root.path())),
                      threads);
}

void FolderScan::save(Outcome& outcome) {
  ScanStore* finishing = nullptr;
  {
    const MutexLock held(lock);
    finishing = store.get();
  }
  if (finishing == nullptr) return;
  try {
    finishing->finish(options.root, outcome.elapsedMs, outcome.result, outcome.eventId, outcome.rootDev);
    outcome.index = finishing->finalURL();
    outcome.revision = finishing->revision();
  } catch (const StoreError& reason) {
    outcome.notSaved = reason.what();
  }
}

void FolderScan::cancel() {
  cancelled = true;
  const MutexLock held(lock);
  if (walker) walker->cancelRun();
  if (store) store->interrupt();
}

Progress::Snapshot FolderScan::progress() const {
  const MutexLock held(lock);
  return walker ? walker->progress->snapshot() : Progress::Snapshot();
}

std::string FolderScan::buildingFile() const {
  const auto deadline = steady_clock::now() + kLongestOpening;
  const MutexLock held(lock);
  while (isOpening && steady_clock::now() < deadline) opened.waitUntil(lock, deadline);
  return store && !MemoryIndex::isURL(store->finalURL()) ? store->buildingURL() : std::string();
}

}  // namespace quon
