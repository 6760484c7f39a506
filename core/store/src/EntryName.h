#pragma once

#include <string_view>

namespace quon {

/// True for what a folder can hold an entry by. Anything else in an index would lead out of its root.
[[nodiscard]] constexpr bool isEntryName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

}  // namespace quon
