#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "base/RefPtr.h"
#include "platform/Platform.h"
#include "scan/KeptFiles.h"
#include "scan/Progress.h"
#include "scan/ScanCancel.h"
#include "scan/WalkResult.h"

namespace quon {

class ScanSink;

/// Fills a DirNode tree for one root with several worker threads. Each multiply-linked file is counted once,
/// at its first sighting. Folders that cannot be read are marked, counted and sampled; they never end the
/// walk; a folder counts as one of them for want of descriptors only when no other way was left to open it.
/// Symbolic links are counted with their own size and never followed; nothing but folders is ever
/// opened.
///
/// Serves one run. Threads: `run` blocks its caller; `cancelRun`, `progress` and `cancel` are for any thread.
class Walker {
 public:
  using Result = WalkResult;

  struct Options {
    std::uint32_t rootDev = 0;  ///< device number of the root
    std::uint64_t minKeep = kMinKeep;
    std::int64_t topN = kTopFiles;         ///< how many of the largest files to remember
    bool oneFileSystem = true;             ///< folders on another device are not entered nor listed
    std::set<std::string> skipPaths = {};  ///< full paths of folders not to enter
    unsigned mostThreads = 0;  ///< how many workers there may be while those of `run` wait for the disk
  };

  /// The sink, when there is one, outlives the run.
  Walker(const Platform& platform, Options options, ScanSink* sink);
  ~Walker();

  const std::shared_ptr<Progress> progress;
  const std::shared_ptr<ScanCancel> cancel;

  /// Walks the root and returns when all workers have stopped; a cancelled run returns what was counted. Does
  /// not roll up. With 0 threads it waits until cancelled. `rootPath` is absolute, "" for "/".
  /// Throws std::system_error when not a single thread can be started, and std::bad_alloc. Then
  /// the nodes live as long as the walker does.
  [[nodiscard]] Result run(const std::string& rootPath, const RefPtr<DirNode>& rootNode, unsigned threads);
  void cancelRun();

  /// The number of workers that a scan uses: one a processor, but at least 4, since they wait for the disk.
  [[nodiscard]] static unsigned defaultThreads(const Platform& platform);
  /// What a scan grants to a walk that waits for the disk.
  static constexpr unsigned kMostThreads = 32;

 private:
  class Run;
  const Platform& platform;
  const Options options;
  ScanSink* const sink;
  std::unique_ptr<Run> active;
};

}  // namespace quon
