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
#include "platform/Desktop.h"
#include "platform/Files.h"
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
  const std::string url = ScanStore::canonicalURL(services.folders.index(), finished.root);
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

void ScanSession::Run::load(Finished& finished, const std::string& url) {
  Loaded loaded = ScanStore::load(url, finished.root);
  if (cancelled) throw Refresh::Failure::cancelled();
  finished.outcome = {
      .elapsedMs = loaded.scanElapsedMs, .index = url, .wasLoaded = true, .message = "index loaded"};
  finished.trueAt = static_cast<std::int64_t>(loaded.scannedAt);
  finished.eventId = loaded.lastEventId;
  finished.rootDev = loaded.rootDev;
  if (request.options.catchUp) {
    const std::vector<std::string>& skipped = loaded.result.skippedProtected;
    auto [result, outcome] = Refresh::catchUp(
        services.platform, services.events, loaded,
        {.index = {.root = finished.root, .indexURL = url, .skipPaths = {skipped.begin(), skipped.end()}},
         .cancel = &catchUp});
    const std::int64_t changed = outcome.refreshedDirs + outcome.walkedSubtrees + outcome.removedSubtrees;
    finished.outcome.message =
        changed == 0 ? "index loaded — nothing changed since " + relativeDate(finished.trueAt, request.now)
                     : fmt::format("index loaded — {} changed folders caught up", changed);
    finished.outcome.caughtUp = changed;
    finished.eventId = outcome.newEventId;
    finished.trueAt = request.now;
    loaded.result = std::move(result);
  }
  finished.result = std::make_shared<WalkResult>(std::move(loaded.result));
  finished.slots = colourSlots(*finished.result->root);
}

void ScanSession::Run::scan(Finished& finished, bool hasFullDiskAccess) {
  FolderScan::Options options{.root = finished.root,
                              .threads = request.options.threads,
                              .oneFileSystem = request.options.oneFileSystem,
                              .saveIndex = request.options.saveIndex,
                              .indexDirectory = services.folders.index()};
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
  finished.outcome.index = std::move(outcome.index);
  finished.outcome.notSaved = std::move(outcome.notSaved);
  finished.trueAt = static_cast<std::int64_t>(outcome.scannedAt);
  finished.eventId = outcome.eventId;
  finished.rootDev = outcome.rootDev;
  finished.result = std::make_shared<WalkResult>(std::move(outcome.result));
  finished.slots = colourSlots(*finished.result->root);
}

void ScanSession::Run::cancel() {
  const MutexLock held(lock);
  cancelled = true;
  catchUp.cancel();
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
