// Scans and loads. Each is a Run on a thread of its own; what it brings back counts only while scanGeneration
// is the one it was begun with. A newer run cancels the older one, whose thread is joined once it says that
// it is done: nothing here waits for one.
#include <chrono>
#include <fmt/format.h>
#include <limits>
#include <set>
#include <system_error>
#include <utility>

#include "ModelRun.h"
#include "base/HumanBytes.h"
#include "base/Log.h"
#include "base/Path.h"
#include "base/RelativeDate.h"
#include "base/Text.h"
#include "platform/Desktop.h"
#include "platform/Files.h"
#include "platform/UserDefaults.h"
#include "rows/FolderRows.h"
#include "store/StoreError.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = std::size_t{4} * 1024 * 1024;
constexpr std::chrono::duration<double> kProgressInterval{0.2};
constexpr std::size_t kMostRecentRoots = 6;

std::set<std::string> protectedFolders(const std::string& home) {
  return {home + "/Library/Containers", home + "/Library/Group Containers"};
}

std::set<std::string> asSet(const std::vector<std::string>& paths) {
  return {paths.begin(), paths.end()};
}

}  // namespace

void AppModel::scanIfNeeded(const std::string& path) {
  if (scanStarted) return;
  scanStarted = true;
  change([&] {
    _rootPath.set(rootAt(path));
    collectIndexGarbage();
    const std::string url = indexURL();
    std::error_code absent;
    if (!services.platform.files.facts(url, absent)) return startScan(_rootPath.get());
    startLoad(url);
  });
}

void AppModel::scan(const std::string& path) {
  scanStarted = true;
  const std::string root = rootAt(path);
  if (changing) {
    wantedNext = root;
  } else {
    change([&] { startScan(root); });
  }
}

/// Takes the steps of a change during which observers are told. The scan that one of them asks for begins
/// when all steps are taken: begun between two of them it would be a scan of one root that the remaining
/// steps take for that of another.
void AppModel::change(FunctionRef<void()> steps) {
  if (changing) return steps();
  {
    struct Changing {
      explicit Changing(bool& flag) : isChanging(flag) { isChanging = true; }
      ~Changing() { isChanging = false; }
      Changing(const Changing&) = delete;
      Changing& operator=(const Changing&) = delete;
      bool& isChanging;
    };
    const Changing marked(changing);
    steps();
  }
  if (const auto next = std::exchange(wantedNext, std::nullopt)) scan(*next);
}

void AppModel::startScan(std::string root) {
  liveWatcher.reset();
  voidLenses();
  Run& begun = beginRun();
  _phase.set(Phase::scanning);
  _rootPath.set(std::move(root));
  _scanStats.set("starting…");
  _scanPath.set("");
  indexFresh = false;
  lastRun = {.notLoaded = std::move(lastRun.notLoaded)};
  std::error_code error;
  const auto facts = services.platform.files.ownFacts(_rootPath.get(), error);
  if (facts && !facts->isDirectory) error = std::make_error_code(std::errc::not_a_directory);
  if (error) return fail(error.message());
  rememberRoot(_rootPath.get());
  _hasFullDiskAccess.set(services.desktop.hasFullDiskAccess());
  FolderScan::Options options{.root = RootPath(_rootPath.get()),
                              .threads = conduct.threads,
                              .oneFileSystem = conduct.oneFileSystem,
                              .saveIndex = conduct.saveIndex,
                              .indexDirectory = services.folders.index()};
  if (!_hasFullDiskAccess.get()) options.skipPaths = protectedFolders(services.folders.home);
  {
    const MutexLock held(runLock);
    begun.scan = std::make_unique<FolderScan>(services.platform, std::move(options));
    if (begun.cancelled) begun.scan->cancel();  // by an observer of what was set since
  }
  scheduleProgress();
  launch("quon-scan", [scan = begun.scan.get()](Finished& finished) {
    FolderScan::Outcome outcome = scan->run();
    finished.told = {.elapsedMs = outcome.elapsedMs,
                     .index = std::move(outcome.index),
                     .notSaved = std::move(outcome.notSaved),
                     .cancelled = outcome.cancelled};
    if (outcome.cancelled) return;
    finished.trueAt = static_cast<std::int64_t>(outcome.scannedAt);
    finished.eventId = outcome.eventId;
    finished.rootDev = outcome.rootDev;
    finished.result = std::make_shared<WalkResult>(std::move(outcome.result));
    finished.slots = colourSlots(*finished.result->root);
  });
}

void AppModel::startLoad(const std::string& url) {
  Run& begun = beginRun();
  _scanStats.set("loading saved index…");
  launch("quon-load", [&begun, url, root = _rootPath.get(), bringUpToDate = conduct.catchUp,
                       &platform = services.platform, &events = services.events,
                       now = services.now()](Finished& finished) {
    finished.isLoad = true;
    Loaded loaded = ScanStore::load(url, RootPath(root));
    finished.told = {.elapsedMs = loaded.scanElapsedMs, .index = url, .wasLoaded = true};
    finished.trueAt = static_cast<std::int64_t>(loaded.scannedAt);
    finished.eventId = loaded.lastEventId;
    finished.rootDev = loaded.rootDev;
    finished.told.message = "index loaded";
    if (bringUpToDate) {
      auto [result, outcome] =
          Refresh::catchUp(platform, events, loaded,
                           {.index = {.root = RootPath(root),
                                      .indexURL = url,
                                      .skipPaths = asSet(loaded.result.skippedProtected)},
                            .cancel = &begun.catchUp});
      const std::int64_t changed = outcome.refreshedDirs + outcome.walkedSubtrees + outcome.removedSubtrees;
      finished.told.message =
          changed == 0 ? "index loaded — nothing changed since " + relativeDate(finished.trueAt, now)
                       : fmt::format("index loaded — {} changed folders caught up", changed);
      finished.told.caughtUp = changed;
      finished.eventId = outcome.newEventId;
      finished.trueAt = now;
      loaded.result = std::move(result);
    }
    finished.result = std::make_shared<WalkResult>(std::move(loaded.result));
    finished.slots = colourSlots(*finished.result->root);
  });
}

