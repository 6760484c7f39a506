#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quon::test {

/// A fresh folder below $TMPDIR (or /tmp) that is removed with its content, however deep and whatever its
/// permissions, by the destructor. Failures to set a test up throw.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  /// Absolute, without links.
  const std::string path;

  /// path + "/" + name.
  [[nodiscard]] std::string at(std::string_view name) const;
  /// Makes a folder and those above it that are missing; returns its full path.
  std::string folder(std::string_view name) const;
  /// Makes a file of so many bytes, sparse from 64 KiB on, and the folders above it; returns its full path.
  std::string file(std::string_view name, std::uint64_t bytes = 0) const;
};

/// Removes a folder and all below it with a bounded number of open descriptors, at any depth.
void removeTree(const std::string& path);

}  // namespace quon::test
