#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quon {

/// Looks at the small files that tell what a folder is for. The scan tree keeps large files only, so it
/// cannot tell. Folders are full paths, "" being the file system's root.
/// Threads: that of whoever asks; one question at a time.
class MarkerFiles {
 public:
  virtual ~MarkerFiles() = default;

  /// True when the folder holds a regular file of this name now. False when that cannot be told.
  [[nodiscard]] virtual bool holds(const std::string& folder, std::string_view name) const = 0;
  /// The first bytes of that file, at most `most`; none when it is no regular file or cannot be read.
  [[nodiscard]] virtual std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                             std::size_t most) const = 0;
};

/// Marker files as they lie on the disk. Links are not followed, and what is neither file nor readable counts
/// as absent.
class DiskMarkers final : public MarkerFiles {
 public:
  [[nodiscard]] bool holds(const std::string& folder, std::string_view name) const override;
  [[nodiscard]] std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                     std::size_t most) const override;
};

}  // namespace quon
