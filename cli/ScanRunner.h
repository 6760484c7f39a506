#pragma once

#include <memory>
#include <string>

#include "base/LoopQueue.h"
#include "base/Mutex.h"
#include "platform/Platform.h"
#include "platform_linux/Interrupts.h"
#include "platform_linux/LinuxTerminal.h"
#include "store/FolderScan.h"

namespace quon::cli {

/// Thrown when the user interrupted the command.
struct Interrupted {};

/// Runs scans on a thread of their own while the main thread shows progress, and turns an interrupt into the
/// scan's cancellation. When the scan does not end within a moment, a disk that does not answer say, the file
/// being built is removed and the process leaves. Outside a scan an interrupt ends the process at once.
/// Threads: main only. Made before any other thread.
class ScanRunner {
 public:
  ScanRunner(const Platform& platform, const Terminal& terminal);
  ~ScanRunner();

  /// Throws what the scan throws, and Interrupted.
  [[nodiscard]] FolderScan::Outcome run(const FolderScan::Options& options);
  /// The main thread's loop, for commands that go on after a scan.
  [[nodiscard]] LoopQueue& mainQueue() { return loop; }

 private:
  void onInterrupt() QUON_EXCLUDES(lock);
  void scheduleProgress();
  void showProgress();
  void clearProgress();

  const Platform& platform;
  const Terminal terminal;
  LoopQueue loop;
  WorkItem nextProgress;
  bool progressShown = false;
  Mutex lock;
  FolderScan* scan QUON_GUARDED_BY(lock) = nullptr;
  Interrupts interrupts;  // last: its thread uses everything above
};

}  // namespace quon::cli
