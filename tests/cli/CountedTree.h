#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quon::test {

struct CountedFile {
  std::string path;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;
};

/// What lies below a folder, counted with the C library's own walk. A file of several names is counted once.
struct CountedTree {
  std::uint64_t files = 0;
  std::uint64_t dirs = 0;  ///< without the folder itself
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::uint64_t furtherNames = 0;
  std::vector<CountedFile> list;

  [[nodiscard]] static CountedTree of(const std::string& path);
};

}  // namespace quon::test
