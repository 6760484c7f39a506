#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

/// Looks for the small files that tell what a folder is for. The scan tree keeps large files only, so it
/// cannot tell. Folders are full paths, "" being the file system's root.
/// Threads: that of whoever asks; one question at a time.
class MarkerFiles {
 public:
  virtual ~MarkerFiles() = default;

  /// The folders that are known to hold an entry of this name, each once, in any order. Asked at most once a
  /// listing, so an index may be searched for it; what it tells is looked at again before it counts.
  [[nodiscard]] virtual std::vector<std::string> foldersHolding(std::string_view name) const = 0;
  /// True when the folder holds a regular file of this name now. False when that cannot be told.
  [[nodiscard]] virtual bool holds(const std::string& folder, std::string_view name) const = 0;
  /// The first bytes of that file, at most `most`; none when it is no regular file or cannot be read.
  [[nodiscard]] virtual std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                             std::size_t most) const = 0;
};

/// Marker files as they lie on the disk; only which folders to look into is told by another. Links are not
/// followed, and what is neither file nor readable counts as absent.
class DiskMarkers final : public MarkerFiles {
 public:
  using FoldersHolding = std::function<std::vector<std::string>(std::string_view name)>;

  explicit DiskMarkers(FoldersHolding foldersHoldingName) : known(std::move(foldersHoldingName)) {}

  [[nodiscard]] std::vector<std::string> foldersHolding(std::string_view name) const override;
  [[nodiscard]] bool holds(const std::string& folder, std::string_view name) const override;
  [[nodiscard]] std::optional<std::string> beginning(const std::string& folder, std::string_view name,
                                                     std::size_t most) const override;

 private:
  const FoldersHolding known;
};

}  // namespace quon
