#include "base/HumanBytes.h"

#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <string_view>

namespace quon {

std::string humanBytes(std::uint64_t bytes) {
  if (bytes < 1024) return fmt::format("{} B", bytes);
  constexpr std::array<std::string_view, 4> units{"KB", "MB", "GB", "TB"};
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (value >= 1024 && unit + 1 < units.size()) {
    value /= 1024;
    ++unit;
  }
  return fmt::format("{:.1f} {}", value, units[unit]);
}

std::string grouped(std::uint64_t number) {
  std::string digits = fmt::format_int(number).str();
  for (std::size_t end = digits.size(); end > 3; end -= 3) digits.insert(end - 3, 1, ',');
  return digits;
}

}  // namespace quon
