#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quon {

struct Folders;

/// The program's own folders, of which nothing is reported: writing the index must not set off the next
/// change. Threads: any.
class OwnFolders {
 public:
  explicit OwnFolders(const Folders& folders);

  /// True for one of the folders and whatever lies below.
  [[nodiscard]] bool contain(std::string_view path) const;
  /// The same for an entry of a folder, without joining the two unless the name calls for it.
  [[nodiscard]] bool containEntry(std::string_view parent, std::string_view name) const;
  /// False when none of them has the name.
  [[nodiscard]] bool mayBeNamed(std::string_view name) const;

 private:
  std::vector<std::string> paths;
};

}  // namespace quon
