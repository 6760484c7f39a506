#pragma once

#include <string>

#include "linux_fs/Descriptor.h"

namespace quon {

/// Wakes when a file of the state folder is made, moved or removed, or the folder itself is. Threads: one at
/// a time.
class StateWatch {
 public:
  /// Throws std::system_error. The folder exists.
  explicit StateWatch(const std::string& folder);

  /// Readable when something has happened.
  [[nodiscard]] int descriptor() const { return notifier.get(); }
  /// Takes what has happened. False when this watch has come to its end with its folder.
  [[nodiscard]] bool takeNews();

 private:
  Descriptor notifier;
};

}  // namespace quon
