#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quon {

/// The path of a scanned root, as an identity and as what paths below it are joined to. The two differ for "/"
/// alone, whose slash would be doubled. Bytes; nothing here reads the disk. Threads: any.
class RootPath {
 public:
  /// No root.
  RootPath() = default;
  /// An absolute path; trailing slashes are dropped.
  explicit RootPath(std::string_view path);

  [[nodiscard]] bool isEmpty() const { return full.empty(); }
  /// Without trailing slash; "/" for "/".
  [[nodiscard]] const std::string& path() const { return full; }
  /// What children are joined to: the path, but "" for "/".
  [[nodiscard]] std::string_view prefix() const;
  /// True for the root itself and all below it.
  [[nodiscard]] bool contains(std::string_view other) const;
  /// The part of `other` below the root without a leading slash, "" for the root itself, nullopt outside it. A
  /// view into `other`.
  [[nodiscard]] std::optional<std::string_view> relative(std::string_view other) const;
  /// The full path of what `relative` returned.
  [[nodiscard]] std::string join(std::string_view below) const;

  friend bool operator==(const RootPath&, const RootPath&) = default;

 private:
  std::string full;
};

}  // namespace quon
