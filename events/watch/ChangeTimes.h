#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "linux_fs/InodeFacts.h"
#include "watch/WatchTree.h"

namespace quon {

struct SweptFolder {
  std::string path;
  bool deep = false;
};

/// True when the file system keeps change times that a sweep can rely on: renaming a folder changes its
/// change time and its parents' modification times, and all of it by the clock of this machine.
[[nodiscard]] bool keepsChangeTimes(int descriptor);

/// Finds, in the course of a walk, the folders that changed since a time, by the change times of folders and
/// files. A folder is deep (another one than before, whose contents may have old times) when its parent's
/// listing changed as well, or when its own did not, unless it is known to have been there before. The first
/// folder never is, and below a deep one nothing is compared.
///
/// Threads: those of the walk; take() once it has ended.
class ChangeTimes {
 public:
  /// What is found of one folder, and passed on to those in it.
  struct Folder {
    bool compared = false;  ///< it lies in no deep folder
    bool modified = false;
    bool changed = false;
    bool deep = false;
    bool coversBelow = false;
  };

  /// `known` has the folders that were there at that time; none when that is not known.
  ChangeTimes(std::int64_t sinceMicros, std::unique_ptr<const WatchTree> knownBefore)
      : since(sinceMicros), known(std::move(knownBefore)) {}

  [[nodiscard]] Folder enter(const std::string& path, bool isFirst, const InodeFacts& facts,
                             const Folder& parent) const;
  /// An entry that is no folder.
  void compareEntry(int folder, const char* name, Folder& found) const;
  void leave(const std::string& path, const Folder& found, bool listingWasWhole);
  [[nodiscard]] std::vector<SweptFolder> take();

 private:
  [[nodiscard]] bool wasThere(const std::string& path, const InodeIdentity& identity) const;

  const std::int64_t since;
  const std::unique_ptr<const WatchTree> known;
  Mutex lock;
  std::vector<SweptFolder> changed QUON_GUARDED_BY(lock);
};

}  // namespace quon
