#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/Platform.h"

namespace quon {

/// One saved index, as the catalogue shows it.
struct IndexEntry {
  enum class Status {
    live,      ///< the root exists
    offline,   ///< the root lies on a removable volume that is not mounted
    orphaned,  ///< the root was deleted
    unusable,  ///< the file cannot be read as an index
  };

  std::string url;
  std::string root;  ///< "" when the file cannot be read
  std::uint64_t bytes = 0;
  double scannedAt = 0;  ///< seconds since 1970; 0 when the file cannot be read
  Status status = Status::unusable;
  bool covered = false;  ///< another live index holds this root
};

/// The saved indexes of a user. Threads: any.
namespace IndexCatalog {

/// Every index in the folder, newest first; builds under way are no indexes.
[[nodiscard]] std::vector<IndexEntry> list(const Platform& platform, const std::string& indexDirectory);

/// The live index whose root holds `path` most closely; nullptr when there is none.
[[nodiscard]] const IndexEntry* nearest(const std::vector<IndexEntry>& entries, const std::string& path);

}  // namespace IndexCatalog

}  // namespace quon
