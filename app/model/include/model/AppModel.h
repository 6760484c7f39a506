#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/FunctionRef.h"
#include "base/GenerationBox.h"
#include "base/MainQueue.h"
#include "base/Mutex.h"
#include "base/Observed.h"
#include "lenses/Kinds.h"
#include "lenses/Reclaim.h"
#include "live/LiveWatcher.h"
#include "model/Lens.h"
#include "model/TreeGate.h"
#include "platform/Folders.h"
#include "platform/Platform.h"
#include "rows/Entry.h"
#include "rows/SlotIndex.h"
#include "scan/ScanCancel.h"
#include "scan/WalkResult.h"
#include "search/SearchChip.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"

namespace quon {

class BackgroundQueue;
class DesktopService;
class EventService;
class FolderScan;
class Log;
class RunningThread;
class UserDefaults;
struct DupeResult;
struct MisnamedFile;
struct SearchHits;
struct VolumeTruth;

/// All that the user sees and does: the scan result, where in it the user looks, the lenses' results, the
/// search. Window and terminal command drive the same object.
///
/// Fields with a leading underscore are observed; views read them and set none but those marked "views set".
/// Scans and loads run on threads of their own, searches and lenses on queues; each brings its result back to
/// the main queue, where it counts only if nothing newer was begun meanwhile.
///
/// Threads: main only, except `cancel` and `buildingFile`.
class AppModel {
 public:
  static constexpr std::uint64_t minKeep = 1048576;  ///< bytes; files from this size on are rows of their own
  static constexpr std::size_t childCap = 500;       ///< rows of a listing before the rest
  /// Bytes on disk; names whose files together take less are noise.
  static constexpr std::uint64_t leastNameTotal = 10485760;
  static constexpr std::size_t paletteCap = 250;  ///< files that the command bar lists

  /// What the model works with; all of it outlives it. The queues are serial.
  struct Services {
    const Platform& platform;
    EventService& events;
    UserDefaults& defaults;
    DesktopService& desktop;
    Log& log;
    Folders folders;
    MainQueue& main;
    BackgroundQueue& searches;
    BackgroundQueue& lenses;
    BackgroundQueue& liveEvents;
    BackgroundQueue& liveWork;
    LiveWatcher::Clock steadyClock;     ///< seconds of a clock that only goes forward
    std::function<std::int64_t()> now;  ///< seconds since 1970
  };
  /// What this program wants of scans and loads.
  struct Conduct {
    bool liveUpdates = true;
    bool catchUp = true;  ///< a loaded index is brought up to date
    bool saveIndex = true;
    bool typingPauses = true;        ///< searches wait a moment for the next key
    std::int64_t namesShown = 300;   ///< rows of the Names lens
    bool ofScope = false;            ///< the search and the Names lens tell of the scope; else of the root
    std::size_t searchCap = 10'000;  ///< rows of a search, the largest: more than anyone goes through
    bool oneFileSystem = true;
    unsigned threads = 0;  ///< of a walk; 0 for as many as there are processors, at least 4
  };

  explicit AppModel(Services services);
  /// Cancels what runs and waits for it.
  ~AppModel();
  AppModel(const AppModel&) = delete;
  AppModel& operator=(const AppModel&) = delete;

  Conduct conduct;

  // The root and its scan.
  Observed<Phase> _phase{Phase::scanning};
  Observed<std::string> _rootPath;
  Observed<std::string> _scanStats;  ///< one line: progress while scanning, else what went wrong
  Observed<std::string> _scanPath;   ///< where the walk is
  Observed<std::shared_ptr<const WalkResult>> _result;
  Observed<std::optional<std::int64_t>> _indexedAt;  ///< when the shown state was true, seconds since 1970
  Observed<bool> _hasFullDiskAccess{true};
  std::int64_t scanGeneration = 0;
  bool scanStarted = false;
  bool indexFresh = false;  ///< what is shown stands in a saved index
  /// How the last scan or load ended, for a summary.
  struct LastRun {
    std::int64_t elapsedMs = 0;  ///< of the walk, also of one that was made in an earlier run of the program
    std::string index = {};      ///< the saved index; "" when there is none
    std::string notSaved = {};   ///< why an index that was wanted was not saved
    std::string notLoaded = {};  ///< why a saved index was not used; "" when it was, or there was none
    std::int64_t caughtUp = 0;   ///< changed folders
    bool wasLoaded = false;
    std::string message = {};  ///< of a load: how far the index had to be caught up
    std::string failure = {};  ///< why nothing could be scanned; "" otherwise
    bool cancelled = false;
  };
  LastRun lastRun;

