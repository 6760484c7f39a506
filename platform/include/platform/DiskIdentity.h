#pragma once

#include <cstdint>
#include <string>

namespace quon {

/// What distinguishes the file system below a folder from another one that is mounted at the same place, or
/// that was given the same device number.
struct DiskIdentity {
  std::string volume;  ///< of the file system, and of the subvolume where it has several; "" when unknown
  std::string boot;    ///< the boot without which `volume` says nothing; "" when it lasts
  std::uint64_t rootInode = 0;
  std::int64_t rootBorn = 0;  ///< microseconds since 1970; 0 when the file system keeps no time of birth

  [[nodiscard]] bool isKnown() const { return !volume.empty(); }
  [[nodiscard]] bool isForBoot() const { return !boot.empty(); }
  /// Both are known. The folder's own identity counts only where the file system has none that lasts: a folder
  /// that was made anew on the same disk is no other disk.
  [[nodiscard]] bool isSameDisk(const DiskIdentity& other) const {
    if (!isKnown() || volume != other.volume || boot != other.boot) return false;
    return !isForBoot() || (rootInode == other.rootInode && rootBorn == other.rootBorn);
  }

  friend bool operator==(const DiskIdentity&, const DiskIdentity&) = default;
};

}  // namespace quon
