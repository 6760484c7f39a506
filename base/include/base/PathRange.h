#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace quon {

// Ordered sets and maps by path: what is below a path stands together in them.

/// The iterators between which everything below the path stands, without the path itself.
template <typename Ordered>
[[nodiscard]] auto rangeBelow(Ordered& items, std::string_view path) {
  std::string bound(path == "/" ? "" : path);
  bound += '/';
  const auto first = items.lower_bound(bound);
  bound.back() = '/' + 1;
  return std::pair(first, items.lower_bound(bound));
}

/// Erases the path and everything below it.
template <typename Ordered>
void eraseInside(Ordered& items, std::string_view path) {
  const auto [first, last] = rangeBelow(items, path);
  items.erase(first, last);
  if (const auto itself = items.find(path); itself != items.end()) items.erase(itself);
}

}  // namespace quon
