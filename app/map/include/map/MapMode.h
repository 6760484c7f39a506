#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quon {

/// How the map shows the scope.
enum class MapMode : std::uint8_t { sunburst, treemap };

inline constexpr std::array<MapMode, 2> kMapModes{MapMode::sunburst, MapMode::treemap};

/// The text that stands for the mode wherever it is stored or typed.
[[nodiscard]] constexpr std::string_view rawTextOf(MapMode mode) {
  return mode == MapMode::sunburst ? "sunburst" : "treemap";
}

/// None for a text that stands for no mode.
[[nodiscard]] constexpr std::optional<MapMode> mapModeOf(std::string_view rawText) {
  for (const MapMode mode : kMapModes) {
    if (rawTextOf(mode) == rawText) return mode;
  }
  return std::nullopt;
}

}  // namespace quon