/// Cancels the run before, if there is one, and makes its result void.
AppModel::Run& AppModel::beginRun() {
  QUON_CHECK(scanGeneration < std::numeric_limits<std::int64_t>::max(), "the scan counter overflows");
  ++scanGeneration;
  timer.cancel();
  auto next = std::make_unique<Run>();
  next->generation = scanGeneration;
  Run& begun = *next;
  std::unique_ptr<Run> before;
  {
    const MutexLock held(runLock);
    before = std::exchange(run, std::move(next));
  }
  if (before && before->thread) {
    before->cancel();
    retired.push_back(std::move(before));
  }
  return begun;
}

/// Runs the work of the present run on its thread and brings back what comes of it.
void AppModel::launch(const char* threadName, std::function<void(Finished&)> work) {
  busy = true;
  Run* begun = nullptr;
  {
    const MutexLock held(runLock);
    begun = run.get();
  }
  const auto body = [work = std::move(work), generation = scanGeneration, weak = Self(self), &begun = *begun,
                     &main = services.main] {
    const auto finished = std::make_shared<Finished>();
    try {
      work(*finished);
    } catch (const std::exception& failure) {
      finished->failure = failure.what();
    }
    if (begun.cancelled && !finished->result) finished->told.cancelled = true;
    main.post([weak, generation, finished] {
      if (const auto alive = weak.lock()) (*alive)->endRun(generation, finished);
    });
  };
  try {
    begun->thread = services.platform.threads.start(threadName, kStackBytes, body);
  } catch (const std::system_error& failure) {
    fail(failure.what());
  }
}

void AppModel::endRun(std::int64_t generation, const std::shared_ptr<Finished>& finished) {
  std::erase_if(retired, [&](const auto& ended) { return ended->generation == generation; });
  if (generation != scanGeneration) return;
  busy = false;
  timer.cancel();
  change([&] {
    if (finished->told.cancelled) {
      lastRun = {.cancelled = true};
    } else if (finished->failure.empty()) {
      install(*finished);
    } else if (finished->isLoad) {
      lastRun.notLoaded = finished->failure;
      startScan(_rootPath.get());
    } else {
      fail(finished->failure);
    }
  });
}

void AppModel::fail(const std::string& reason) {
  busy = false;
  timer.cancel();
  dropTree();
  lastRun.failure = reason;
  _scanStats.set("cannot scan " + displayText(_rootPath.get()));
}

/// There is nothing to show, and nothing that was asked of it counts.
void AppModel::dropTree() {
  voidLenses();
  entriesCache.reset();
  displayedCache.reset();
  reclaimAllCache.reset();
  slotIndex.clear();
  indexFresh = false;
  _scope.set(nullptr);
  _result.set(nullptr);
  _selection.set(std::nullopt);
  _hovered.set(std::nullopt);
  _indexedAt.set(std::nullopt);
  dropHits();
  paletteGen->advance();
  _paletteHits.set({});
  _paletteSearching.set(false);
}

void AppModel::install(const Finished& finished) {
  std::string notLoaded = std::move(lastRun.notLoaded);
  lastRun = finished.told;
  lastRun.notLoaded = std::move(notLoaded);
  indexFresh = !lastRun.index.empty();
  entriesCache.reset();
  displayedCache.reset();
  reclaimAllCache.reset();
  slotIndex = finished.slots;
  shownRoot = _rootPath.get();
  // Also what was asked while the run was under way: it is of the tree before.
  voidLenses();
  _result.set(finished.result);
  _scope.set(finished.result->root);
  _selection.set(std::nullopt);
  _hovered.set(std::nullopt);
  _scanStats.set("");
  _scanPath.set("");
  _indexedAt.set(finished.trueAt);
  _phase.set(Phase::ready);
  // What was searched in the tree before is void, whether there is a query now or not.
  dropHits();
  scheduleSearch();
  _paletteHits.set({});
  schedulePaletteSearch(lastPaletteText);
  startLiveWatch(*finished.result, finished.eventId, finished.rootDev);
  if (!lastRun.message.empty()) _toast.set(lastRun.message);
}

void AppModel::rememberRoot(const std::string& root) {
  std::vector<std::string> roots = services.defaults.texts("recentRoots");
  std::erase(roots, root);
  roots.insert(roots.begin(), root);
  if (roots.size() > kMostRecentRoots) roots.resize(kMostRecentRoots);
  try {
    services.defaults.setTexts("recentRoots", roots);
  } catch (const std::system_error& failure) {
    services.log.line(failure.what());
  }
}

void AppModel::scheduleProgress() {
  timer = services.main.postAfter(kProgressInterval, [weak = Self(self)] {
    if (const auto alive = weak.lock()) (*alive)->tellProgress();
  });
}

void AppModel::tellProgress() {
  change([this] {
    Progress::Snapshot now;
    {
      const MutexLock held(runLock);
      now = run->scan->progress();
    }
    _scanStats.set(fmt::format("{} dirs · {} files · {}", grouped(now.dirs), grouped(now.files),
                               humanBytes(now.logical)));
    _scanPath.set(now.currentPath);
    scheduleProgress();
  });
}

void AppModel::cancel() {
  const MutexLock held(runLock);
  if (run) run->cancel();
}

std::string AppModel::buildingFile() const {
  const MutexLock held(runLock);
  return run && run->scan ? run->scan->buildingFile() : std::string();
}

}  // namespace quon
