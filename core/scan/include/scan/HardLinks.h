#pragma once

#include <array>
#include <cstdint>
#include <memory>

namespace quon {

/// Which multiply-linked files a scan has counted already. A file is known by its device and its inode
/// number: inode numbers repeat from one file system to the next, and a bind mount can put a file of another
/// file system into any tree. Threads: any; split by the inode number's low six bits, so that workers rarely
/// wait for each other.
class HardLinks {
 public:
  HardLinks();
  ~HardLinks();

  /// True for the first sighting of the file in this scan; later ones are counted as deduplicated.
  [[nodiscard]] bool firstSightingOfHardlink(std::uint32_t device, std::uint64_t fileID);
  [[nodiscard]] std::uint64_t deduplicated() const;

 private:
  struct Shard;
  static constexpr std::size_t kShards = 64;
  std::unique_ptr<std::array<Shard, kShards>> shards;
};

/// The identifier under which the registry of links keeps a file: the inode number for files of the root's
/// device, and for others a 64-bit mix of device and inode number, so that two files never share one.
[[nodiscard]] std::uint64_t linkIdentifier(std::uint32_t rootDev, std::uint32_t device, std::uint64_t fileID);

}  // namespace quon
