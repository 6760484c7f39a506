#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace quon::bench {

/// On what the figures were measured.
struct MachineFacts {
  long cores = 0;  ///< online now
  std::uint64_t memoryBytes = 0;
  std::string kernel;      ///< name and release
  std::string fileSystem;  ///< type of the tree's, as the mount table says, e.g. `ext4`
};

[[nodiscard]] MachineFacts readMachineFacts(const std::filesystem::path& tree);

}  // namespace quon::bench
