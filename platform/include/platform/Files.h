#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/DiskIdentity.h"

namespace quon {

/// What stat returns for a path.
struct PathFacts {
  bool isDirectory = false;
  std::uint32_t device = 0;
  std::uint64_t fileID = 0;
  std::uint64_t linkCount = 1;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;  ///< whole seconds since 1970
};

struct FolderItem {
  std::string name;
  std::int64_t mtime = 0;
};

/// Reads the attributes of any path, and manages the program's own files, which only their owner may read: an
/// index contains every file name that a user has. Nothing here changes a file that is not the program's own.
/// Threads: any. Failures are std::system_error, whose what() names operation and path, where no other way is
/// given.
class FileService {
 public:
  virtual ~FileService() = default;

  /// Facts of the path, following links; nullopt with the reason when they cannot be read.
  [[nodiscard]] virtual std::optional<PathFacts> facts(const std::string& path,
                                                       std::error_code& error) const = 0;
  /// The same of the path itself: a link is not followed.
  [[nodiscard]] virtual std::optional<PathFacts> ownFacts(const std::string& path,
                                                          std::error_code& error) const = 0;
  /// The absolute path without links, "." and ".."; nullopt with the reason.
  [[nodiscard]] virtual std::optional<std::string> canonical(const std::string& path,
                                                             std::error_code& error) const = 0;
  /// The reason why the folder cannot be listed, or none.
  [[nodiscard]] virtual std::error_code readable(const std::string& folder) const = 0;

  /// Which disk the folder is on. Unknown when it cannot be opened.
  [[nodiscard]] virtual DiskIdentity disk(const std::string& folder) const = 0;
  /// What `DiskIdentity::boot` is of disks that do not outlast this boot. Never "".
  [[nodiscard]] virtual std::string boot() const = 0;

  /// Where file systems are mounted now, in the order of their mounting.
  [[nodiscard]] virtual std::vector<std::string> mountPoints() const = 0;

  /// Makes the folder and those above it that are missing, all for the user alone (0700).
  virtual void makePrivateFolder(const std::string& path) const = 0;
  /// Makes an empty file for the user alone (0600) that did not exist before.
  virtual void createPrivateFile(const std::string& path) const = 0;
  /// Writes a file for the user alone (0600), in place of what has its name: it is there whole or as it was.
  virtual void writePrivateFile(const std::string& path, std::string_view content) const = 0;
  /// Moves a file to another name in the same folder, replacing in one step what has that name.
  virtual void replace(const std::string& from, const std::string& to) const = 0;
  /// Removes a file; false when there was none.
  virtual bool remove(const std::string& path) const = 0;
  /// The entries of one of the program's own folders; none when it does not exist.
  [[nodiscard]] virtual std::vector<FolderItem> list(const std::string& folder) const = 0;
};

}  // namespace quon
