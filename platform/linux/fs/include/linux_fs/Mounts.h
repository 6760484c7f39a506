#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "linux_fs/Descriptor.h"

namespace quon {

struct Mount {
  int id = 0;         ///< the kernel's; another mount at the same place has another one
  std::string point;  ///< bytes, absolute
  std::string device = {};  ///< "major:minor"
  std::string type = {};    ///< of the file system
  std::string source = {};  ///< bytes: a device, or what else it was mounted from

  friend bool operator==(const Mount&, const Mount&) = default;
  /// By what makes a mount another one.
  friend bool operator<(const Mount& a, const Mount& b) { return std::tie(a.id, a.point) < std::tie(b.id, b.point); }
};

/// Opens the table of the mounts that this process sees; poll() reports POLLPRI on it when they change.
/// Throws std::system_error, as does reading it. Threads: any.
[[nodiscard]] Descriptor openMounts();

/// The mounts, in the order of their mounting.
[[nodiscard]] std::vector<Mount> readMounts(const Descriptor& table);

}  // namespace quon
