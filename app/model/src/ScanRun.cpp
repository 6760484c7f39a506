#include "ScanRun.h"

#include <fmt/format.h>
#include <new>
#include <set>
#include <system_error>
#include <utility>

#include "FilePaths.h"
#include "base/Path.h"
#include "base/RelativeDate.h"
#include "base/Text.h"
#include "live/Reconciliation.h"
#include "platform/Desktop.h"
#include "platform/Events.h"
#include "platform/Files.h"
#include "scan/Walker.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = std::size_t{4} * 1024 * 1024;

std::set<std::string> protectedFolders(const std::string& home) {
  return {home + "/Library/Containers", home + "/Library/Group Containers"};
}

/// Why the folder cannot be scanned; nothing when it can.
std::error_code refusal(const FileService& files, const RootPath& root) {
  std::error_code error;
  const auto facts = files.ownFacts(root.path(), error);
  if (facts && !facts->isDirectory) error = std::make_error_code(std::errc::not_a_directory);
  return error;
}

}  // namespace

ScanSession::Run::Run(const ModelServices& given, Request asked, std::int64_t ownGeneration)
    : generation(ownGeneration), purpose(asked.purpose), services(given), request(std::move(asked)) {}

void ScanSession::Run::start(std::function<void(Step)> onStep,
                             std::function<void(std::shared_ptr<Finished>)> onEnd) {
  thread = services.platform.threads.start(purpose == Purpose::scan ? "quon-scan" : "quon-load", kStackBytes,
                                           [this, onStep = std::move(onStep), onEnd = std::move(onEnd)] {
                                             const auto finished = std::make_shared<Finished>();
                                             try {
                                               work(onStep, *finished);
                                             } catch (const std::bad_alloc&) {
                                               finished->outcome.failure = "out of memory";
                                             } catch (const std::exception& failure) {
                                               finished->outcome.failure = failure.what();
                                             }
                                             if (cancelled && !finished->result)
                                               finished->outcome.cancelled = true;
                                             onEnd(finished);
                                           });
}

void ScanSession::Run::work(const std::function<void(Step)>& onStep, Finished& finished) {
  const FileService& files = services.platform.files;
  // The walk follows no links, so those that lead to the root are resolved; a root that is one is refused.
  finished.root = RootPath(withoutLinksAbove(files, request.path));
  Step step{.kind = Step::Kind::loading, .root = finished.root, .notLoaded = {}};
  const std::string url = IndexCatalog::indexFor(services.platform, services.folders.index(), finished.root);
  std::error_code absent;
  if (purpose != Purpose::scan && files.facts(url, absent)) {
    onStep(step);
    try {
      return load(finished, url);
    } catch (const std::bad_alloc&) {
      throw;  // a scan needs more of it
    } catch (const std::exception& failure) {
      if (cancelled) return;
      if (purpose == Purpose::reload) throw;
      step.notLoaded = failure.what();
      finished.outcome = {.notLoaded = step.notLoaded};
    }
  }
  if (purpose == Purpose::reload) throw StoreError::missing("no index at " + displayText(url));
  if (const std::error_code error = refusal(files, finished.root)) {
    finished.outcome.failure = error.message();
    return;
  }
  step.kind = Step::Kind::scanning;
  step.hasFullDiskAccess = services.desktop.hasFullDiskAccess();
  onStep(step);
  scan(finished, step.hasFullDiskAccess);
}

/// Another program may change the index while it is caught up; then from the beginning. What cannot be
/// written stays in memory.
void ScanSession::Run::load(Finished& finished, const std::string& url) {
  constexpr int kTries = 10;
  for (int left = kTries; true; --left) {
    try {
      return loadOnce(finished, url, url);
    } catch (const StoreError& failure) {
      if (cancelled) throw;
      if (failure.kind == StoreError::Kind::unwritable) return loadInMemory(finished, url, failure.what());
      const bool isPassing =
          failure.kind == StoreError::Kind::superseded || failure.kind == StoreError::Kind::busy;
      if (!isPassing || left == 0) throw;
    }
  }
}

void ScanSession::Run::loadInMemory(Finished& finished, const std::string& url, const std::string& reason) {
  finished.inMemory = MemoryIndex::copyOf(url);
  loadOnce(finished, url, finished.inMemory->url);
  finished.outcome.notSaved = reason;
}

/// `url` is that of the index to load and catch up, which may be a copy in memory of the one on disk.
void ScanSession::Run::loadOnce(Finished& finished, const std::string& onDisk, const std::string& url) {
  finished.outcome = {.index = onDisk, .wasLoaded = true, .message = "index loaded"};
  finished.indexURL = url;
  finished.notRecorded.clear();  // of a try before
  const IndexSummary summary = ScanStore::summary(url);
  if (request.options.catchUp || purpose == Purpose::reload || purpose == Purpose::recover) {
    catchUp(finished, url, summary);
  } else {
    std::error_code absent;
    const bool isThere = services.platform.files.facts(finished.root.path(), absent).has_value();
    if (isThere) {
      (void)Refresh::presentRoot(services.platform, {.root = finished.root, .indexURL = url}, summary.disk,
                                 summary.rootDev);
    }
    Loaded loaded = ScanStore::load(url, finished.root);
    finished.outcome.elapsedMs = loaded.scanElapsedMs;
    finished.trueAt = static_cast<std::int64_t>(loaded.scannedAt);
    finished.eventId = loaded.lastEventId;
    finished.rootDev = loaded.rootDev;
    finished.revision = loaded.revision;
    finished.result = std::make_shared<WalkResult>(std::move(loaded.result));
  }
  if (cancelled) throw Refresh::Failure::cancelled();
}

