#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace quon::test {

/// What a tree contains, read without the code under test: the reference for reported changes.
class Snapshot {
 public:
  explicit Snapshot(const std::string& root);

  /// The changes since `before` that the reported folders do not cover; none is what is right. A folder whose
  /// listing differs must be reported, or lie in one that is deep; a folder that is new, or another one than
  /// before, must be deep or lie in one that is. A file with several names changes where it is named anew: a
  /// watch on one name's folder does not see a write through another's.
  [[nodiscard]] std::vector<std::string> missedSince(
      const Snapshot& before, const std::map<std::string, std::uint32_t>& reported) const;

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
  [[nodiscard]] static bool differ(const Folder& first, const Folder& second);

  std::map<std::string, Folder> folders;
  std::string root;
};

}  // namespace quon::test
