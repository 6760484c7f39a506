#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <system_error>

#include "platform/Directories.h"

namespace quon {

/// A name in a folder as the listing itself has it, without another system call.
struct ListedName {
  const char* name = nullptr;  ///< valid until the buffer is filled again
  std::uint64_t inode = 0;
  EntryType type = EntryType::unknown;  ///< unknown where the file system does not list types
};

/// Lists the names in folders through one buffer that it reuses; "." and ".." are left out.
/// Threads: confined to the one that uses it.
class NameListing {
 public:
  explicit NameListing(std::size_t bufferBytes);

  /// Begins the listing of a folder that was opened for it; abandons the one before. The descriptor stays the
  /// caller's.
  void start(int folder);
  /// The next name, filling the buffer as needed; false at the end and when the listing broke off.
  [[nodiscard]] bool next(ListedName& entry);

  /// The two steps of next(), for callers that use several names at once: the next name in the buffer, false
  /// when it has been used up;
  [[nodiscard]] bool nextBuffered(ListedName& entry);
  /// and the filling of it, false at the end and when the listing broke off.
  [[nodiscard]] bool fill();

  /// Why the listing broke off; none when it was whole.
  [[nodiscard]] std::error_code error() const { return reason; }

 private:
  const std::size_t capacity;
  std::unique_ptr<std::byte[]> buffer;
  int descriptor = -1;
  std::size_t position = 0;
  std::size_t filled = 0;
  std::error_code reason;
};

}  // namespace quon
