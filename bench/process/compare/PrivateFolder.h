#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quon::bench {

/// A temporary folder for what the commands save, removed with its content at the end. It lies in $TMPDIR or
/// else in /var/tmp, which unlike /tmp is mostly a real disk. Threads: main only.
class PrivateFolder {
 public:
  PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  ~PrivateFolder();

  [[nodiscard]] const std::filesystem::path& path() const { return location; }

  /// This program's environment with the XDG base folders inside this one.
  [[nodiscard]] std::vector<std::string> environment() const;

  /// Those base folders. None exists before a command makes it.
  [[nodiscard]] std::vector<std::filesystem::path> baseFolders() const;

  /// Waits until all that was written to its file system is on the disk, so that the writing back of one
  /// command's index does not weigh on the next one.
  void settle() const;

 private:
  std::filesystem::path location;
};

}  // namespace quon::bench
