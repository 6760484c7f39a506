#pragma once

#include "Canvas.h"
#include "map/MapMark.h"
#include "map/Theme.h"

namespace quon {

/// The largest rows of the scope in a table: their colours in the map, names, sizes and shares; what does not
/// fit is "smaller items". As many rows as the area's height has room for, and not more than there are.
void drawLegend(const Canvas& canvas, const MapScope& scope, const MapRect& area, const Theme& theme);

}  // namespace quon
