#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "CommandLine.h"
#include "ScanRunner.h"
#include "base/Log.h"
#include "platform/Folders.h"
#include "platform/Platform.h"
#include "platform_linux/LinuxEvents.h"
#include "platform_linux/LinuxTerminal.h"
#include "scan/WalkResult.h"

namespace quon {
struct IndexEntry;
}

namespace quon::cli {

/// A command cannot be carried out: what() is the one line to tell, without the program's name.
class CommandFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A scanned tree and where in it the user asked to look.
struct OpenedTree {
  WalkResult result;
  std::string root;            ///< "/" for the file system's root
  RefPtr<DirNode> scope;       ///< the folder that was asked for
  std::string index;           ///< the index behind it; "" when none could be saved
  double scannedAt = 0;        ///< seconds since 1970
  std::int64_t elapsedMs = 0;  ///< of the scan that made it
  std::uint64_t eventId = 0;   ///< what the index is current to
  std::uint32_t rootDev = 0;
  std::string message;  ///< how an opened index was brought up to date; "" after a scan
};

/// What every command works with. Threads: main only.
class Session {
 public:
  Session(const Platform& platform, Folders folders, const Terminal& terminal);

  const Platform& platform;
  const Folders folders;
  const Terminal terminal;

  /// The folder that was asked for as an absolute path without links. CommandFailure when it is missing, no
  /// folder, or not allowed.
  [[nodiscard]] std::string resolve(const std::string& typed) const;
  /// The nearest saved root that holds the path, brought up to date from the journal of events; when that
  /// cannot be, the reason is told and the root scanned. Without a saved root, the path scanned as a root of
  /// its own.
  [[nodiscard]] OpenedTree open(const std::string& path, bool catchUp);
  [[nodiscard]] OpenedTree scan(FolderScan::Options options);
  /// The journal of events, begun when it is first needed.
  [[nodiscard]] EventService& events();
  [[nodiscard]] ScanRunner& scans() { return runner; }

 private:
  [[nodiscard]] OpenedTree load(const IndexEntry& entry, bool catchUp);

  ScanRunner runner;
  StandardErrorLog log;
  std::unique_ptr<LinuxEvents> journal;
};

/// A line on standard error that does not end the command.
void warn(const std::string& line);

/// Unreadable folders make totals too small: tells how many lie at and below the tree's scope, and the first
/// few.
void tellUnreadable(const OpenedTree& tree);

}  // namespace quon::cli
