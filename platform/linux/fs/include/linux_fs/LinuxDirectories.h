#pragma once

#include "platform/Directories.h"

namespace quon {

/// Bulk listing with getdents64 and one statx an entry.
class LinuxDirectories final : public DirectoryService {
 public:
  [[nodiscard]] std::unique_ptr<DirectoryReader> makeReader() const override;
  [[nodiscard]] std::size_t openFileLimit() const override;
};

}  // namespace quon
