#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/Directories.h"

namespace quon {

/// What is known of an item that is to be moved to the trash: it is moved only if this still holds. What is not
/// known is not compared.
struct ExpectedItem {
  EntryType type = EntryType::unknown;
  std::uint32_t device = 0;                    ///< together with `fileID`, where that is not 0
  std::uint64_t fileID = 0;                    ///< inode number
  std::optional<std::uint64_t> logical = {};   ///< apparent size; of anything but a folder
  std::optional<std::int64_t> mtime = {};      ///< whole seconds since 1970

  friend bool operator==(const ExpectedItem&, const ExpectedItem&) = default;
};

/// What a trash folder contains.
struct TrashedItem {
  std::string path;          ///< where it is now
  std::string originalPath;  ///< where it was, absolute; "" when that is not recorded
  std::int64_t trashedAt = 0;  ///< seconds since 1970; 0 when that is not recorded

  friend bool operator==(const TrashedItem&, const TrashedItem&) = default;
};

struct TrashFolder {
  std::string path;
  std::vector<TrashedItem> items;  ///< by path
  std::string failure = {};        ///< why it could not be listed; "" when it was
};

/// Why an item was not moved. what() is the reason, without the item's name where the system gives none.
class TrashFailure : public std::runtime_error {
 public:
  explicit TrashFailure(const std::string& reason, std::string touchedTrash = {})
      : std::runtime_error(reason), touched(std::move(touchedTrash)) {}
  const std::string touched;  ///< a trash folder in which something came and went; "" for none
};

/// The desktop's trash. What moves an item is the only thing in the program that changes anything of the user's.
/// Threads: any but the main one; may wait for disks.
class TrashService {
 public:
  TrashService() = default;
  TrashService(const TrashService&) = delete;
  TrashService& operator=(const TrashService&) = delete;
  virtual ~TrashService() = default;

  /// What the item is now, a link its own. TrashFailure also for a mount point, for a trash, and for what contains
  /// one of them or lies in a trash.
  [[nodiscard]] virtual ExpectedItem inspect(const std::string& path) const = 0;
  /// Moves the item into the trash of the home folder, or into that of its own file system. A link is moved
  /// itself. Nothing is moved, TrashFailure says why, when the item is not the expected one, is one that
  /// `inspect` refuses, or has no trash. The path is absolute and without links but the item itself.
  [[nodiscard]] virtual TrashedItem moveToTrash(const std::string& path, const ExpectedItem& expected) = 0;
  /// The trash folders of this user that exist, the home folder's first.
  [[nodiscard]] virtual std::vector<std::string> folders() const = 0;
  [[nodiscard]] virtual TrashFolder list(const std::string& folder) const = 0;
};

}  // namespace quon
