#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quon {

enum class Phase : std::uint8_t { scanning = 0, ready = 1 };

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

/// The views on a scan, in the order of their shortcuts.
enum class Lens : std::uint8_t { map, largest, kinds, age, reclaim, dupes, names, volume, misnamed };

inline constexpr std::array<Lens, 9> kLenses{Lens::map,   Lens::largest, Lens::kinds,
                                             Lens::age,   Lens::reclaim, Lens::dupes,
                                             Lens::names, Lens::volume,  Lens::misnamed};

/// The title, which is also its identifier.
[[nodiscard]] constexpr std::string_view titleOf(Lens lens) {
  constexpr std::array<std::string_view, 9> kTitles{"Map",   "Largest", "Kinds",  "Untouched", "Reclaim",
                                                    "Dupes", "Names",   "Volume", "Misnamed"};
  return kTitles[static_cast<std::size_t>(lens)];
}

}  // namespace quon
