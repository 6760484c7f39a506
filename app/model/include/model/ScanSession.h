#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "base/WorkItem.h"
#include "model/LiveUpdates.h"
#include "model/ModelState.h"
#include "model/Settings.h"
#include "scan/KeptFiles.h"

namespace quon {

/// Scans and loads. Each is a run on a thread of its own; what it brings back counts only while
/// `scanGeneration` is the one it was begun with. A newer run cancels the older one, whose thread is joined
/// once it says that it is done: the main thread waits for none. The tree before is shown until a run has
/// another.
///
/// Threads: main only, except `cancel` and `buildingFile`.
class ScanSession : public LiveUpdates {
 public:
  static constexpr std::uint64_t minKeep = kMinKeep;

  /// Cancels what runs and waits for it.
  ~ScanSession() override;

  Observed<std::string> _rootPath;   ///< the root that was asked for; the shown tree knows its own
  Observed<std::string> _scanStats;  ///< one line: progress while scanning, else what is the matter
  Observed<std::string> _scanPath;   ///< where the walk is
  Observed<bool> _busy;              ///< a scan or load runs
  Observed<bool> _hasFullDiskAccess;
  std::int64_t scanGeneration = 0;
  bool scanStarted = false;

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

  /// At launch: opens the saved index of the path, brought up to date, else scans. Once; later calls do
  /// nothing.
  void scanIfNeeded(const std::string& path);
  /// The same for any folder, at any time.
  void open(const std::string& path);
  /// Scans afresh, whatever runs.
  void scan(const std::string& path);
  /// Lets the user choose a folder and scans it.
  void openFolder();
  void openPrivacySettings();
  [[nodiscard]] bool isBusy() const { return _busy.get(); }
  /// Something changed directly in these folders: reads them at once, and once more when the tree is there that a scan
  /// or load is about to bring, which may have come by before. False when nothing will bring the shown tree up to date.
  bool refreshFolders(const std::vector<std::string>& paths);
  /// Ends the scan or load that runs, soon. What was shown before stays, and is brought up to date; `lastRun`
  /// says that it was cancelled. Threads: any.
  void cancel();
  /// The index file that a scan is writing; "" when there is none. Threads: any.
  [[nodiscard]] std::string buildingFile() const;

 protected:
  ScanSession(ModelState& model, Settings& keptSettings);

 private:
  class Run;
  struct Finished;
  struct Step;
  /// What a run is for.
  enum class Purpose : std::uint8_t {
    open,    ///< the saved index, brought up to date, else a scan
    scan,    ///< afresh
    reload,   ///< the index of the shown tree, nothing else
    recover,  ///< the same, else a scan of its root
  };

  void recover() override;
  void begin(const std::string& path, Purpose purpose);
  void take(const Step& step);
  void endRun(std::int64_t generation, const Finished& finished);
  void install(const Finished& finished, Purpose purpose);
  void reportCaughtUp(const Finished& finished);
  void fail(const std::string& reason);
  void returnToShownTree();
  void raiseNotReloaded(const std::string& reason);
  void scheduleProgress();
  void showProgress();

  ModelState& state;
  Settings& settings;
  std::shared_ptr<ScanSession*> self;  // what posted work refers to weakly
  WorkItem timer;
  std::vector<std::string> changedMeanwhile;  // folders, since the run began
  mutable Mutex runLock;
  std::unique_ptr<Run> run QUON_GUARDED_BY(runLock);  // the one under way
  std::vector<std::unique_ptr<Run>> retired;          // cancelled ones whose threads may not have ended
};

}  // namespace quon
