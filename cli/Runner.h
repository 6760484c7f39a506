#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "base/LoopQueue.h"
#include "base/Mutex.h"
#include "base/Observed.h"
#include "model/AppModel.h"
#include "platform_linux/LinuxTerminal.h"

namespace quon::cli {

/// Thrown when the user interrupted the command.
struct Interrupted {};

/// Runs the main loop while the model scans or loads, showing progress on a terminal, and turns an interrupt
/// into cancellation. When the model does not end within a moment, a disk that does not answer say, the file
/// being built is removed and the process leaves. Outside a scan or load an interrupt ends the process at
/// once. Threads: main only.
class Runner {
 public:
  /// `loop` is the model's main queue.
  Runner(const Platform& platform, const Terminal& terminal, LoopQueue& loop, AppModel& model);

  /// Until the model is done with its scan or load. Throws Interrupted.
  void wait();
  /// Threads: any.
  void onInterrupt() QUON_EXCLUDES(lock);
  /// Runs work that waits elsewhere; an interrupt calls `stop`, on another thread, which makes it return.
  /// Throws Interrupted after that. A second interrupt ends the process.
  void run(const std::function<void()>& work, std::function<void()> stop) QUON_EXCLUDES(lock);
  /// An interrupt removes this file, which the command is about to write; "" for none.
  void setUnfinished(const std::string& file) QUON_EXCLUDES(lock);
  /// Until the predicate is true, which an interrupt does not wait for.
  void runUntil(const std::function<bool()>& predicate) { (void)loop.runUntil(predicate); }

 private:
  /// Ends the process, without the file that a scan is building or the command is writing. Threads: any.
  [[noreturn]] void leave() QUON_EXCLUDES(lock);
  void showProgress();
  void clearProgress();

  const Platform& platform;
  const Terminal terminal;
  LoopQueue& loop;
  AppModel& model;
  bool progressShown = false;
  bool graceOver = false;  ///< an interrupted scan or load did not end in time
  std::atomic<bool> waiting{false};
  std::atomic<bool> stopped{false};
  Mutex lock;
  std::function<void()> stopWork QUON_GUARDED_BY(lock);  ///< of what runs; none once it was called
  std::string unfinished QUON_GUARDED_BY(lock);
  Observation place;
};

}  // namespace quon::cli
