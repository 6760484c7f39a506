#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "search/SearchChip.h"

namespace quon {

/// A token "key:value" of a search with a known key.
struct Filter {
  SearchChip::Category category;
  std::string value;  ///< lower case, not empty; whether it can be read is not known yet
};

/// None for a token without colon, with an unknown key or without value.
[[nodiscard]] std::optional<Filter> filterOf(std::string_view token);

/// What the key, in any case and without its colon, filters by.
[[nodiscard]] std::optional<SearchChip::Category> categoryOf(std::string_view key);

/// The value of a size or an age: its operator, and what follows that.
struct Bound {
  bool isBelow;  ///< "<"; otherwise ">" or nothing
  std::string_view amount;
};

[[nodiscard]] Bound boundOf(std::string_view value);

}  // namespace quon
