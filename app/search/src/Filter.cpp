#include "Filter.h"

#include <algorithm>
#include <cstddef>

#include "base/Text.h"

namespace quon {
namespace {

using Category = SearchChip::Category;

struct Key {
  std::string_view name;
  Category category;
};
constexpr std::array<Key, 7> kKeys{{{"kind", Category::kind},
                                    {"type", Category::kind},
                                    {"in", Category::path},
                                    {"path", Category::path},
                                    {"name", Category::name},
                                    {"size", Category::size},
                                    {"age", Category::age}}};

}  // namespace

std::optional<Category> categoryOf(std::string_view key) {
  const auto* const found = std::ranges::find(kKeys, lowerCase(key), &Key::name);
  if (found == kKeys.end()) return std::nullopt;
  return found->category;
}

std::optional<Filter> filterOf(std::string_view token) {
  const std::size_t colon = token.find(':');
  if (colon == std::string_view::npos || colon + 1 == token.size()) return std::nullopt;
  const auto category = categoryOf(token.substr(0, colon));
  if (!category) return std::nullopt;
  return Filter{*category, lowerCase(token.substr(colon + 1))};
}

Bound boundOf(std::string_view value) {
  const bool isBelow = value.starts_with('<');
  if (isBelow || value.starts_with('>')) value.remove_prefix(1);
  return {isBelow, value};
}

}  // namespace quon
