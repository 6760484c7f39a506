#pragma once

#include <string>
#include <vector>

#include "linux_fs/Mounts.h"

namespace quon {

/// Notices what is mounted and unmounted. Threads: one at a time. Throws std::system_error.
class MountTable {
 public:
  MountTable();

  /// poll() reports POLLPRI when the table has changed.
  [[nodiscard]] int descriptor() const { return table.get(); }
  /// The mount points at which something was mounted or unmounted since the last call.
  [[nodiscard]] std::vector<std::string> changes();

 private:
  [[nodiscard]] std::vector<Mount> readSorted() const;

  Descriptor table;
  std::vector<Mount> mounts;
};

}  // namespace quon