  // Where the user looks.
  Observed<RefPtr<DirNode>> _scope;                 ///< views set
  Observed<Metric> _metric{Metric::logical};        ///< views set
  Observed<Lens> _lens{Lens::map};                  ///< views set
  Observed<MapMode> _mapMode{MapMode::sunburst};    ///< views set
  Observed<std::optional<std::string>> _selection;  ///< an Entry's id; views set
  Observed<std::optional<std::string>> _hovered;    ///< likewise
  bool hoverFromMap = false;
  Observed<bool> _showInspector{true};               ///< views set
  Observed<bool> _showOnboarding{false};             ///< views set
  Observed<bool> _mapAnimating{false};               ///< views set
  Observed<std::optional<std::string>> _previewURL;  ///< views set
  Observed<std::optional<std::string>> _toast;
  Observed<std::uint64_t> _version{0};  ///< grows whenever the tree changes in place

  // The search.
  Observed<std::string> _query;  ///< views set
  Observed<std::vector<SearchChip>> _chips;
  Observed<std::optional<std::vector<Entry>>> _searchHits;  ///< the largest of what was found
  Observed<std::size_t> _searchFound{0};                    ///< how many were
  Observed<bool> _searching{false};

  // The command bar.
  Observed<bool> _showPalette{false};  ///< views set
  Observed<std::vector<Entry>> _paletteHits;
  Observed<bool> _paletteSearching{false};
  std::string lastPaletteText;

  // The lenses.
  Observed<std::int64_t> _ageCutoff{31'536'000};  ///< seconds; views set
  Observed<std::optional<std::vector<Entry>>> _ageHits;
  Observed<bool> _ageScanning{false};
  Observed<std::shared_ptr<const DupeResult>> _dupes;
  Observed<bool> _dupeScanning{false};
  Observed<std::string> _dupeStatus;
  Observed<int> _sniffTick{0};  ///< grows whenever contents told more kinds
  KindOverrides kindOverrides;
  Observed<std::optional<std::vector<RepeatedName>>> _names;
  Observed<bool> _namesLoading{false};
  Observed<std::optional<std::string>> _namesError;
  Observed<std::shared_ptr<const std::vector<MisnamedFile>>> _misnamed;
  Observed<bool> _misnamedScanning{false};
  Observed<std::shared_ptr<const VolumeTruth>> _volume;
  Observed<bool> _volumeLoading{false};
  Observed<std::optional<std::string>> _volumeError;
  std::optional<std::int64_t> volumeProbedAt;  ///< seconds since 1970
  bool volumeStale = true;                     ///< files came or went since the volume was probed

  // The program's own files.
  Observed<std::vector<IndexEntry>> _indexes;
  Observed<std::uint64_t> _digestCacheBytes{0};

  /// At launch: opens the saved index of the path, brought up to date, else scans. Once; later calls do
  /// nothing.
  void scanIfNeeded(const std::string& path);
  /// Scans afresh, whatever runs.
  void scan(const std::string& path);
  /// Lets the user choose a folder and scans it.
  void openFolder();
  /// Scanned last first.
  [[nodiscard]] std::vector<std::string> recentRoots() const;
  void openPrivacySettings();
  [[nodiscard]] bool isBusy() const { return busy; }  ///< a scan or load runs
  /// Ends the scan or load that runs, soon; `lastRun.cancelled` tells then. Threads: any.
  void cancel();
  /// The index file that a scan is writing; "" when there is none. Threads: any.
  [[nodiscard]] std::string buildingFile() const;

  /// The rows of the scope, or what the search found. Valid until the model changes.
  [[nodiscard]] const std::vector<Entry>& entries();
  [[nodiscard]] std::vector<Entry> scopeEntries(const RefPtr<DirNode>& node, std::size_t cap) const;
  /// The row of a full path.
  [[nodiscard]] std::optional<Entry> entryFor(const std::string& path) const;
  /// The slot of the folder's colour: that of the folder below the root which it is or lies in. None for the
  /// root and below folders that came after the scan.
  [[nodiscard]] std::optional<int> topSlot(const DirNode& folder) const;
  /// Goes to a folder, or to a file in its folder. A folder that was taken out of the tree since the row was
  /// made is looked for at its path; the toast tells when nothing lies there any more.
  void jump(const Entry& entry);
  void goUp();
  void copyPath(const Entry& entry);

  [[nodiscard]] bool hasQuery() const;
  [[nodiscard]] std::string effectiveQuery() const;
  void absorbChips(bool includePartial);
  void removeChip(const SearchChip& chip);
  void clearQuery();
  void scheduleSearch();
  void schedulePaletteSearch(const std::string& text);