std::uint64_t ScanSession::Run::beginRecording(Finished& finished) {
  const bool waits = request.options.liveUpdates || request.options.waitsForRecorder;
  const Coverage coverage = services.events.cover(
      finished.root.path(), waits ? EventService::CoverMode::wait : EventService::CoverMode::ask,
      stopping.get_token());
  finished.notRecorded = coverage.since != 0 ? "" : coverage.reason;
  if (coverage.since == 0 && finished.notRecorded.empty()) finished.notRecorded = "no program records them";
  return services.events.currentEventId();
}

/// By the journal where that knows all that has changed, else by a walk, which runs beside the load.
void ScanSession::Run::catchUp(Finished& finished, const std::string& url, const IndexSummary& summary) {
  using Refresh::Failure;
  const std::vector<std::string>& skipped = summary.skippedProtected;
  const Refresh::CatchUpOptions options{
      .index = Refresh::rootToCatchUp(
          services.platform,
          {.root = finished.root, .indexURL = url, .skipPaths = {skipped.begin(), skipped.end()}}, summary),
      .stopped = stopping.get_token()};
  finished.eventId = services.events.currentEventId();
  std::optional<Refresh::Reconciliation> walk;
  Refresh::Changes changes;
  try {
    changes = Refresh::changesSince(services.platform, services.events, summary.lastEventId, options);
  } catch (const Failure& failure) {
    if (!failure.wantsReconciling) throw;
    finished.eventId = beginRecording(finished);
    const unsigned threads = request.options.threads;
    walk.emplace(services.platform, options.index,
                 threads != 0 ? threads : Walker::defaultThreads(services.platform));
  }
  Loaded loaded = ScanStore::load(url, finished.root);
  if (walk) {
    const std::stop_callback ending(stopping.get_token(), [&] { walk->cancel(); });
    changes = walk->changes(loaded);
    walk.reset();
    if (changes.size() > options.maxChanges) throw Failure::tooManyChanges(changes.size());
  }
  const auto trueAt = static_cast<std::int64_t>(loaded.scannedAt);
  Refresh::Applied applied =
      Refresh::applyChanges(services.platform, changes, finished.eventId, loaded, options);
  const Refresh::Outcome& outcome = applied.outcome;
  const std::int64_t changed = outcome.refreshedDirs + outcome.walkedSubtrees + outcome.removedSubtrees;
  finished.outcome.elapsedMs = loaded.scanElapsedMs;
  finished.outcome.message = changed == 0
                                 ? "index loaded — nothing changed since " + relativeDate(trueAt, request.now)
                                 : fmt::format("index loaded — {} changed folders caught up", changed);
  finished.outcome.caughtUp = changed;
  finished.trueAt = request.now;
  finished.rootDev = options.index.rootDev;
  finished.revision = outcome.revision;
  finished.result = std::make_shared<WalkResult>(std::exchange(applied.result, {}));
  finished.caughtUp = std::move(applied);
}

void ScanSession::Run::scan(Finished& finished, bool hasFullDiskAccess) {
  FolderScan::Options options{.root = finished.root,
                              .threads = request.options.threads,
                              .oneFileSystem = request.options.oneFileSystem,
                              .saveIndex = request.options.saveIndex,
                              .indexDirectory = services.folders.index(),
                              .keepsInMemory = request.options.liveUpdates};
  if (request.options.oneFileSystem) options.eventId = beginRecording(finished);
  if (!hasFullDiskAccess) options.skipPaths = protectedFolders(services.folders.home);
  FolderScan* scanning = nullptr;
  {
    const MutexLock held(lock);
    folderScan = std::make_unique<FolderScan>(services.platform, std::move(options));
    if (cancelled) folderScan->cancel();
    scanning = folderScan.get();
  }
  FolderScan::Outcome outcome = scanning->run();
  finished.outcome.cancelled = outcome.cancelled;
  if (outcome.cancelled) return;
  finished.outcome.elapsedMs = outcome.elapsedMs;
  finished.inMemory = std::move(outcome.inMemory);
  finished.indexURL = finished.inMemory ? finished.inMemory->url : outcome.index;
  finished.outcome.index = std::move(outcome.index);
  finished.outcome.notSaved = std::move(outcome.notSaved);
  finished.trueAt = static_cast<std::int64_t>(outcome.scannedAt);
  finished.eventId = outcome.eventId;
  finished.rootDev = outcome.rootDev;
  finished.revision = outcome.revision;
  finished.result = std::make_shared<WalkResult>(std::move(outcome.result));
}

void ScanSession::Run::cancel() {
  const MutexLock held(lock);
  cancelled = true;
  stopping.request_stop();
  if (folderScan) folderScan->cancel();
}

Progress::Snapshot ScanSession::Run::progress() const {
  const MutexLock held(lock);
  return folderScan ? folderScan->progress() : Progress::Snapshot();
}

std::string ScanSession::Run::buildingFile() const {
  const MutexLock held(lock);
  return folderScan ? folderScan->buildingFile() : std::string();
}

}  // namespace quon
