#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "map/TextWidths.h"

namespace quon {

/// A name as labels show it.
struct ShownName {
  std::string text;
  bool isFile = false;  ///< has an extension that says something
};

/// Where the extension begins, with its dot; the length of the name when there is none. Of "a.tar.gz" it is
/// ".tar.gz".
[[nodiscard]] std::size_t extensionOf(std::string_view name);

/// The name on so many lines, broken after a space, "-" or "_" or before an extension, where the longest line
/// is shortest. None when there are too few such places.
[[nodiscard]] std::optional<std::vector<std::string>> broken(const ShownName& name, std::size_t lines,
                                                             const TextStyle& style, TextWidths& widths);

/// What a name is cut to.
struct CutName {
  std::string text;
  std::size_t kept = 0;  ///< characters
};

/// Cut to as many characters as `fits` accepts and at least `fewest`: a folder at its end, a file in its
/// middle, so that the extension stays, unless that is long and all before it fits. None when even that is
/// too much. `fits` is asked about ever fewer or more characters, and accepts all shorter texts than one it
/// accepts.
[[nodiscard]] std::optional<CutName> cut(const ShownName& name, std::size_t fewest,
                                         const std::function<bool(const std::string&)>& fits);

}  // namespace quon
