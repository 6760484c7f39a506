#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>

#include "watch/FolderWalk.h"
#include "watch/WatchTree.h"

namespace quon {

class Log;

/// Changed folders, each once; true when deep.
using FolderChanges = boost::unordered_flat_map<std::string, bool>;

inline void addChange(FolderChanges& changes, std::string path, bool deep) {
  const auto [at, isNew] = changes.try_emplace(std::move(path), deep);
  if (deep) at->second = true;
}

/// What keeps a watch from reporting all that happens.
struct WatchProblems {
  bool overflowed = false;  ///< the kernel dropped events
  std::string unwatched =
      {};                  ///< why some folder cannot be watched, and what to do about it; "" when all are
  bool unmounted = false;  ///< the root's file system is gone
  bool rootMoved = false;  ///< the root or a folder above it was moved or removed, perhaps
};

/// A back end at work on one root: reads the kernel's events and gathers the folders that changed. A walk of
/// the root with the watch as its visitor places what the back end needs on the folders that are there
/// already.
///
/// Threads: enter, refuse and fail any; all else the recorder's.
class RootWatch : public FolderVisitor {
 public:
  /// Readable when drain() has something to read.
  [[nodiscard]] virtual int descriptor() const = 0;
  /// Reads a bounded number of events and places watches on folders that appeared. True when nothing is left:
  /// all that had happened before the call can be collected.
  [[nodiscard]] virtual bool drain() = 0;
  /// Moves the folders that changed out.
  virtual void collect(FolderChanges& into) = 0;
  /// Something was mounted on a folder below the root, or a mount was taken from it.
  virtual void mountChanged(const std::string& path) = 0;
  [[nodiscard]] virtual const WatchProblems& problems() const = 0;
  /// Takes rootMoved back: the root was found in its place.
  virtual void rootIsInPlace() = 0;
};

/// What a watch begins with.
struct RootWatchSettings {
  std::string root;
  const OwnFolders& own;
  std::uint32_t device = 0;
};

/// Throw std::system_error when the kernel refuses the back end; fanotify takes privilege.
[[nodiscard]] std::unique_ptr<RootWatch> makeInotifyWatch(RootWatchSettings settings);
[[nodiscard]] std::unique_ptr<RootWatch> makeFanotifyWatch(RootWatchSettings settings);

}  // namespace quon
