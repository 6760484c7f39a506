#pragma once

#include <cstddef>

#include "Canvas.h"
#include "map/MapMark.h"
#include "map/MapMode.h"
#include "map/Theme.h"

namespace quon {

/// Draws the map of the scope into an area, which lies on whole pixels; how many marks it has.
std::size_t drawMap(const Canvas& canvas, const MapScope& scope, MapMode mode, const MapRect& area,
                    const Theme& theme);

}  // namespace quon
