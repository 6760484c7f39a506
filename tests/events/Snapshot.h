#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quon::test {

/// What a tree contains, read without the code under test: the reference for reported changes.
class Snapshot {
 public:
  enum class HardLinks {
    ofTheirFolder,  ///< a file with several names changes where it is named anew: all that watches see
    ofEveryFolder,  ///< it changes wherever it has a name
  };

  explicit Snapshot(const std::string& root);

  /// The changes since `before` that the reported folders do not cover; none is what is right. A folder whose
  /// listing differs must be reported, or lie in one that is deep; a folder that is new, or another one than
  /// before, must be deep or lie in one that is.
  [[nodiscard]] std::vector<std::string> missedSince(const Snapshot& before,
                                                     const std::map<std::string, std::uint32_t>& reported,
                                                     HardLinks links) const;

 private:
  struct Entry {
    bool isFolder = false;
    std::uint64_t inode = 0;
    std::uint64_t links = 0;
    std::uint64_t bytes = 0;
    std::int64_t modified = 0;  ///< nanoseconds
  };
  struct Folder {
    std::uint64_t inode = 0;
    std::int64_t born = 0;
    std::map<std::string, Entry> entries;
  };
  [[nodiscard]] static bool differ(const Folder& first, const Folder& second, HardLinks links);

  std::map<std::string, Folder> folders;
  std::string root;
};

}  // namespace quon::test
