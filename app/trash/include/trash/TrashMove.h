#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/FunctionRef.h"
#include "platform/Folders.h"
#include "platform/Platform.h"
#include "platform/Trash.h"
#include "trash/Freed.h"

namespace quon {

using PathSet = std::set<std::string, std::less<>>;

/// True for what lies below one of the folders, at any depth; not for themselves.
[[nodiscard]] bool isWithinAny(const PathSet& folders, std::string_view path);

/// An item to be moved to the trash, with what was known of it when the user saw it.
struct TrashItem {
  std::string path;  ///< absolute, without links but the item itself
  ExpectedItem expected;

  friend bool operator==(const TrashItem&, const TrashItem&) = default;
};

/// What became of several of them. Items within others of the same call are moved with those, and not counted.
struct TrashOutcome {
  struct Failed {
    std::string path;
    std::string reason;

    friend bool operator==(const Failed&, const Failed&) = default;
  };

  std::vector<TrashedItem> moved;
  std::vector<Failed> failed;
  std::size_t untried = 0;  ///< items that were left alone, as it was cancelled
  /// The folders in which something came or went, trashes included; absolute and without links.
  PathSet changedFolders;
  /// By what was moved, once the trash is emptied.
  Freed::Total freed;

  /// One line about it all; "" when there was nothing to move.
  [[nodiscard]] std::string message() const;

  friend bool operator==(const TrashOutcome&, const TrashOutcome&) = default;
};

/// Moves the items one after the other; one that fails stops no other. `cancelled` is asked before each. `root` is the folder that was scanned, "" for
/// none. Threads: any but the main one.
[[nodiscard]] TrashOutcome moveToTrash(const Platform& platform, TrashService& trash, const Folders& folders,
                                       const std::string& root, const std::vector<TrashItem>& items,
                                       FunctionRef<bool()> cancelled);

}  // namespace quon
