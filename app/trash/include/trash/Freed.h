#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "base/FunctionRef.h"
#include "platform/Platform.h"

namespace quon {

/// What deleting a set of items would free: of a file with several names nothing, unless all of them are in the
/// set, and then once. Folders themselves count nothing, as everywhere. Blocks that a file shares with its copies
/// (reflinks) count as its own.
class Freed {
 public:
  struct Total {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::uint64_t files = 0;
    std::uint64_t keptByLinks = 0;  ///< files with a name that is not in the set
    std::uint64_t unreadable = 0;   ///< folders that could not be read, or not to their end

    friend bool operator==(const Total&, const Total&) = default;
  };

  /// Of the file or folder, a link's own. Sums end at the largest number: file systems may claim any size. Stops early when `cancelled` says so, which is
  /// asked for each folder. Nothing for an item that is not there. Throws std::system_error without memory for
  /// a reader. Threads: any but the main one.
  [[nodiscard]] static Freed of(const Platform& platform, const std::string& path,
                                FunctionRef<bool()> cancelled);
  /// The other set is added to this one; an item is to be in one of them only.
  void add(const Freed& other);
  [[nodiscard]] Total total() const;

 private:
  struct File {
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::uint64_t names = 0;  ///< all that it has
    std::uint64_t found = 0;  ///< those in the set
  };
  void count(std::uint32_t device, std::uint64_t fileID, std::uint64_t links, std::uint64_t logical,
             std::uint64_t physical);

  Total alone;  // files with one name
  std::map<std::pair<std::uint32_t, std::uint64_t>, File> linked;
};

}  // namespace quon
