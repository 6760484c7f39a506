#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform_linux/Descriptor.h"

namespace quon {

/// The mounts that this process sees. Threads: one at a time.
class MountTable {
 public:
  /// Throws std::system_error.
  MountTable();

  /// poll() tells POLLPRI when the table has changed.
  [[nodiscard]] int descriptor() const { return file.get(); }
  /// Reads the table; the mount points at which something was mounted or unmounted since the last call.
  [[nodiscard]] std::vector<std::string> changes();

 private:
  using Mount = std::pair<int, std::string>;  // the kernel's number of the mount, where it is mounted
  [[nodiscard]] std::vector<Mount> readTable() const;

  Descriptor file;
  std::vector<Mount> mounts;  // sorted
};

}  // namespace quon
