#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "map/MapMode.h"

namespace quon {

enum class Phase : std::uint8_t { scanning = 0, ready = 1 };

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
