#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Platform.h"

namespace quon {

/// One saved index, as the catalogue shows it.
struct IndexEntry {
  enum class Status {
    live,      ///< the root exists
    offline,   ///< the root lay on a volume that is not mounted now
    orphaned,  ///< the root was deleted
    unusable,  ///< the file cannot be read as an index
  };

  std::string url;
  std::string root;  ///< "" when the file cannot be read
  std::uint64_t bytes = 0;
  double scannedAt = 0;  ///< seconds since 1970; 0 when the file cannot be read
  Status status = Status::unusable;
  bool covered = false;  ///< another live index holds this root

  friend bool operator==(const IndexEntry&, const IndexEntry&) = default;
};

/// The saved indexes of a user. Threads: any.
namespace IndexCatalog {

/// Every index in the folder, newest first; builds under way are no indexes.
[[nodiscard]] std::vector<IndexEntry> list(const Platform& platform, const std::string& indexDirectory);

/// What a collection removed.
struct Collected {
  std::uint64_t indexes = 0;
  std::uint64_t bytes = 0;  ///< of the indexes and of builds that were never finished
};

/// Removes the indexes of roots that were deleted, and builds that no scan has written to for an hour. Never
/// one that is live, offline or unusable. std::system_error when one cannot be removed.
Collected collectGarbage(const Platform& platform, const std::string& indexDirectory);

/// The deepest of the mount points that holds the path; "/" when none does.
[[nodiscard]] std::string mountPointOf(std::string_view path, const std::vector<std::string>& mountPoints);

/// The live index whose root holds `path` most closely; nullptr when there is none.
[[nodiscard]] const IndexEntry* nearest(const std::vector<IndexEntry>& entries, const std::string& path);

}  // namespace IndexCatalog

}  // namespace quon
