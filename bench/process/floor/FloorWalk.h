#pragma once

#include <cstdint>
#include <string>

namespace quon::bench {

/// What a walk adds up. Every name counts: a file with two hard links counts twice.
struct FloorSums {
  std::uint64_t logical = 0;   ///< bytes, as st_size says, of files and folders, the root's own included
  std::uint64_t physical = 0;  ///< bytes of allocated blocks, likewise
  std::uint64_t files = 0;     ///< everything that is not a folder
  std::uint64_t folders = 0;   ///< below the root
  std::uint64_t failures = 0;  ///< entries and folders that the system refused; not in the sums
  std::string firstFailure{};  ///< one line, empty when there was none
};

/// Walks the folder with `threads` threads and stays on its device. Throws SystemFailure when the root itself
/// cannot be opened.
[[nodiscard]] FloorSums walkFloor(const std::string& root, unsigned threads);

}  // namespace quon::bench
