#pragma once

#include <optional>
#include <string>

#include "base/Log.h"
#include "platform/Files.h"
#include "platform/Folders.h"
#include "snapshot/QuonSnapshot.h"

namespace quon {

/// The folder that the program shares with its widget. A widget sees a new snapshot by watching it.
/// Threads: any but the main one.
class SharedStore {
 public:
  SharedStore(const FileService& files, const Folders& folders, Log& log);

  /// The folder, which is made when it is missing; none when it cannot be.
  [[nodiscard]] std::optional<std::string> containerURL() const;
  /// Replaces the snapshot, whole: who reads it sees the one or the other. True when it was written; what came of it
  /// is logged.
  bool write(const QuonSnapshot& snapshot) const;

 private:
  void removeAbandoned(const std::string& folder) const;

  const FileService& files;
  const std::string folder;
  Log& log;
};

}  // namespace quon
