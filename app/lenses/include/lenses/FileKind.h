#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

namespace quon {

/// What sort of file a file is, as far as its name or its first bytes show. The texts live as long as the
/// program. Threads: any.
struct FileKind {
  std::string_view id;      ///< stable key, lower case: "code", "images"; never shown
  std::string_view label;   ///< as shown: "Code & dev"
  std::optional<int> slot;  ///< place in the theme's palette, from 0; none for the kind of all other files

  friend bool operator==(const FileKind&, const FileKind&) = default;
};

}  // namespace quon

template <>
struct std::hash<quon::FileKind> {
  [[nodiscard]] std::size_t operator()(const quon::FileKind& kind) const noexcept {
    const std::hash<std::string_view> ofText;
    return (ofText(kind.id) * 31 + ofText(kind.label)) * 31 + std::hash<std::optional<int>>()(kind.slot);
  }
};
