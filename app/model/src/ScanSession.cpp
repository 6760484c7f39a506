#include "model/ScanSession.h"

#include <chrono>
#include <fmt/format.h>
#include <limits>
#include <set>
#include <system_error>
#include <utility>

#include "ScanRun.h"
#include "base/Fatal.h"
#include "base/HumanBytes.h"
#include "base/MainQueue.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/Desktop.h"
#include "scan/MapSlots.h"

namespace quon {
namespace {

constexpr std::chrono::duration<double> kProgressInterval{0.2};

std::string unreadableText(const WalkResult& result) {
  const bool one = result.errorCount == 1;
  const std::string example = result.errorSamples.empty() ? ""
                                                          : ", " + displayText(result.errorSamples.front()) +
                                                                (one ? "" : " among them");
  return fmt::format("{} {} cannot be read and {} missing from the totals{}. Check {} permissions.",
                     grouped(result.errorCount), one ? "folder" : "folders", one ? "is" : "are", example,
                     one ? "its" : "their");
}

}  // namespace

ScanSession::ScanSession(ModelState& model, Settings& keptSettings)
    : LiveUpdates(model),
      _rootPath(model, model.services.folders.home),
      _scanStats(model),
      _scanPath(model),
      _busy(model),
      _hasFullDiskAccess(model, true),
      state(model),
      settings(keptSettings),
      self(std::make_shared<ScanSession*>(this)) {}

ScanSession::~ScanSession() {
  self.reset();
  timer.cancel();
  stopLiveWatch();
  {
    const MutexLock held(runLock);
    if (run) run->cancel();
  }
  // Their threads are joined here: they use the services, which the owner may end next.
  retired.clear();
  const MutexLock held(runLock);
  run.reset();
}

void ScanSession::scanIfNeeded(const std::string& path) {
  state.perform([this, path] {
    if (!scanStarted) open(path);
  });
}

void ScanSession::open(const std::string& path) {
  state.perform([this, path] {
    scanStarted = true;
    begin(path, Purpose::open);
  });
}

void ScanSession::scan(const std::string& path) {
  state.perform([this, path] {
    scanStarted = true;
    stopLiveWatch();
    state._phase.set(Phase::scanning);
    _scanStats.set("starting…");
    begin(path, Purpose::scan);
  });
}

void ScanSession::openFolder() {
  state.services.desktop.chooseFolder(_rootPath.get(),
                                      [weak = std::weak_ptr(self)](const std::string& chosen) {
                                        if (const auto alive = weak.lock()) (*alive)->scan(chosen);
                                      });
}

void ScanSession::openPrivacySettings() {
  state.services.desktop.openPrivacySettings();
}

bool ScanSession::refreshFolders(const std::vector<std::string>& paths) {
  if (_busy.get()) changedMeanwhile.insert(changedMeanwhile.end(), paths.begin(), paths.end());
  return LiveUpdates::refreshFolders(paths) || _busy.get();
}

void ScanSession::recover() {
  const ShownTreeRef& shown = state.shownTree();
  // What runs brings a tree of its own, or leads back to this one.
  if (shown && !_busy.get()) begin(shown->root.path(), Purpose::recover);
}

/// Cancels the run before, if there is one, and makes its result void.
void ScanSession::begin(const std::string& path, Purpose purpose) {
  QUON_CHECK(scanGeneration < std::numeric_limits<std::int64_t>::max(), "the scan counter overflows");
  ++scanGeneration;
  timer.cancel();
  const std::string root = withoutTrailingSlashes(expandTilde(path, state.services.folders.home));
  if (purpose != Purpose::reload && purpose != Purpose::recover) {
    lastRun = {};
    state.clear(Problem::Kind::notScanned);
    state.clear(Problem::Kind::notLoaded);
  }
  _rootPath.set(root);
  _scanPath.set("");
  _busy.set(true);
  auto next = std::make_unique<Run>(
      state.services,
      Run::Request{.path = root, .purpose = purpose, .options = state.options, .now = state.services.now()},
      scanGeneration);
  Run& begun = *next;
  {
    const MutexLock held(runLock);
    std::swap(run, next);
  }
  if (next) {  // the run before, which is under way
    next->cancel();
    retired.push_back(std::move(next));
  }
  const auto post = [weak = std::weak_ptr(self),
                     &main = state.services.main](std::function<void(ScanSession&)> report) {
    main.post([weak, report = std::move(report)] {
      const auto alive = weak.lock();
      if (!alive) return;
      ScanSession& session = **alive;
      session.state.perform([&session, report] { report(session); });
    });
  };
  const std::int64_t generation = scanGeneration;
  try {
    begun.start(
        [post, generation](const Step& step) {
          post([step, generation](ScanSession& session) {
            if (generation == session.scanGeneration) session.take(step);
          });
        },
        [post, generation](const std::shared_ptr<Finished>& finished) {
          post([finished, generation](ScanSession& session) { session.endRun(generation, *finished); });
        });
  } catch (const std::system_error& failure) {
    {
      const MutexLock held(runLock);
      std::swap(run, next);  // it never began
    }
    if (purpose != Purpose::reload && purpose != Purpose::recover) return fail(failure.what());
    _busy.set(false);
    raiseNotReloaded(failure.what());
  }
}

void ScanSession::raiseNotReloaded(const std::string& reason) {
  state.raise(Problem::Kind::notWatched, "Changes are not followed any longer, because " +
                                             displayText(_rootPath.get()) + " cannot be opened again: " + reason +
                                             ". Rescan to follow them.");
}

void ScanSession::take(const Step& step) {
  _rootPath.set(step.root.path());
  if (step.kind == Step::Kind::loading) return _scanStats.set("loading saved index…");
  lastRun.notLoaded = step.notLoaded;
  state._phase.set(Phase::scanning);
  _scanStats.set("starting…");
  _hasFullDiskAccess.set(step.hasFullDiskAccess);
  settings.rememberRoot(step.root.path());
  scheduleProgress();
}

/// The last report of a run, whose thread ends now.
void ScanSession::endRun(std::int64_t generation, const Finished& finished) {
  std::erase_if(retired, [&](const auto& ended) { return ended->generation == generation; });
  if (generation != scanGeneration) return;
  std::unique_ptr<Run> ended;
  {
    const MutexLock held(runLock);
    ended = std::move(run);
  }
  const Purpose purpose = ended->purpose;
  timer.cancel();
  _busy.set(false);
  if (!finished.root.isEmpty()) _rootPath.set(finished.root.path());
  if (finished.result) {
    install(finished, purpose);
  } else if (finished.outcome.cancelled) {
    returnToShownTree();
    lastRun.cancelled = true;
  } else if (purpose == Purpose::reload || purpose == Purpose::recover) {
    raiseNotReloaded(finished.outcome.failure);
  } else {
    fail(finished.outcome.failure);
  }
}

void ScanSession::fail(const std::string& reason) {
  const std::string root = displayText(_rootPath.get());
  timer.cancel();
  _busy.set(false);
  lastRun.failure = reason;
  stopLiveWatch();
  state.showNothing();
  _indexedAt.set(std::nullopt);
  state.clear(Problem::Kind::notSaved);
  state.clear(Problem::Kind::unreadable);
  state._phase.set(Phase::scanning);
  _scanPath.set("");
  _scanStats.set("cannot scan " + root);
  state.raise(Problem::Kind::notScanned, "Cannot scan " + root + ": " + reason);
}

void ScanSession::install(const Finished& finished, Purpose purpose) {
  const bool isReload = purpose == Purpose::reload || purpose == Purpose::recover;
  const LastRun& outcome = finished.outcome;
  const std::string scopeBefore = state.scopePath();
  if (!isReload) {
    lastRun = outcome;
  } else if (state.shownTree()) {  // the same folders, in the colours that they have on screen
    keepSlots(*state.shownTree()->rootNode(), *finished.result->root);
  }
  state.show({.root = finished.root,
              .indexURL = finished.indexURL,
              .indexInMemory = finished.inMemory,
              .result = finished.result,
              .kindOverrides = {},
              .gate = nullptr});
  _scanStats.set("");
  _scanPath.set("");
  _indexedAt.set(finished.trueAt);
  state._phase.set(Phase::ready);
  if (isReload) {
    if (const RefPtr<DirNode> scope = state.shownTree()->folderAt(scopeBefore)) state._scope.set(scope);
  } else if (!outcome.message.empty()) {
    state._toast.set(outcome.message);
  }
  const std::string root = displayText(finished.root.path());
  if (!outcome.notLoaded.empty()) {
    state.raise(Problem::Kind::notLoaded,
                "The saved index of " + root + " could not be used, so it was scanned: " + outcome.notLoaded);
  }
  if (outcome.notSaved.empty()) {
    state.clear(Problem::Kind::notSaved);
  } else {
    const char* const consequence =
        outcome.wasLoaded ? "could not be changed, so that the next launch finds what has changed once more: "
                          : "could not be saved, so the next launch scans: ";
    state.raise(Problem::Kind::notSaved, "The index of " + root + " " + consequence + outcome.notSaved);
  }
  if (finished.result->errorCount == 0) {
    state.clear(Problem::Kind::unreadable);
  } else {
    state.raise(Problem::Kind::unreadable, unreadableText(*finished.result));
  }
  if (purpose == Purpose::recover) reportCaughtUp(finished);
  startLiveWatch({.eventId = finished.eventId,
                  .rootDev = finished.rootDev,
                  .revision = finished.revision,
                  .notRecorded = state.options.liveUpdates ? finished.notRecorded : "",
                  .changed = std::exchange(changedMeanwhile, {})});
}

/// What a recovery found changed is as good as a batch to whoever follows the changes; so is what another
/// program was faster to write.
void ScanSession::reportCaughtUp(const Finished& finished) {
  LiveWatcher::Update update{.topFiles = finished.result->topFiles,
                             .outcome = finished.caughtUp.outcome,
                             .changedDirs = finished.caughtUp.changedDirs,
                             .replacedPrefixes = finished.caughtUp.replacedPrefixes,
                             .hardlinksDeduped = finished.result->hardlinksDeduped};
  std::set<std::string> known(update.changedDirs.begin(), update.changedDirs.end());
  for (std::string& path : takeOvertaken()) {
    if (!known.insert(path).second) continue;
    update.changedDirs.push_back(std::move(path));
    ++update.outcome.refreshedDirs;
  }
  if (!update.changedDirs.empty() || !update.replacedPrefixes.empty()) report(update);
}

/// After a cancelled run. What is shown stays as it was; since nothing followed it meanwhile, and a batch may
/// have reached its index but not the tree, it is loaded again.
void ScanSession::returnToShownTree() {
  const ShownTreeRef& shown = state.shownTree();
  _scanPath.set("");
  if (!shown) {
    state._phase.set(Phase::scanning);
    return _scanStats.set("cancelled: nothing is known of " + displayText(_rootPath.get()) + " yet");
  }
  _rootPath.set(shown->root.path());
  _scanStats.set("");
  state._phase.set(Phase::ready);
  if (!state.options.liveUpdates) return;
  if (shown->indexURL.empty()) return startLiveWatch({});  // reports why it cannot
  begin(shown->root.path(), Purpose::reload);
}

void ScanSession::scheduleProgress() {
  timer = state.services.main.postAfter(kProgressInterval, [weak = std::weak_ptr(self)] {
    if (const auto alive = weak.lock()) (*alive)->showProgress();
  });
}

void ScanSession::showProgress() {
  state.perform([this] {
    Progress::Snapshot now;
    {
      const MutexLock held(runLock);
      now = run->progress();
    }
    _scanStats.set(fmt::format("{} dirs · {} files · {}", grouped(now.dirs), grouped(now.files),
                               humanBytes(now.logical)));
    _scanPath.set(now.currentPath);
    scheduleProgress();
  });
}

void ScanSession::cancel() {
  const MutexLock held(runLock);
  const bool isAsked = run && run->purpose != Purpose::reload && run->purpose != Purpose::recover;
  if (isAsked) run->cancel();
}

std::string ScanSession::buildingFile() const {
  const MutexLock held(runLock);
  return run ? run->buildingFile() : std::string();
}

}  // namespace quon
