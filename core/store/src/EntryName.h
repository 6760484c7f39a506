#pragma once

#include <string_view>

namespace quon {

/// True for a name that an entry of a folder can have. Any other in an index would lead out of its root.
[[nodiscard]] constexpr bool isEntryName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

}  // namespace quon
