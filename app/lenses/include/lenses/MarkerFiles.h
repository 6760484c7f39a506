#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quon {

/// Reads the small files that show what a folder is for; the scan tree has large files only. Folders are full
/// paths, "" being the file system's root. Threads: any, one call at a time.
class MarkerFiles {
 public:
  virtual ~MarkerFiles() = default;

  /// True when the folder contains a regular file of this name now. False when that cannot be read.
  [[nodiscard]] virtual bool contains(const std::string& folder, std::string_view name) const = 0;
  /// The first bytes of that file, at most `most`; none when it is no regular file or cannot be read.
  [[nodiscard]] virtual std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                             std::size_t most) const = 0;
};

/// Marker files as they lie on the disk. Links are not followed, and what is neither file nor readable counts
/// as absent.
class DiskMarkers final : public MarkerFiles {
 public:
  [[nodiscard]] bool contains(const std::string& folder, std::string_view name) const override;
  [[nodiscard]] std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                     std::size_t most) const override;
};

}  // namespace quon
