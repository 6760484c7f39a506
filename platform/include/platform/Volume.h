#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quon {

/// How full a file system is, in bytes.
struct VolumeCapacity {
  std::string name;  ///< its label, else the last component of its mount point; "" without either
  std::uint64_t total = 0;
  std::optional<std::uint64_t> available;           ///< to the user
  std::optional<std::uint64_t> availableImportant;  ///< the same with what the system would give up for it

  [[nodiscard]] std::uint64_t free() const { return availableImportant.value_or(available.value_or(0)); }
  [[nodiscard]] std::uint64_t used() const { return total > free() ? total - free() : 0; }
  /// 0 to 1.
  [[nodiscard]] double usedFraction() const {
    return total == 0 ? 0 : static_cast<double>(used()) / static_cast<double>(total);
  }
};

/// Threads: any but the main one; may wait for disks.
class VolumeService {
 public:
  VolumeService() = default;
  VolumeService(const VolumeService&) = delete;
  VolumeService& operator=(const VolumeService&) = delete;
  virtual ~VolumeService() = default;

  /// Of the file system that the path is on; none when it cannot be asked.
  [[nodiscard]] virtual std::optional<VolumeCapacity> capacity(const std::string& path) const = 0;
};

}  // namespace quon
