#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "CommandLine.h"
#include "Runner.h"
#include "base/Log.h"
#include "base/LoopQueue.h"
#include "base/Mutex.h"
#include "base/ThreadQueue.h"
#include "events/LinuxEvents.h"
#include "linux_desktop/LinuxTrash.h"
#include "linux_fs/LinuxVolumes.h"
#include "model/AppModel.h"
#include "platform/Folders.h"
#include "platform/Platform.h"
#include "platform_linux/Interrupts.h"
#include "platform_linux/KeyFileDefaults.h"
#include "platform_linux/LinuxTerminal.h"
#include "platform_linux/SystemLog.h"

namespace quon::cli {

/// A command cannot be carried out: what() is the one line to print, without the program's name.
class CommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A scanned tree and where in it the user asked to look.
struct OpenedTree {
  std::shared_ptr<const WalkResult> result;
  std::string root;            ///< "/" for the file system's root
  RefPtr<DirNode> scope;       ///< the folder that was asked for
  std::string index;           ///< the index behind it; "" when none could be saved
  double scannedAt = 0;        ///< seconds since 1970
  std::int64_t elapsedMs = 0;  ///< of the scan that made it
};

/// What every command works with: the model and what drives it. Threads: main only.
class Session {
 public:
  /// Whether the command stays: then this process records what changes below the root, when no other does.
  enum class Stay : std::uint8_t { ends, stays };
  Session(const Platform& platform, Folders folders, const Terminal& terminal, Stay stay);
  ~Session();

  const Platform& platform;
  const Folders folders;
  const Terminal terminal;

  /// The folder that was asked for as an absolute path without links. CommandFailure when it is missing, no
  /// folder, or not allowed.
  [[nodiscard]] std::string resolve(const std::string& typed) const;
  /// The nearest saved root that contains the path, brought up to date from the journal of events; when that
  /// cannot be, the reason is printed and the root scanned. Without a saved root, the path scanned as a root
  /// of its own.
  [[nodiscard]] OpenedTree open(const std::string& path);
  [[nodiscard]] OpenedTree scan(const std::string& root);

  /// The home folder on a terminal, where people read paths; "" where programs do.
  [[nodiscard]] std::string homeShownAsTilde() const {
    return terminal.outputIsTerminal ? folders.home : std::string();
  }

  [[nodiscard]] TrashService& trash() { return bin; }
  [[nodiscard]] AppModel& model() { return *driven; }
  [[nodiscard]] Runner& runner() { return *runs; }
  /// Runs the main loop until the predicate is true.
  void await(const std::function<bool()>& predicate) { runs->runUntil(predicate); }
  /// Shows the lens and runs the main loop until its results are there.
  void show(Lens lens, const Observed<bool>& running) {
    driven->_lens.set(lens);
    await([&running] { return !running.get(); });
    const std::string failure = driven->problem(Problem::Kind::lens);
    if (!failure.empty()) throw CommandFailure(failure);
  }

 private:
  class Queues;
  class NoDesktop;

  [[nodiscard]] OpenedTree opened(const std::string& path);
  void onInterrupt() QUON_EXCLUDES(lock);
  void reportWhyScanned();

  Mutex lock;
  Runner* interrupted QUON_GUARDED_BY(lock) =
      nullptr;            ///< who ends what runs at an interrupt; none: the process leaves
  Interrupts interrupts;  // before all that starts threads
  SystemLog log{SystemLog::Echo::always};
  SystemLog diagnostics{SystemLog::Echo::never};
  LinuxVolumes volumes;
  KeyFileDefaults defaults;
  LinuxTrash bin;
  LinuxEvents events;
  LoopQueue loop;
  std::unique_ptr<Queues> queues;
  std::unique_ptr<NoDesktop> desktop;
  std::unique_ptr<AppModel> driven;
  Observation starts;
  std::string reportedReason;
  std::unique_ptr<Runner> runs;
};

/// A line on standard error that does not end the command.
void warn(const std::string& line);

/// Unreadable folders make totals too small: prints how many are at and below the tree's scope, and the first
/// few.
void reportUnreadable(const OpenedTree& tree);

}  // namespace quon::cli
