#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "linux_fs/InodeFacts.h"

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
/// listing changed as well, or when its own did not. The first folder never is, and below a deep one nothing
/// is compared.
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

  explicit ChangeTimes(std::int64_t sinceMicros) : since(sinceMicros) {}

  [[nodiscard]] Folder enter(bool isFirst, const InodeFacts& facts, const Folder& parent) const;
  /// An entry that is no folder.
  void compareEntry(int folder, const char* name, Folder& found) const;
  void leave(const std::string& path, const Folder& found, bool listingWasWhole);
  [[nodiscard]] std::vector<SweptFolder> take();

 private:
  const std::int64_t since;
  Mutex lock;
  std::vector<SweptFolder> changed QUON_GUARDED_BY(lock);
};

}  // namespace quon
