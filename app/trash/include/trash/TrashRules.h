#pragma once

#include <set>
#include <string>

#include "platform/Folders.h"
#include "platform/Platform.h"

namespace quon {

/// What may not be moved to the trash, although the system would do it.
class TrashRules {
 public:
  /// Where the program's files and the home folder are now. Threads: any but the main one.
  TrashRules(const Platform& platform, const Folders& folders);

  /// Why the item at this path, absolute and without links, may not be moved; "" when it may. `root` is the folder
  /// that was scanned, "" for none.
  [[nodiscard]] std::string refusalOf(const std::string& path, const std::string& root) const;

 private:
  std::string home;
  std::set<std::string> own;
};

}  // namespace quon
