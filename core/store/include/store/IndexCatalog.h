#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/RootPath.h"
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
  bool covered = false;  ///< another live index contains this root

  friend bool operator==(const IndexEntry&, const IndexEntry&) = default;
};

/// The saved indexes of a user. Threads: any.
namespace IndexCatalog {

/// Every index in the folder, newest first; files that are still being built are no indexes. Asks the file
/// system about every root, and so waits for each that does not answer.
[[nodiscard]] std::vector<IndexEntry> list(const Platform& platform, const std::string& indexDirectory);

/// What a collection removed.
struct Collected {
  std::uint64_t indexes = 0;
  std::uint64_t bytes = 0;  ///< of the indexes and of builds that were never finished
};

/// Removes the indexes of roots that were deleted, and builds that no scan has written to for an hour. Never
/// one that is live, offline or unusable. std::system_error when one cannot be removed.
Collected collectGarbage(const Platform& platform, const std::string& indexDirectory);

/// Where the index is that was made of the root on the disk that is there now, or where a scan would save one.
/// The index of a disk that is absent makes room for it, and waits under another name. Waits for the root's
/// file system.
[[nodiscard]] std::string indexFor(const Platform& platform, const std::string& indexDirectory,
                                   const RootPath& root);

/// The deepest of the mount points that contain the path; "/" when none does.
[[nodiscard]] std::string mountPointOf(std::string_view path, const std::vector<std::string>& mountPoints);

/// The index of the closest folder at or above `path`, which is absolute and canonical: live, or unusable
/// with the folder as its root, so that a damaged index is reported and replaced instead of passed over.
/// `covered` is not determined. Reads no other index and asks about no other root.
[[nodiscard]] std::optional<IndexEntry> nearest(const Platform& platform, const std::string& indexDirectory,
                                                std::string_view path);

}  // namespace IndexCatalog

}  // namespace quon
