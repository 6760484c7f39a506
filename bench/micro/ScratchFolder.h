#pragma once

#include <string>
#include <string_view>

namespace quon::bench {

/// A fresh folder below $TMPDIR (or /tmp), removed with its content by the destructor. Throws
/// std::filesystem::filesystem_error or std::system_error when it cannot be made.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string path;

  /// path + "/" + name.
  [[nodiscard]] std::string at(std::string_view name) const;
};

}  // namespace quon::bench