  [[nodiscard]] Kinds::Aggregate kindRows() const;
  void scheduleAgeScan();
  void scheduleNamesScan();
  /// The files behind a repeated name, largest first, from the saved index; StoreError when it does not tell.
  [[nodiscard]] std::vector<NamedFile> filesNamed(const std::string& name, std::int64_t limit) const;
  /// Of what lies below a folder of the tree.
  [[nodiscard]] std::vector<Reclaim::Group> reclaimGroups(const RefPtr<DirNode>& scope) const;
  /// Of the whole tree. Valid until the model changes.
  [[nodiscard]] const std::vector<Reclaim::Group>& reclaimAllGroups();
  void refreshIndexes();
  /// Removes indexes of no use, off the main thread, and tells what that freed.
  void collectIndexGarbage();

  /// Told of each live event once the model has taken it in.
  std::function<void(const LiveWatcher::Event&)> onLiveEvent;

 private:
  struct Run;
  struct Finished;
  using Self = std::weak_ptr<AppModel*>;

  Run& beginRun();
  void change(FunctionRef<void()> steps);
  void startScan(std::string root);
  void startLoad(const std::string& url);
  void launch(const char* threadName, std::function<void(Finished&)> work);
  void endRun(std::int64_t generation, const std::shared_ptr<Finished>& finished);
  void fail(const std::string& reason);
  void dropTree();
  void dropHits();
  void install(const Finished& finished);
  void endLensJobs();
  void voidLenses();
  void rememberRoot(const std::string& root);
  void scheduleProgress();
  void tellProgress();
  void startLiveWatch(const WalkResult& result, std::uint64_t sinceEventId, std::uint32_t rootDev);
  void liveEvent(const LiveWatcher::Event& event);
  void liveBatchApplied(const LiveWatcher::Update& update);
  [[nodiscard]] std::string_view treeRoot() const;
  [[nodiscard]] std::string rootAt(const std::string& path) const;
  [[nodiscard]] std::string indexURL() const;
  [[nodiscard]] std::string namesBelow() const;
  void searchInBackground(std::string text, bool ofScope, std::size_t cap,
                          std::chrono::duration<double> pause, const std::shared_ptr<GenerationBox>& box,
                          std::function<void(std::optional<SearchHits>&)> take);

  const Services services;
  std::shared_ptr<AppModel*> self;  // what posted work holds weakly
  std::shared_ptr<TreeGate> treeGate = std::make_shared<TreeGate>();
  std::shared_ptr<GenerationBox> searchGen = std::make_shared<GenerationBox>();
  std::shared_ptr<GenerationBox> paletteGen = std::make_shared<GenerationBox>();
  std::shared_ptr<GenerationBox> ageGen = std::make_shared<GenerationBox>();
  std::shared_ptr<GenerationBox> dupeGen = std::make_shared<GenerationBox>();
  std::shared_ptr<GenerationBox> namesGen = std::make_shared<GenerationBox>();
  std::shared_ptr<GenerationBox> misnamedGen = std::make_shared<GenerationBox>();
  std::shared_ptr<GenerationBox> volumeGen = std::make_shared<GenerationBox>();
  std::shared_ptr<ScanCancel> dupeCancel;  // none while no duplicates are looked for
  WorkItem dupeRefreshWork;
  WorkItem widgetSnapshotWork;
  bool sniffDone = false;
  bool sniffing = false;
  std::optional<std::int64_t> footprintReadAt;  // seconds since 1970
  bool footprintReading = false;
  bool gapProbeArmed = false;
  std::vector<Observation> gapProbeObservers;
  bool busy = false;
  bool changing = false;                  // observers are being told of a change that is not whole yet
  std::optional<std::string> wantedNext;  // the root of a scan that one of them asked for
  WorkItem timer;
  mutable Mutex runLock;
  std::unique_ptr<Run> run QUON_GUARDED_BY(runLock);
  std::vector<std::unique_ptr<Run>> retired;  // cancelled ones whose threads may not have ended
  std::unique_ptr<LiveWatcher> liveWatcher;
  std::string shownRoot;  // of _result's tree, which is shown until the tree of another _rootPath is there
  std::string scopePath;  // of _scope, also when it was taken out of the tree since
  SlotIndex slotIndex;
  std::vector<Observation> ownObservations;
  struct EntriesCache {
    RefPtr<DirNode> scope;
    Metric metric = Metric::logical;
    std::uint64_t version = 0;
    std::vector<Entry> rows;
  };
  std::optional<EntriesCache> entriesCache;
  std::optional<EntriesCache> displayedCache;  // of the map
  struct ReclaimCache {
    RefPtr<DirNode> root;
    Metric metric = Metric::logical;
    std::uint64_t version = 0;
    std::vector<Reclaim::Group> groups;
  };
  std::optional<ReclaimCache> reclaimAllCache;
};

}  // namespace quon
