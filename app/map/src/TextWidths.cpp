#include "map/TextWidths.h"

#include <fmt/format.h>

namespace quon {

double TextWidths::of(std::string_view utf8, const TextStyle& style) {
  constexpr std::size_t kMostKnown = 100'000;
  const std::string key = fmt::format("{} {} {} {}", style.size, style.weight, style.isTabular, utf8);
  if (const auto found = known.find(key); found != known.end()) return found->second;
  if (known.size() >= kMostKnown) known.clear();
  return known[key] = measure.width(std::string(utf8), style);
}

}  // namespace quon
